// The figures of the bins that are not empty, held against those of the
// histogram, and, where none can be made, against every pair looked at in
// 128-bit arithmetic.
#include "smoke_test/histogram_figures.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "smoke_test/pair_analysis.hpp"
#include "tests/reference/literal_analysis.hpp"
#include "tests/reference/random_times.hpp"
#include "tests/reference/wide_pairs.hpp"
#include "timing/detail/sorted_times.hpp"
#include "timing/xcorr_histogram.hpp"

namespace {

using testing::ElementsAre;
using testing::Pair;
using zelk::timing::detail::SortedTimes;

using Times = std::vector<std::int64_t>;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t half_of_all = std::int64_t{1} << 62;  // of all times

BinSlices any_slices(zelk::reference::RandomTimes& random) {
  return random.below(2) == 0
             ? BinSlices{}
             : BinSlices{.bins = 1 + random.below(300), .pairs = 1 + random.below(300)};
}

// To the last bit.
void expect_figures_of_the_histogram(const Times& a, const Times& b, std::int64_t range_ps,
                                     std::int64_t offset_ps, const BinSlices& slices) {
  const HistogramFigures expected =
      figures_of(zelk::timing::xcorr_histogram(a, b, range_ps, histogram_bin_ps, offset_ps));
  const HistogramFigures figures =
      figures_without_histogram(SortedTimes(a), SortedTimes(b), range_ps, offset_ps, slices);
  ASSERT_EQ(figures.peak, expected.peak) << range_ps << ' ' << offset_ps;
  ASSERT_EQ(figures.rms_ps, expected.rms_ps) << range_ps << ' ' << offset_ps;
  ASSERT_EQ(figures.minus_period_window, expected.minus_period_window);
  ASSERT_EQ(figures.plus_period_window, expected.plus_period_window);
  ASSERT_EQ(figures.top, expected.top) << range_ps << ' ' << offset_ps;
}

TEST(FiguresWithoutHistogram, AreThoseOfTheHistogram) {
  zelk::reference::RandomTimes random(22);
  constexpr std::array<std::int64_t, 12> ranges{smallest, -1,  0,    1,    4,     12,
                                                31,       999, 3293, 3373, 20000, 65536};
  for (int round = 0; round < 1500; ++round) {
    const Times a = random.list(random.below(80));
    const Times b = random.partner_of(a, random.below(80));
    const std::int64_t range =
        random.below(2) == 0 ? ranges[random.below(ranges.size())] : random.between(1, 5000);
    const std::int64_t offset = random.below(3) == 0 ? random.extreme() : random.between(-99, 99);
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(
        expect_figures_of_the_histogram(a, b, range, offset, any_slices(random)));
  }
}

// Few differences many times over: peaks of equal height, and fewer than ten bins
// that are not empty.
TEST(FiguresWithoutHistogram, OfTiesAreThoseOfTheHistogram) {
  zelk::reference::RandomTimes random(23);
  for (int round = 0; round < 500; ++round) {
    Times a(random.below(12));
    Times b(random.below(12));
    for (Times* list : {&a, &b}) {
      for (std::int64_t& time : *list) {
        time = 1111 * random.between(-3, 3);
      }
    }
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(
        expect_figures_of_the_histogram(a, b, random.between(1, 7000), 0, any_slices(random)));
  }
}

// Also just above the widest of which a histogram is made.
TEST(FiguresWithoutHistogram, OfWideWindowsAreThoseOfTheHistogram) {
  zelk::reference::RandomTimes random(24);
  for (const std::int64_t range : {1'000'000, 16'777'212, 16'777'213}) {
    for (int round = 0; round < 5; ++round) {
      const Times a = random.list(300);
      const Times b = random.partner_of(a, 300);
      SCOPED_TRACE(range);
      ASSERT_NO_FATAL_FAILURE(expect_figures_of_the_histogram(a, b, range, random.between(-99, 99),
                                                              any_slices(random)));
    }
  }
}

// Windows around times near both ends, where the bounds of the histogram wrap.
TEST(FiguresWithoutHistogram, LeaveOutWindowsThatWrapAround) {
  const Times times{smallest, smallest + 500, -8, 0, 8, largest - 500, largest};
  for (const std::int64_t range : {499, 500, 501, 1000}) {
    for (const std::int64_t offset :
         {std::int64_t{0}, std::int64_t{16}, std::int64_t{-16}, largest, smallest, half_of_all}) {
      ASSERT_NO_FATAL_FAILURE(expect_figures_of_the_histogram(times, times, range, offset, {}));
    }
  }
}

void expect_agreement(const PairAnalysis& pair, const zelk::reference::WidePairs& expected) {
  ASSERT_EQ(pair.peak.count, expected.peak.count);
  ASSERT_EQ(pair.peak.center_ps, expected.peak.center);
  ASSERT_EQ(pair.rms_ps, expected.rms_ps);
  ASSERT_EQ(pair.fwhm_estimate_ps, expected.rms_ps * 2.355);
  ASSERT_EQ(pair.minus_period_window, expected.minus_window);
  ASSERT_EQ(pair.plus_period_window, expected.plus_window);
  ASSERT_EQ(pair.top, expected.top);
}

TEST(WideWindows, AgreeWithEveryPairLookedAt) {
  zelk::reference::RandomTimes random(25);
  constexpr std::array<std::int64_t, 16> windows{
      16'777'213,      20'000'000,  5'000'000'000, 1'000'000'000'000, half_of_all - 1, half_of_all,
      half_of_all + 1, largest - 8, largest - 7,   largest - 5,       largest - 4,     largest - 3,
      largest - 2,     largest - 1, largest,       half_of_all / 2};
  int with_pairs = 0;
  for (int round = 0; round < 150; ++round) {
    const Times a = random.list(random.below(40));
    const Times b = random.partner_of(a, random.below(40));
    for (const std::int64_t window : windows) {
      SCOPED_TRACE(testing::Message() << "round " << round << ", window " << window);
      const PairAnalysis pair = analyse_pair(SortedTimes(a), SortedTimes(b), window);
      const auto offset = zelk::reference::offset_estimate(a, b, window);
      ASSERT_EQ(pair.offset.valid, offset.has_value());
      ASSERT_EQ(pair.offset.offset_ps, offset.value_or(0));
      ASSERT_EQ(pair.coincidences, zelk::reference::count_coincidences(a, b, window));
      ASSERT_NO_FATAL_FAILURE(
          expect_agreement(pair, zelk::reference::wide_pairs(a, b, window, offset.value_or(0))));
      with_pairs += pair.peak.count > 0 ? 1 : 0;
    }
  }
  EXPECT_GT(with_pairs, 1000);
}

TEST(WideWindows, OfLongListsAgreeWithEveryPairLookedAt) {
  zelk::reference::RandomTimes random(26);
  Times a(1500);
  Times b(1500);
  for (Times* list : {&a, &b}) {
    for (std::int64_t& time : *list) {
      time = random.between(0, 100'000'000'000);  // 0.1 s
    }
  }
  for (const std::int64_t window : {std::int64_t{5'000'000'000}, largest}) {
    SCOPED_TRACE(window);
    const PairAnalysis pair = analyse_pair(SortedTimes(a), SortedTimes(b), window);
    ASSERT_NO_FATAL_FAILURE(
        expect_agreement(pair, zelk::reference::wide_pairs(a, b, window, pair.offset.offset_ps)));
  }
}

// Bins around 2^22, on both sides of which figures are found in different ways.
TEST(WideWindows, BeginWhereTheHistogramWouldBeTooLarge) {
  using zelk::timing::detail::bin_count;
  EXPECT_EQ(bin_count(16'777'212, histogram_bin_ps), max_histogram_bins - 1);
  EXPECT_EQ(bin_count(16'777'213, histogram_bin_ps), max_histogram_bins + 1);
}

TEST(WideWindows, HoldEveryPairOfACapture) {
  // Differences 100, 100, and 1 s more and less.
  constexpr std::int64_t second_ps = 1'000'000'000'000;
  const PairAnalysis pair = analyse_pair(SortedTimes(Times{5000, 5000 + second_ps}),
                                         SortedTimes(Times{5100, 5100 + second_ps}), largest);
  EXPECT_EQ(pair.coincidences, 2U);
  EXPECT_EQ(pair.offset.offset_ps, 100);
  EXPECT_EQ(pair.peak, (HistogramPeak{.count = 2, .center_ps = 0}));
  EXPECT_DOUBLE_EQ(pair.rms_ps, 707'106'781'186.54752);  // 1 s / sqrt(2)
  EXPECT_DOUBLE_EQ(pair.fwhm_estimate_ps, 707'106'781'186.54752 * 2.355);
  EXPECT_EQ(pair.minus_period_window, 0U);
  EXPECT_EQ(pair.plus_period_window, 0U);
  EXPECT_THAT(pair.top,
              ElementsAre(Pair(0, 2), Pair(-second_ps, 1), Pair(second_ps, 1), Pair(smallest, 0),
                          Pair(smallest + 8, 0), Pair(smallest + 16, 0), Pair(smallest + 24, 0),
                          Pair(smallest + 32, 0), Pair(smallest + 40, 0), Pair(smallest + 48, 0)));
}

TEST(WideWindows, KeepTheSideWindows) {
  // Differences 0 and, from one time to the other's partner, 3333 both ways.
  const PairAnalysis pair =
      analyse_pair(SortedTimes(Times{0, 3333}), SortedTimes(Times{0, 3333}), 5'000'000'000);
  EXPECT_EQ(pair.peak, (HistogramPeak{.count = 2, .center_ps = 0}));
  EXPECT_EQ(pair.minus_period_window, 1U);
  EXPECT_EQ(pair.plus_period_window, 1U);
  EXPECT_THAT(
      pair.top,
      ElementsAre(Pair(0, 2), Pair(-3336, 1), Pair(3336, 1), Pair(-5'000'000'000, 0),
                  Pair(-4'999'999'992, 0), Pair(-4'999'999'984, 0), Pair(-4'999'999'976, 0),
                  Pair(-4'999'999'968, 0), Pair(-4'999'999'960, 0), Pair(-4'999'999'952, 0)));
}

TEST(WideWindows, WithoutPairsShowTheFirstBins) {
  // 2 * 2^62 / 8 bins, and one more: the first has its centre at -2^62.
  const std::vector<std::pair<std::int64_t, std::int64_t>> windows{
      {largest, smallest}, {largest - 3, smallest + 8}, {half_of_all, -half_of_all}};
  for (const auto& [window, first] : windows) {
    for (const auto& [a, b] :
         std::vector<std::pair<Times, Times>>{{{}, {}}, {{5}, {}}, {{}, {5}}}) {
      const PairAnalysis pair = analyse_pair(SortedTimes(a), SortedTimes(b), window);
      EXPECT_EQ(pair.peak, (HistogramPeak{.count = 0, .center_ps = first}));
      EXPECT_EQ(pair.rms_ps, 0.0);
      ASSERT_EQ(pair.top.size(), 10U);
      EXPECT_EQ(pair.top.front(), (Ranked{first, 0}));
      EXPECT_EQ(pair.top.back(), (Ranked{first + 72, 0}));
    }
  }
}

}  // namespace
