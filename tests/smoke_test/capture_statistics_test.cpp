#include "smoke_test/capture_statistics.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "tests/reference/literal_analysis.hpp"
#include "tests/reference/random_times.hpp"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;
using zelk::timing::TimeTag;

constexpr std::int64_t millisecond_ps = 1'000'000'000;
constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

CaptureStatistics statistics_of(const std::vector<TimeTag>& tags, double bin_s = 0.001) {
  CaptureStatistics statistics(bin_s);
  statistics.add(tags);
  return statistics;
}

void count(TimeBins& bins, std::size_t channel, std::int64_t elapsed_ps) {
  ++(*bins.stretch_at(static_cast<std::uint64_t>(elapsed_ps)).counts)[channel];
}

TEST(CaptureCounts, StartAtZero) {
  const CaptureStatistics statistics(0.1);
  EXPECT_EQ(statistics.total(), 0U);
  for (std::size_t channel = 0; channel < 4; ++channel) {
    EXPECT_THAT(statistics.times_ps()[channel], IsEmpty());
  }
  EXPECT_THAT(statistics.monotonic_violations(), ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(statistics.max_gap_ps(), ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(statistics.bins().rows(), IsEmpty());
  EXPECT_EQ(statistics.bins().overflow(), 0U);
}

TEST(CaptureCounts, KeepTheArrivalOrderPerChannel) {
  const CaptureStatistics statistics = statistics_of({{3, 9}, {0, 5}, {3, 2}, {3, 9}});
  EXPECT_EQ(statistics.total(), 4U);
  EXPECT_THAT(statistics.times_ps()[0], ElementsAre(5));
  EXPECT_THAT(statistics.times_ps()[1], IsEmpty());
  EXPECT_THAT(statistics.times_ps()[2], IsEmpty());
  EXPECT_THAT(statistics.times_ps()[3], ElementsAre(9, 2, 9));
}

TEST(CaptureCounts, IgnoreChannelsThatDoNotExist) {
  const CaptureStatistics statistics = statistics_of({{4, 1}, {5, 2}, {255, 3}});
  EXPECT_EQ(statistics.total(), 0U);
  EXPECT_THAT(statistics.bins().rows(), IsEmpty());
}

TEST(CaptureCounts, AnIgnoredTagDoesNotSetTheBaseTime) {
  const CaptureStatistics statistics =
      statistics_of({{4, 0}, {0, 5 * millisecond_ps}, {0, 6 * millisecond_ps}});
  EXPECT_THAT(statistics.bins().rows(),
              ElementsAre(ElementsAre(1, 0, 0, 0), ElementsAre(1, 0, 0, 0)));
}

TEST(CaptureSteps, EqualTimesAreNoViolation) {
  const CaptureStatistics statistics = statistics_of({{1, 7}, {1, 7}});
  EXPECT_THAT(statistics.monotonic_violations(), ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(statistics.max_gap_ps(), ElementsAre(0, 0, 0, 0));
}

TEST(CaptureSteps, AnEarlierTagIsAViolationAndNoGap) {
  const CaptureStatistics statistics = statistics_of({{2, 100}, {2, 40}, {2, 39}, {2, 41}});
  EXPECT_THAT(statistics.monotonic_violations(), ElementsAre(0, 0, 2, 0));
  EXPECT_THAT(statistics.max_gap_ps(), ElementsAre(0, 0, 2, 0));
}

TEST(CaptureSteps, GapsAreMeasuredFromThePreviousTagAlsoAfterAViolation) {
  const CaptureStatistics statistics = statistics_of({{0, 1000}, {0, 0}, {0, 900}});
  EXPECT_THAT(statistics.monotonic_violations(), ElementsAre(1, 0, 0, 0));
  EXPECT_THAT(statistics.max_gap_ps(), ElementsAre(900, 0, 0, 0));
}

TEST(CaptureSteps, ChannelsAreMeasuredApart) {
  const CaptureStatistics statistics =
      statistics_of({{0, 100}, {1, 10}, {0, 130}, {1, 60}, {1, 70}});
  EXPECT_THAT(statistics.monotonic_violations(), ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(statistics.max_gap_ps(), ElementsAre(30, 50, 0, 0));
}

TEST(CaptureSteps, TheFirstTagOfAChannelHasNoStep) {
  for (const std::int64_t first : {std::int64_t{0}, std::int64_t{-9}, std::int64_t{9}, largest}) {
    CaptureStatistics statistics = statistics_of({{0, first}, {0, first}});
    EXPECT_THAT(statistics.monotonic_violations(), ElementsAre(0, 0, 0, 0)) << first;
    EXPECT_THAT(statistics.max_gap_ps(), ElementsAre(0, 0, 0, 0)) << first;
    statistics.add({0, first - 4});
    EXPECT_THAT(statistics.monotonic_violations(), ElementsAre(1, 0, 0, 0)) << first;
    EXPECT_THAT(statistics.max_gap_ps(), ElementsAre(0, 0, 0, 0)) << first;
  }
}

TEST(CaptureSteps, ReachFromOneBatchIntoTheNext) {
  CaptureStatistics statistics = statistics_of({{0, 100}, {1, 7}});
  statistics.add(std::vector<TimeTag>{{0, 350}, {1, 6}});
  EXPECT_THAT(statistics.monotonic_violations(), ElementsAre(0, 1, 0, 0));
  EXPECT_THAT(statistics.max_gap_ps(), ElementsAre(250, 0, 0, 0));
}

TEST(CaptureSteps, TheFirstTagMayHaveANegativeTime) {
  const CaptureStatistics statistics = statistics_of({{0, -500}, {0, -100}});
  EXPECT_THAT(statistics.monotonic_violations(), ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(statistics.max_gap_ps(), ElementsAre(400, 0, 0, 0));
}

TEST(TimeBinWidth, IsNeverBelowOneMillisecond) {
  for (const double width_s : {0.0, -1.0, 0.0005, 1e-300, std::numeric_limits<double>::quiet_NaN(),
                               -std::numeric_limits<double>::infinity()}) {
    const TimeBins bins(width_s);
    EXPECT_EQ(bins.width_s(), 0.001) << width_s;
    EXPECT_EQ(bins.width_ps(), millisecond_ps) << width_s;
  }
}

TEST(TimeBinWidth, IsCutToWholePicoseconds) {
  EXPECT_EQ(TimeBins(0.1).width_ps(), 100 * millisecond_ps);
  EXPECT_EQ(TimeBins(2.0).width_ps(), 2000 * millisecond_ps);
  EXPECT_EQ(TimeBins(0.0012345678905).width_ps(), 1'234'567'890);  // and half a picosecond
  EXPECT_EQ(TimeBins(0.1).width_s(), 0.1);
}

TEST(TimeBinWidth, BeyondTheSignedRangeSwitchesBinningOff) {
  EXPECT_EQ(TimeBins(9.2e6).width_ps(), 9'200'000'000 * millisecond_ps);
  for (const double width_s : {9.3e6, 1e18, 1e300, std::numeric_limits<double>::infinity()}) {
    TimeBins bins(width_s);
    EXPECT_LT(bins.width_ps(), 1) << width_s;
    EXPECT_EQ(bins.width_s(), width_s);
    count(bins, 0, 5);
    count(bins, 0, -5);
    count(bins, 0, largest);
    EXPECT_THAT(bins.rows(), IsEmpty()) << width_s;
    EXPECT_EQ(bins.overflow(), 0U) << width_s;
  }
}

TEST(TimeBins, GrowToTheHighestBinWithATag) {
  TimeBins bins(0.001);
  count(bins, 2, 3 * millisecond_ps);
  EXPECT_THAT(bins.rows(), ElementsAre(ElementsAre(0, 0, 0, 0), ElementsAre(0, 0, 0, 0),
                                       ElementsAre(0, 0, 0, 0), ElementsAre(0, 0, 1, 0)));
  count(bins, 1, millisecond_ps);
  EXPECT_THAT(bins.rows(), ElementsAre(ElementsAre(0, 0, 0, 0), ElementsAre(0, 1, 0, 0),
                                       ElementsAre(0, 0, 0, 0), ElementsAre(0, 0, 1, 0)));
}

TEST(TimeBins, BeginWithTheirLowerEdge) {
  TimeBins bins(0.001);
  count(bins, 0, 0);
  count(bins, 0, millisecond_ps - 1);
  count(bins, 0, millisecond_ps);
  EXPECT_THAT(bins.rows(), ElementsAre(ElementsAre(2, 0, 0, 0), ElementsAre(1, 0, 0, 0)));
}

TEST(TimeBins, TagsBeforeTheFirstCountInTheFirstBin) {
  TimeBins bins(0.001);
  count(bins, 3, -1);
  count(bins, 3, -7 * millisecond_ps);
  count(bins, 3, smallest);
  EXPECT_THAT(bins.rows(), ElementsAre(ElementsAre(0, 0, 0, 3)));
}

TEST(TimeBins, Beyond4096RowsOnlyTheOverflowCounts) {
  TimeBins bins(0.1);
  count(bins, 0, 409'600 * millisecond_ps - 1);
  EXPECT_THAT(bins.rows(), SizeIs(4096));
  EXPECT_EQ(bins.rows().back()[0], 1U);
  EXPECT_EQ(bins.overflow(), 0U);
  count(bins, 0, 409'600 * millisecond_ps);
  count(bins, 1, largest);
  EXPECT_THAT(bins.rows(), SizeIs(4096));
  EXPECT_EQ(bins.overflow(), 2U);
}

TEST(TimeBins, StretchesEndWithTheirLastTime) {
  TimeBins bins(0.001);
  for (const std::int64_t first_ps : {std::int64_t{0}, 7 * millisecond_ps}) {
    const auto first = static_cast<std::uint64_t>(first_ps);
    const TimeBins::Stretch stretch = bins.stretch_at(first + 5);
    EXPECT_TRUE(stretch.contains(first));
    EXPECT_TRUE(stretch.contains(first + millisecond_ps - 1));
    EXPECT_FALSE(stretch.contains(first + millisecond_ps));
    EXPECT_FALSE(stretch.contains(first - 1));
  }
}

// Bins of 5e18 ps: the second one would reach beyond the largest time, 9.2e18.
TEST(TimeBins, TheLastStretchEndsWithTheSignedRange) {
  TimeBins bins(5e6);
  const TimeBins::Stretch stretch = bins.stretch_at(static_cast<std::uint64_t>(largest));
  EXPECT_TRUE(stretch.contains(static_cast<std::uint64_t>(largest)));
  EXPECT_FALSE(stretch.contains(static_cast<std::uint64_t>(smallest)));
}

TEST(CaptureBins, CountFromTheFirstTagOfAnyChannel) {
  const CaptureStatistics statistics =
      statistics_of({{1, 10 * millisecond_ps}, {0, 9 * millisecond_ps}, {0, 12 * millisecond_ps}});
  EXPECT_THAT(
      statistics.bins().rows(),
      ElementsAre(ElementsAre(1, 1, 0, 0), ElementsAre(0, 0, 0, 0), ElementsAre(1, 0, 0, 0)));
}

TEST(CaptureBins, OverflowingTagsStillCountEverywhereElse) {
  const CaptureStatistics statistics = statistics_of({{0, 0}, {0, 4096 * millisecond_ps}});
  EXPECT_EQ(statistics.total(), 2U);
  EXPECT_THAT(statistics.max_gap_ps(), ElementsAre(4096 * millisecond_ps, 0, 0, 0));
  EXPECT_THAT(statistics.bins().rows(), ElementsAre(ElementsAre(1, 0, 0, 0)));
  EXPECT_EQ(statistics.bins().overflow(), 1U);
}

TEST(CaptureBins, SwitchedOffTheyLeaveTheRestAlone) {
  const CaptureStatistics statistics = statistics_of({{0, 0}, {0, 5}, {2, 9}}, 1e7);
  EXPECT_EQ(statistics.total(), 3U);
  EXPECT_THAT(statistics.max_gap_ps(), ElementsAre(5, 0, 0, 0));
  EXPECT_THAT(statistics.bins().rows(), IsEmpty());
  EXPECT_EQ(statistics.bins().overflow(), 0U);
}

// However they come: in batches of one, of many and of none.
CaptureStatistics statistics_of_batches(std::span<const TimeTag> tags, double bin_s,
                                        zelk::reference::RandomTimes& random) {
  CaptureStatistics statistics(bin_s);
  const std::uint64_t longest = 1 + random.below(100);
  while (!tags.empty()) {
    const auto size = std::min<std::size_t>(random.below(longest + 1), tags.size());
    statistics.add(tags.first(size));
    tags = tags.subspan(size);
  }
  return statistics;
}

TEST(CaptureStatistics, AnyTagsInAnyBatchesAgreeWithThePlainCounts) {
  // With 2.4e6 s the fourth bin, and with 5e6 s the second, ends beyond the range.
  constexpr std::array<double, 9> widths_s{0.001, 0.0, 0.0015, 0.1, 37.5, 2.4e6, 5e6, 9e6, 1e7};
  zelk::reference::RandomTimes random(10);
  for (int round = 0; round < 2000; ++round) {
    std::vector<TimeTag> tags;
    const auto scale = static_cast<std::int64_t>(1 + random.below(20'000'000));
    for (const std::int64_t time : random.list(random.below(300))) {
      const auto scaled = static_cast<std::int64_t>(static_cast<std::uint64_t>(time) *
                                                    static_cast<std::uint64_t>(scale));
      tags.push_back({static_cast<std::uint8_t>(random.below(6)), scaled});
    }
    const double width_s = widths_s[random.below(widths_s.size())];
    const CaptureStatistics statistics = statistics_of_batches(tags, width_s, random);
    const zelk::reference::Statistics expected = zelk::reference::statistics(tags, width_s);
    SCOPED_TRACE(round);
    std::uint64_t total = 0;
    for (std::size_t channel = 0; channel < 4; ++channel) {
      ASSERT_THAT(statistics.times_ps()[channel], ElementsAreArray(expected.times[channel]));
      total += expected.count[channel];
    }
    ASSERT_EQ(statistics.total(), total);
    ASSERT_EQ(statistics.monotonic_violations(), expected.violations);
    ASSERT_EQ(statistics.max_gap_ps(), expected.max_gap);
    ASSERT_EQ(statistics.bins().rows(), expected.bins);
    ASSERT_EQ(statistics.bins().overflow(), expected.bin_overflow);
  }
}

}  // namespace
