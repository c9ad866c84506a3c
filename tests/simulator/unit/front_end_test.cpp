#include "simulator/unit/front_end.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator {
namespace {

using timing::TimeTag;

std::vector<TimeTag> detected(const FrontEndSettings& settings, const std::vector<Event>& events) {
  FrontEnd front_end(settings);
  std::vector<TimeTag> tags;
  TimeTag tag;
  for (const Event& event : events) {
    if (front_end.detect(event, tag)) {
      tags.push_back(tag);
    }
  }
  // All together they make the same tags.
  std::vector<TimeTag> together(events.size());
  together.resize(FrontEnd(settings).detect(events, TimeBase(), together));
  EXPECT_EQ(together, tags);
  return tags;
}

TEST(ThresholdCode, SpansZeroToFourVolts) {
  EXPECT_EQ(threshold_v(0x8000), 0.0);
  EXPECT_EQ(threshold_v(0x7FFF), 4.0);
  EXPECT_NEAR(threshold_v(0x0000), 2.0, 4.0 / 65535);
  EXPECT_NEAR(threshold_v(0xC000), 1.0, 4.0 / 65535);
  EXPECT_NEAR(threshold_v(default_threshold_code), 0.5, 4.0 / 65535);
}

TEST(FrontEnd, SignalsBelowTheThresholdOfTheirChannelMakeNoTags) {
  FrontEndSettings settings;
  settings.threshold_codes = {0x8000, 0x7FFF, 0x8000, 0x8000};
  EXPECT_EQ(detected(settings, {{1, 0.0, 0}, {2, 3.99, 1}, {3, 4.0, 1}, {4, 1.0, 2}}),
            (std::vector<TimeTag>{{0, 1}, {1, 3}, {2, 4}}));
}

TEST(FrontEnd, MaskedChannelsMakeNoTags) {
  for (unsigned mask = 0; mask < 16; ++mask) {
    FrontEndSettings settings;
    settings.channel_mask = static_cast<std::uint8_t>(mask);
    std::vector<TimeTag> expected;
    std::vector<Event> events;
    for (std::uint8_t channel = 0; channel < 4; ++channel) {
      events.push_back({channel, 2.5, channel});
      if ((mask >> channel & 1) != 0) {
        expected.push_back({channel, channel});
      }
    }
    EXPECT_EQ(detected(settings, events), expected) << mask;
  }
}

TEST(FrontEnd, DeadTimeCountsFromTheLastTagOfTheChannel) {
  FrontEndSettings settings;
  settings.dead_time_ps = 3333;
  EXPECT_EQ(detected(settings,
                     {{0, 2.5, 0}, {3332, 2.5, 0}, {3332, 2.5, 1}, {3333, 2.5, 0}, {6665, 2.5, 0}}),
            (std::vector<TimeTag>{{0, 0}, {1, 3332}, {0, 3333}}));
}

TEST(FrontEnd, TimesOfAChannelRiseEvenWithoutDeadTime) {
  EXPECT_EQ(detected({}, {{7, 2.5, 0}, {7, 2.5, 0}, {7, 2.5, 1}, {8, 2.5, 0}}),
            (std::vector<TimeTag>{{0, 7}, {1, 7}, {0, 8}}));
}

TEST(FrontEnd, WithoutDelayLineTimesAreTheNextClockEdge) {
  FrontEndSettings settings;
  settings.delay_line_masks = {0, 1, 0x1F, 0};
  EXPECT_EQ(detected(settings, {{0, 2.5, 0},
                                {1, 2.5, 0},
                                {3333, 2.5, 0},
                                {3334, 2.5, 0},
                                {3335, 2.5, 1},
                                {3336, 2.5, 3}}),
            (std::vector<TimeTag>{{0, 0}, {0, 3333}, {0, 6666}, {1, 3335}, {3, 6666}}));
}

TEST(DeadTime, IsRoundedUpToWholeClockPeriods) {
  EXPECT_EQ(applied_dead_time_ps(0), 0);
  EXPECT_EQ(applied_dead_time_ps(1), 3333);
  EXPECT_EQ(applied_dead_time_ps(3333), 3333);
  EXPECT_EQ(applied_dead_time_ps(3334), 6666);
  EXPECT_EQ(applied_dead_time_ps(100'000), 103'323);
}

TEST(DeadTime, OutsideItsRangeIsRefusedByName) {
  EXPECT_EQ(applied_dead_time_ps(55'918'457'595), 55'918'457'595);  // 3333 * (2^24 - 1)
  EXPECT_NE(failure_text(Status::out_of_range, [] { applied_dead_time_ps(55'918'457'596); })
                .find("55918457596"),
            std::string::npos);
  EXPECT_NE(failure_text(Status::out_of_range, [] { applied_dead_time_ps(-1); }).find("-1 ps"),
            std::string::npos);
  failure_text(Status::out_of_range,
               [] { applied_dead_time_ps(std::numeric_limits<std::int64_t>::max()); });
  failure_text(Status::out_of_range,
               [] { applied_dead_time_ps(std::numeric_limits<std::int64_t>::min()); });
}

}  // namespace
}  // namespace zelk::simulator
