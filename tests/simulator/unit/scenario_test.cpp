#include "simulator/unit/scenario.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fstream>

#include "tests/simulator/expect_failure.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

constexpr std::int64_t second_ps = 1'000'000'000'000;

TEST(Scenario, DefaultUnitHasPairsOverBackground) {
  const Signal signal = Scenario(parse_device_port("ftdi://")).start();
  EXPECT_EQ(signal.origin_ps, 0);
  EXPECT_EQ(signal.pace, Pace::real_time);
  std::array<int, 4> counts{};
  std::array<std::int64_t, 4> last_ps{-second_ps, -second_ps, -second_ps, -second_ps};
  std::array<int, 4> partners{};
  std::int64_t latest_ps = 0;
  while (signal.source->peek()->time_ps < second_ps) {
    const Event event = *signal.source->peek();
    signal.source->pop();
    ASSERT_GE(event.time_ps, latest_ps);
    latest_ps = event.time_ps;
    ++counts[event.channel];
    last_ps[event.channel] = event.time_ps;
    if (event.time_ps - last_ps[event.channel ^ 1U] <= 1000) {
      ++partners[event.channel];
    }
  }
  // 20 kHz of pairs and 5 kHz of background, to within 5 standard deviations.
  for (const int count : counts) {
    EXPECT_NEAR(count, 25'000, 800);
  }
  EXPECT_NEAR(partners[0] + partners[1], 20'000, 720);
  EXPECT_NEAR(partners[2] + partners[3], 20'000, 720);
}

TEST(Scenario, EveryStartGivesTheSameSignal) {
  const Scenario scenario(parse_device_port("ftdi://"));
  const Signal one = scenario.start();
  const Signal two = scenario.start();
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(one.source->peek()->time_ps, two.source->peek()->time_ps);
    one.source->pop();
    two.source->pop();
  }
}

TEST(Scenario, RecordedTagsBeginAtTheFirstTag) {
  const test_support::TemporaryDirectory directory;
  const std::string path = directory.path() / "a&b.csv";
  std::ofstream(path) << "channel,timestamp_ps\n1,5000\n2,6000\n";
  const std::string port = "sim://tags?file=" + directory.path().string() + "/a%26b.csv&pace=max";
  const Scenario scenario(parse_device_port(port));
  for (int start = 0; start < 2; ++start) {
    const Signal signal = scenario.start();
    EXPECT_EQ(signal.origin_ps, 5000);
    EXPECT_EQ(signal.pace, Pace::as_read);
    EXPECT_EQ(signal.source->peek()->time_ps, 5000);
  }
}

// The channels on which a signal has detected events in its first 10 ms.
unsigned live_channels(const std::string& port) {
  const Signal signal = Scenario(parse_device_port(port)).start();
  unsigned channels = 0;
  for (const Event* event = signal.source->peek();
       event != nullptr && event->time_ps < second_ps / 100; event = signal.source->peek()) {
    channels |= event->amplitude_v > 0.5 ? 1U << event->channel : 0U;
    signal.source->pop();
  }
  return channels;
}

TEST(Scenario, EverySourceLightsItsChannels) {
  EXPECT_EQ(live_channels("sim://pulses"), 0xFU);
  EXPECT_EQ(live_channels("sim://random"), 0xFU);
  EXPECT_EQ(live_channels("sim://random?rate_hz=1e4,0,0,1e4"), 0x9U);
  EXPECT_EQ(live_channels("sim://pairs"), 0x3U);
  EXPECT_EQ(live_channels("sim://pairs?channel_a=2&channel_b=2"), 0x4U);
  EXPECT_EQ(live_channels("sim://pairs?pair_rate_hz=0"), 0U);
  EXPECT_EQ(live_channels("sim://burst"), 0xFU);
  EXPECT_EQ(live_channels("sim://silent"), 0U);
}

TEST(Scenario, BackgroundComesOnTopOfEverySignal) {
  EXPECT_EQ(live_channels("sim://silent?background_hz=0,1e4,0,0"), 0x2U);
  EXPECT_EQ(live_channels("sim://pairs?background_hz=0,0,0,1e4"), 0xBU);
}

TEST(Scenario, AChannelWithoutAmplitudeOrEfficiencyIsDead) {
  for (const char* const port : {"ftdi://?", "sim://pulses?", "sim://random?", "sim://burst?"}) {
    EXPECT_EQ(live_channels(std::string(port) + "amplitude_v=2.5,0,2.5,2.5"), 0xDU);
    EXPECT_EQ(live_channels(std::string(port) + "efficiency=1,1,0,1"), 0xBU);
    EXPECT_EQ(live_channels(std::string(port) + "amplitude_v=0.4,2,2,2"), 0xEU);
  }
}

TEST(Scenario, RatesTooLowToHappenAreSilent) {
  EXPECT_EQ(live_channels("sim://random?rate_hz=1e-300"), 0U);
  EXPECT_EQ(live_channels("sim://pairs?pair_rate_hz=1e-300&background_hz=1e-308"), 0U);
}

TEST(Scenario, StreamsBeginBeforeAWrapWhenAsked) {
  EXPECT_EQ(first_shown_ps(0), 0);
  // In whole clock periods; 1 ms is 300030 of them and a little.
  EXPECT_EQ(first_shown_ps(1), 14'315'125'997'568 - 300'030LL * 3333);
  EXPECT_EQ(first_shown_ps(14'315) % 3333, 0);
  EXPECT_GT(first_shown_ps(14'315), 0);
}

TEST(Scenario, DriftAndStartCountFromTheFirstRecordedTag) {
  const test_support::TemporaryDirectory directory;
  const std::string path = directory.path() / "tags.csv";
  std::ofstream(path) << "channel,timestamp_ps\n1,5000\n1,1000005000\n";
  const Signal drifting =
      Scenario(parse_device_port("sim://tags?drift_ppm=10&file=" + path)).start();
  EXPECT_EQ(drifting.time_base.shown_at(5000), 5000);
  EXPECT_EQ(drifting.time_base.shown_at(1'000'005'000), 1'000'015'000);
  const Signal wrapping =
      Scenario(parse_device_port("sim://tags?start_epoch=1&file=" + path)).start();
  EXPECT_EQ(wrapping.time_base.shown_at(5000), first_shown_ps(1));
}

TEST(Scenario, ABadTagFileFailsAtOnce) {
  failure_text(Status::cannot_open_tag_file,
               [] { Scenario(parse_device_port("sim://tags?file=/nonexistent/tags.csv")); });
}

}  // namespace
}  // namespace zelk::simulator
