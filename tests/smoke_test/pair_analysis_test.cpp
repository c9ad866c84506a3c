// Peak, side windows and ranking of a histogram, and the channel pair's whole
// analysis.
#include "smoke_test/pair_analysis.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "tests/reference/literal_analysis.hpp"
#include "tests/reference/random_times.hpp"
#include "timing/detail/sorted_times.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using zelk::timing::XcorrHistogram;
using zelk::timing::detail::SortedTimes;

using Times = std::vector<std::int64_t>;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

PairAnalysis analyse(const Times& a, const Times& b, std::int64_t window_ps) {
  return analyse_pair(SortedTimes(a), SortedTimes(b), window_ps);
}

TEST(HistogramPeak, IsTheFullestBin) {
  const HistogramPeak peak = find_peak({{-8, 0, 8}, {1, 2, 5}});
  EXPECT_EQ(peak.count, 5);
  EXPECT_EQ(peak.center_ps, 8);
}

TEST(HistogramPeak, OfEqualBinsIsTheMostNegative) {
  const HistogramPeak peak = find_peak({{-16, -8, 0, 8, 16}, {1, 4, 2, 4, 4}});
  EXPECT_EQ(peak.count, 4);
  EXPECT_EQ(peak.center_ps, -8);
}

TEST(HistogramPeak, OfEmptyBinsIsTheFirst) {
  const HistogramPeak peak = find_peak({{-8, 0, 8}, {0, 0, 0}});
  EXPECT_EQ(peak.count, 0);
  EXPECT_EQ(peak.center_ps, -8);
}

TEST(HistogramPeak, IsZeroWithoutBinsOrWithListsThatDoNotMatch) {
  for (const XcorrHistogram& histogram :
       {XcorrHistogram{{}, {}}, XcorrHistogram{{5}, {}}, XcorrHistogram{{}, {5}},
        XcorrHistogram{{-8, 0}, {7, 7, 7}}, XcorrHistogram{{-8, 0, 8}, {7, 7}}}) {
    const HistogramPeak peak = find_peak(histogram);
    EXPECT_EQ(peak.count, 0);
    EXPECT_EQ(peak.center_ps, 0);
  }
}

TEST(SideWindow, BothEndsBelongToIt) {
  const XcorrHistogram plus{{3292, 3293, 3333, 3373, 3374}, {1, 2, 4, 8, 16}};
  EXPECT_EQ(count_near_center(plus, 3333), 14U);
  const XcorrHistogram minus{{-3374, -3373, -3333, -3293, -3292}, {1, 2, 4, 8, 16}};
  EXPECT_EQ(count_near_center(minus, -3333), 14U);
}

TEST(SideWindow, CoversTenBinsOf8Picoseconds) {
  XcorrHistogram histogram = zelk::timing::xcorr_histogram({}, {}, 4000, 8, 0);
  histogram.counts.assign(histogram.counts.size(), 1);
  EXPECT_EQ(count_near_center(histogram, 3333), 10U);
  EXPECT_EQ(count_near_center(histogram, -3333), 10U);
}

TEST(SideWindow, IsCutOffByTheRange) {
  for (const auto& [range, bins] : std::vector<std::pair<std::int64_t, std::uint64_t>>{
           {1000, 0}, {3292, 0}, {3293, 1}, {3320, 4}, {3368, 10}, {3400, 10}}) {
    XcorrHistogram histogram = zelk::timing::xcorr_histogram({}, {}, range, 8, 0);
    histogram.counts.assign(histogram.counts.size(), 1);
    EXPECT_EQ(count_near_center(histogram, 3333), bins) << range;
    EXPECT_EQ(count_near_center(histogram, -3333), bins) << range;
  }
}

TEST(SideWindow, StopsWithTheShorterList) {
  EXPECT_EQ(count_near_center({{3333}, {5, 7}}, 3333), 5U);
  EXPECT_EQ(count_near_center({{3333, 3334}, {5}}, 3333), 5U);
  EXPECT_EQ(count_near_center({{}, {5}}, 0), 0U);
}

TEST(Ranking, LargerCountsComeFirstThenSmallerValues) {
  EXPECT_TRUE(ranks_before({8, 5}, {0, 4}));
  EXPECT_FALSE(ranks_before({0, 4}, {8, 5}));
  EXPECT_TRUE(ranks_before({-8, 4}, {8, 4}));
  EXPECT_FALSE(ranks_before({8, 4}, {-8, 4}));
  EXPECT_FALSE(ranks_before({8, 4}, {8, 4}));
  EXPECT_TRUE(ranks_before({smallest, largest}, {largest, smallest}));
}

TEST(TopBins, AreTheFullestOnes) {
  const XcorrHistogram histogram{{-16, -8, 0, 8, 16}, {655, 0, 812, 790, 655}};
  EXPECT_THAT(top_bins(histogram, 3), ElementsAre(Pair(0, 812), Pair(8, 790), Pair(-16, 655)));
}

TEST(TopBins, EmptyBinsFillTheRestInAscendingOrder) {
  const XcorrHistogram histogram{{-16, -8, 0, 8, 16}, {0, 0, 3, 0, 0}};
  EXPECT_THAT(top_bins(histogram, 10),
              ElementsAre(Pair(0, 3), Pair(-16, 0), Pair(-8, 0), Pair(8, 0), Pair(16, 0)));
}

TEST(TopBins, StopWithTheShorterList) {
  EXPECT_THAT(top_bins({{-8, 0}, {1, 2, 9}}, 10), ElementsAre(Pair(0, 2), Pair(-8, 1)));
  EXPECT_THAT(top_bins({{-8, 0, 8}, {1}}, 10), ElementsAre(Pair(-8, 1)));
  EXPECT_THAT(top_bins({{}, {}}, 10), IsEmpty());
  EXPECT_THAT(top_bins({{0}, {1}}, 0), IsEmpty());
}

TEST(HistogramFigures, AgreeWithTheWholeRanking) {
  zelk::reference::RandomTimes random(8);
  for (int round = 0; round < 600; ++round) {
    const auto half = static_cast<std::int64_t>(random.below(600));
    const std::int64_t most = random.below(2) == 0 ? 3 : 1000;  // many ties, or few
    XcorrHistogram histogram;
    for (std::int64_t k = -half; k <= half; ++k) {
      histogram.centers_ps.push_back(8 * k);
      histogram.counts.push_back(random.between(0, most));
    }
    const zelk::reference::Histogram plain{histogram.centers_ps, histogram.counts};
    zelk::reference::Pairs expected = zelk::reference::ranking(plain);
    const std::size_t length = random.below(4) == 0 ? random.below(1500) : 10;
    if (expected.size() > length) {
      expected.resize(length);
    }
    ASSERT_EQ(top_bins(histogram, length), expected) << "round " << round;
    const HistogramPeak peak = find_peak(histogram);
    ASSERT_EQ(peak.count, zelk::reference::peak(plain).count);
    ASSERT_EQ(peak.center_ps, zelk::reference::peak(plain).center);
    for (const std::int64_t center : {-3333, 3333}) {
      ASSERT_EQ(count_near_center(histogram, center), zelk::reference::side_window(plain, center));
    }
  }
}

TEST(PairAnalysis, WithoutTagsIsAllZeros) {
  for (const auto& [a, b] : std::vector<std::pair<Times, Times>>{{{}, {}}, {{5}, {}}, {{}, {5}}}) {
    const PairAnalysis pair = analyse(a, b, 1000);
    EXPECT_EQ(pair.coincidences, 0U);
    EXPECT_FALSE(pair.offset.valid);
    EXPECT_EQ(pair.offset.offset_ps, 0);
    EXPECT_EQ(pair.peak.count, 0);
    EXPECT_EQ(pair.peak.center_ps, -1000);
    EXPECT_EQ(pair.rms_ps, 0.0);
    EXPECT_EQ(pair.fwhm_estimate_ps, 0.0);
    EXPECT_EQ(pair.minus_period_window, 0U);
    EXPECT_EQ(pair.plus_period_window, 0U);
    EXPECT_THAT(pair.top, ElementsAre(Pair(-1000, 0), Pair(-992, 0), Pair(-984, 0), Pair(-976, 0),
                                      Pair(-968, 0), Pair(-960, 0), Pair(-952, 0), Pair(-944, 0),
                                      Pair(-936, 0), Pair(-928, 0)));
  }
}

TEST(PairAnalysis, WindowOfZeroStillCountsEqualTimes) {
  const PairAnalysis pair = analyse({1, 2, 3}, {2, 3, 4}, 0);
  EXPECT_EQ(pair.coincidences, 2U);
  EXPECT_TRUE(pair.offset.valid);
  EXPECT_EQ(pair.offset.offset_ps, 0);
  EXPECT_EQ(pair.peak.count, 0);
  EXPECT_EQ(pair.peak.center_ps, 0);
  EXPECT_EQ(pair.rms_ps, 0.0);
  EXPECT_THAT(pair.top, ElementsAre(Pair(0, 0)));
}

TEST(PairAnalysis, NegativeWindowFindsNothing) {
  for (const std::int64_t window : {std::int64_t{-1}, std::int64_t{-1000}, smallest}) {
    const PairAnalysis pair = analyse({1, 2, 3}, {2, 3, 4}, window);
    EXPECT_EQ(pair.coincidences, 0U);
    EXPECT_FALSE(pair.offset.valid);
    EXPECT_EQ(pair.peak.count, 0);
    EXPECT_THAT(pair.top, ElementsAre(Pair(0, 0)));
  }
}

TEST(PairAnalysis, FindsPartnersOneClockPeriodAway) {
  const PairAnalysis pair =
      analyse({0, 100'000, 200'000}, {0, 3333, 100'000, 196'667, 200'000}, 4000);
  EXPECT_EQ(pair.coincidences, 3U);
  EXPECT_TRUE(pair.offset.valid);
  EXPECT_EQ(pair.offset.offset_ps, 0);
  EXPECT_EQ(pair.peak.count, 3);
  EXPECT_EQ(pair.peak.center_ps, 0);
  // Three pairs at 0 and one in each of the bins at -3336 and 3336:
  // 3336 * sqrt(2 / 5), and that times 2.355.
  EXPECT_NEAR(pair.rms_ps, 2109.8716548643, 1e-9);
  EXPECT_NEAR(pair.fwhm_estimate_ps, 4968.7477472055, 1e-9);
  EXPECT_EQ(pair.minus_period_window, 1U);
  EXPECT_EQ(pair.plus_period_window, 1U);
  EXPECT_THAT(pair.top, ElementsAre(Pair(0, 3), Pair(-3336, 1), Pair(3336, 1), Pair(-4000, 0),
                                    Pair(-3992, 0), Pair(-3984, 0), Pair(-3976, 0), Pair(-3968, 0),
                                    Pair(-3960, 0), Pair(-3952, 0)));
}

TEST(PairAnalysis, CentresAreRelativeToTheOffset) {
  // Differences 500, 500 and 508: one bin of 8 ps after the offset.
  const PairAnalysis pair = analyse({0, 100'000, 200'000}, {500, 100'500, 200'508}, 1000);
  EXPECT_EQ(pair.offset.offset_ps, 500);
  EXPECT_EQ(pair.peak.count, 2);
  EXPECT_EQ(pair.peak.center_ps, 0);
  EXPECT_EQ(pair.top[1], (Ranked{8, 1}));
}

TEST(PairAnalysis, KeepsTheArrivalOrderForCoincidencesOnly) {
  const PairAnalysis pair = analyse({100'000, 0}, {0, 100'000}, 10);
  EXPECT_EQ(pair.coincidences, 1U);
  EXPECT_EQ(pair.peak.count, 2);
}

TEST(PairAnalysis, AgreesWithThePlainRoutines) {
  zelk::reference::RandomTimes random(9);
  for (int round = 0; round < 400; ++round) {
    const Times a = random.list(random.below(100));
    const Times b = random.partner_of(a, random.below(100));
    const std::int64_t window = random.between(-3, 5000);
    const PairAnalysis pair = analyse(a, b, window);
    const auto offset = zelk::reference::offset_estimate(a, b, window);
    const auto plain = zelk::reference::xcorr_histogram(a, b, window, 8, offset.value_or(0));
    zelk::reference::Pairs top = zelk::reference::ranking(plain);
    top.resize(std::min<std::size_t>(top.size(), 10));
    SCOPED_TRACE(round);
    ASSERT_EQ(pair.coincidences, zelk::reference::count_coincidences(a, b, window));
    ASSERT_EQ(pair.offset.valid, offset.has_value());
    ASSERT_EQ(pair.offset.offset_ps, offset.value_or(0));
    ASSERT_EQ(pair.peak.count, zelk::reference::peak(plain).count);
    ASSERT_EQ(pair.peak.center_ps, zelk::reference::peak(plain).center);
    ASSERT_DOUBLE_EQ(pair.rms_ps, zelk::reference::rms_ps(plain));
    ASSERT_DOUBLE_EQ(pair.fwhm_estimate_ps, zelk::reference::rms_ps(plain) * 2.355);
    ASSERT_EQ(pair.minus_period_window, zelk::reference::side_window(plain, -3333));
    ASSERT_EQ(pair.plus_period_window, zelk::reference::side_window(plain, 3333));
    ASSERT_EQ(pair.top, top);
  }
}

}  // namespace
