// Everything that is computed of one capture.
#include "smoke_test/analysis.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using zelk::timing::TimeTag;

// Bins of a millisecond.
Capture small_capture() {
  Capture capture{.statistics = CaptureStatistics(0.001), .reader_dropped = 7};
  for (const TimeTag& tag : std::vector<TimeTag>{{0, 0},
                                                 {1, 20},
                                                 {0, 6'666},
                                                 {1, 6'680},
                                                 {0, 5'000},             // comes late
                                                 {2, 2'000'000'000}}) {  // bin 2
    capture.statistics.add(tag);
  }
  return capture;
}

TEST(Analysis, HasEveryFigureOfAChannel) {
  const Analysis analysis = analyse(small_capture(), 0, 1, 1000);
  const ChannelAnalysis& channel = analysis.channels[0];
  EXPECT_EQ(channel.tags, 3U);
  EXPECT_EQ(channel.monotonic_violations, 1U);
  EXPECT_DOUBLE_EQ(channel.max_gap_ms, 6.666e-6);
  EXPECT_EQ(channel.steps.min_step_ps, -1'666);
  EXPECT_THAT(channel.steps.below, ElementsAre(1, 1, 1, 1));
  EXPECT_EQ(channel.residues.unique, 2U);
  EXPECT_EQ(channel.residues.exact_zero, 2U);
  EXPECT_THAT(channel.residues.top, ElementsAre(Pair(0, 2), Pair(1'667, 1)));
}

TEST(Analysis, KeepsTheChannelsApart) {
  const Analysis analysis = analyse(small_capture(), 0, 1, 1000);
  EXPECT_EQ(analysis.channels[1].tags, 2U);
  EXPECT_EQ(analysis.channels[1].monotonic_violations, 0U);
  EXPECT_DOUBLE_EQ(analysis.channels[1].max_gap_ms, 6.66e-6);
  EXPECT_EQ(analysis.channels[1].steps.min_step_ps, 6'660);
  EXPECT_THAT(analysis.channels[1].residues.top, ElementsAre(Pair(14, 1), Pair(20, 1)));
  EXPECT_EQ(analysis.channels[2].tags, 1U);
  EXPECT_EQ(analysis.channels[2].max_gap_ms, 0.0);
  // 2,000,000,000 is 3333 * 600,060 + 20.
  EXPECT_THAT(analysis.channels[2].residues.top, ElementsAre(Pair(20, 1)));
  EXPECT_EQ(analysis.channels[3].tags, 0U);
  EXPECT_EQ(analysis.channels[3].steps.min_step_ps, 0);
  EXPECT_THAT(analysis.channels[3].residues.top, IsEmpty());
}

TEST(Analysis, ComparesTheFirstChannelWithTheSecond) {
  const Analysis analysis = analyse(small_capture(), 0, 1, 1000);
  EXPECT_EQ(analysis.pair.tags_a, 3U);
  EXPECT_EQ(analysis.pair.tags_b, 2U);
  EXPECT_EQ(analysis.pair.coincidences, 2U);
  EXPECT_EQ(analysis.pair.offset.offset_ps, 20);  // of 14 and 20
  const Analysis swapped = analyse(small_capture(), 1, 0, 1000);
  EXPECT_EQ(swapped.pair.tags_a, 2U);
  EXPECT_EQ(swapped.pair.tags_b, 3U);
  EXPECT_EQ(swapped.pair.offset.offset_ps, -14);  // of -20 and -14
}

TEST(Analysis, FindsPartnersInTheWindowOnly) {
  EXPECT_EQ(analyse(small_capture(), 0, 1, 13).pair.coincidences, 0U);
  EXPECT_EQ(analyse(small_capture(), 0, 1, 14).pair.coincidences, 1U);
}

TEST(Analysis, HasTheFiguresOfTheWholeCapture) {
  const Analysis analysis = analyse(small_capture(), 0, 1, 1000);
  EXPECT_EQ(analysis.tags_total, 6U);
  EXPECT_EQ(analysis.reader_dropped, 7U);
  EXPECT_EQ(analysis.bins.width_s(), 0.001);
  EXPECT_EQ(analysis.bins.overflow(), 0U);
  EXPECT_THAT(analysis.bins.rows(), ElementsAre(ElementsAre(3, 2, 0, 0), ElementsAre(0, 0, 0, 0),
                                                ElementsAre(0, 0, 1, 0)));
}

TEST(Analysis, OfNoTagsIsAllZeros) {
  const Analysis analysis = analyse({.statistics = CaptureStatistics(0.1)}, 0, 1, 1000);
  EXPECT_EQ(analysis.tags_total, 0U);
  EXPECT_EQ(analysis.pair.coincidences, 0U);
  EXPECT_EQ(analysis.reader_dropped, 0U);
  EXPECT_THAT(analysis.bins.rows(), IsEmpty());
  for (const ChannelAnalysis& channel : analysis.channels) {
    EXPECT_EQ(channel.tags, 0U);
    EXPECT_EQ(channel.max_gap_ms, 0.0);
  }
}

}  // namespace
