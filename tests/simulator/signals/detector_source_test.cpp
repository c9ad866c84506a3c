#include "simulator/signals/detector_source.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/simulator/listed_source.hpp"

namespace zelk::simulator {
namespace {

// The pulses that the detectors make; what they do not detect is left out.
std::vector<Event> pulses_of(std::vector<Event> light, const DetectorSettings& settings,
                             std::uint32_t seed = 1) {
  DetectorSource source(std::make_unique<ListedSource>(std::move(light)), settings, seed);
  std::vector<Event> pulses;
  std::int64_t latest_ps = 0;
  while (const Event* event = source.peek()) {
    EXPECT_EQ(source.peek(), event);  // looking again changes nothing
    EXPECT_GE(event->time_ps, latest_ps);
    latest_ps = event->time_ps;
    if (event->amplitude_v >= 0) {
      pulses.push_back(*event);
    }
    source.pop();
  }
  return pulses;
}

std::vector<std::int64_t> times_of(const std::vector<Event>& events) {
  std::vector<std::int64_t> times;
  std::transform(events.begin(), events.end(), std::back_inserter(times),
                 [](const Event& event) { return event.time_ps; });
  return times;
}

std::vector<Event> regular(std::int64_t step_ps, int count, std::uint8_t channel = 0) {
  std::vector<Event> events;
  for (int i = 0; i < count; ++i) {
    events.push_back({i * step_ps, 2.5, channel});
  }
  return events;
}

TEST(DetectorSource, PulsesHaveTheAmplitudeOfTheirDetector) {
  const auto pulses = pulses_of({{1, 2.5, 0}, {2, 2.5, 1}}, {.amplitude_v = {0.3, 4, 1, 1}});
  ASSERT_EQ(pulses.size(), 2U);
  EXPECT_EQ(pulses[0].amplitude_v, 0.3);
  EXPECT_EQ(pulses[1].amplitude_v, 4);
}

TEST(DetectorSource, WithoutAmplitudeADetectorIsDeadEvenWithoutAThreshold) {
  const auto pulses =
      pulses_of({{1, 2.5, 0}, {2, 2.5, 1}, {3, 2.5, 0}}, {.amplitude_v = {0, 2.5, 2.5, 2.5}});
  EXPECT_EQ(times_of(pulses), (std::vector<std::int64_t>{2}));
}

TEST(DetectorSource, DeadTimeBeginsWithADetectedEventOnly) {
  // Events at 4 and 9 find the detector dead and do not keep it so.
  EXPECT_EQ(times_of(pulses_of(
                {{0, 2.5, 0}, {4, 2.5, 0}, {5, 2.5, 1}, {9, 2.5, 0}, {10, 2.5, 0}, {15, 2.5, 1}},
                {.dead_time_ps = 10})),
            (std::vector<std::int64_t>{0, 5, 10, 15}));
}

TEST(DetectorSource, EfficiencyIsTheShareThatIsDetected) {
  const auto pulses = pulses_of(regular(1000, 40'000), {.efficiency = {0.25, 0, 0, 0}});
  // A spread of sqrt(40000 * 0.25 * 0.75) = 87.
  EXPECT_NEAR(static_cast<double>(pulses.size()), 10'000, 4 * 87);
  EXPECT_TRUE(pulses_of(regular(1000, 1000, 2), {.efficiency = {1, 1, 0, 1}}).empty());
  EXPECT_EQ(pulses_of(regular(1000, 1000, 2), {.efficiency = {0, 0, 1, 0}}).size(), 1000U);
}

TEST(DetectorSource, AfterpulsesFollowTheirPulsesAndObeyTheDeadTime) {
  const DetectorSettings settings{.afterpulse_probability = 0.5, .afterpulse_tau_ps = 1000};
  const auto light = regular(1'000'000, 20'000);
  // Each pulse has one with a chance of 1/2, and so has each afterpulse: one
  // more pulse for each of the light's. Chains vary by 2 each: 4 sqrt(2 n).
  EXPECT_NEAR(static_cast<double>(pulses_of(light, settings).size()), 40'000, 800);

  DetectorSettings dead = settings;
  dead.dead_time_ps = 50'000;  // 50 time constants
  EXPECT_EQ(pulses_of(light, dead).size(), 20'000U);
}

TEST(DetectorSource, ADetectorDoesNotDependOnTheOthers) {
  std::vector<Event> both = regular(1000, 5000);
  const std::vector<Event> alone = both;
  for (const Event& event : alone) {
    both.push_back({event.time_ps + 500, 2.5, 1});
  }
  std::sort(both.begin(), both.end(),
            [](const Event& a, const Event& b) { return a.time_ps < b.time_ps; });
  const DetectorSettings settings{.efficiency = {0.5, 0.5, 0.5, 0.5},
                                  .dead_time_ps = 1500,
                                  .afterpulse_probability = 0.2,
                                  .afterpulse_tau_ps = 5000};
  std::vector<Event> of_both = pulses_of(both, settings);
  std::erase_if(of_both, [](const Event& event) { return event.channel != 0; });
  EXPECT_EQ(times_of(of_both), times_of(pulses_of(alone, settings)));
  EXPECT_NE(times_of(of_both), times_of(pulses_of(alone, settings, 2)));
}

TEST(DetectorSource, AfterpulsesEndAtTheEndOfTime) {
  const DetectorSettings settings{.afterpulse_probability = 0.5, .afterpulse_tau_ps = 1e9};
  std::vector<Event> light;
  for (int i = 0; i < 1000; ++i) {
    light.push_back({end_of_time_ps - 2000 + i, 2.5, 0});
  }
  for (const Event& pulse : pulses_of(light, settings)) {
    EXPECT_LT(pulse.time_ps, end_of_time_ps);
  }
}

}  // namespace
}  // namespace zelk::simulator
