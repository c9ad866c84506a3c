#include "timing/xcorr_histogram.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <new>
#include <stdexcept>
#include <vector>

#include "tests/reference/literal_analysis.hpp"
#include "tests/reference/random_times.hpp"
#include "timing/detail/sorted_times.hpp"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Pair;
using zelk::timing::xcorr_histogram;
using zelk::timing::XcorrHistogram;

using Times = std::vector<std::int64_t>;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

// The bins with counts, by centre.
std::map<std::int64_t, std::int64_t> filled(const XcorrHistogram& histogram) {
  EXPECT_EQ(histogram.counts.size(), histogram.centers_ps.size());
  std::map<std::int64_t, std::int64_t> bins;
  for (std::size_t i = 0; i < histogram.counts.size(); ++i) {
    if (histogram.counts[i] != 0) {
      bins[histogram.centers_ps[i]] = histogram.counts[i];
    }
  }
  return bins;
}

// The centre of the bin that takes a single pair with this difference.
std::map<std::int64_t, std::int64_t> bin_of(std::int64_t difference_ps, std::int64_t range_ps,
                                            std::int64_t bin_width_ps) {
  return filled(xcorr_histogram({50'000}, {50'000 + difference_ps}, range_ps, bin_width_ps, 0));
}

Times centers(std::int64_t range_ps, std::int64_t bin_width_ps) {
  return xcorr_histogram({}, {}, range_ps, bin_width_ps, 0).centers_ps;
}

TEST(XcorrBins, CoverTheRangeOnBothSides) {
  const XcorrHistogram histogram = xcorr_histogram({}, {}, 1000, 8, 0);
  ASSERT_EQ(histogram.centers_ps.size(), 251U);
  ASSERT_EQ(histogram.counts.size(), 251U);
  for (std::size_t i = 0; i < 251; ++i) {
    EXPECT_EQ(histogram.centers_ps[i], -1000 + 8 * static_cast<std::int64_t>(i));
  }
}

TEST(XcorrBins, AreAlwaysAnOddNumber) {
  EXPECT_THAT(centers(1, 1), ElementsAre(-1, 0, 1));            // 2 bins, and one more
  EXPECT_THAT(centers(1, 2), ElementsAre(0));                   // 1 bin
  EXPECT_THAT(centers(12, 8), ElementsAre(-8, 0, 8));           // 3 bins
  EXPECT_THAT(centers(5, 8), ElementsAre(-8, 0, 8));            // 1.25 bins, 2 rounded up
  EXPECT_THAT(centers(10, 7), ElementsAre(-7, 0, 7));           // 2.86 bins
  EXPECT_THAT(centers(16, 8), ElementsAre(-16, -8, 0, 8, 16));  // 4 bins, and one more
  EXPECT_THAT(centers(4, 8), ElementsAre(0));
  EXPECT_THAT(centers(1, largest), ElementsAre(0));
}

TEST(XcorrBins, OneBinThatCountsNothingWithoutRangeOrWidth) {
  for (const std::int64_t none : {std::int64_t{0}, std::int64_t{-1}, smallest}) {
    for (const XcorrHistogram& histogram :
         {xcorr_histogram({5}, {5}, none, 8, 0), xcorr_histogram({5}, {5}, 1000, none, 0),
          xcorr_histogram({5}, {5}, none, none, 0)}) {
      EXPECT_THAT(histogram.centers_ps, ElementsAre(0));
      EXPECT_THAT(histogram.counts, ElementsAre(0));
    }
  }
}

TEST(XcorrBins, StayEmptyWhenEitherListIs) {
  for (const XcorrHistogram& histogram :
       {xcorr_histogram({}, {5}, 16, 8, 0), xcorr_histogram({5}, {}, 16, 8, 0)}) {
    EXPECT_EQ(histogram.counts.size(), 5U);
    EXPECT_THAT(histogram.counts, Each(0));
  }
}

TEST(XcorrBins, MoreThanMemoryHoldsIsAnError) {
  for (const std::int64_t range : {largest, std::int64_t{1} << 62}) {
    for (const std::int64_t width : {1, 3, 8}) {
      bool refused = false;
      try {
        xcorr_histogram({1}, {1}, range, width, 0);
      } catch (const std::length_error&) {
        refused = true;
      } catch (const std::bad_alloc&) {
        refused = true;
      }
      EXPECT_TRUE(refused) << range << ' ' << width;
    }
  }
}

TEST(XcorrBins, AGiantRangeWithGiantBinsIsCountedExactly) {
  EXPECT_THAT(centers(largest, largest), ElementsAre(-largest, 0, largest));
  // 2 * (2^63 - 1) is one short of 4 * 2^62, so 4 bins, and one more.
  constexpr std::int64_t width = std::int64_t{1} << 62;
  EXPECT_EQ(centers(largest, width).size(), 5U);
}

TEST(XcorrRounding, HalfABinGoesToTheBinAwayFromZero) {
  EXPECT_THAT(bin_of(4, 1000, 8), ElementsAre(Pair(8, 1)));
  EXPECT_THAT(bin_of(-4, 1000, 8), ElementsAre(Pair(-8, 1)));
  EXPECT_THAT(bin_of(12, 1000, 8), ElementsAre(Pair(16, 1)));
  EXPECT_THAT(bin_of(-12, 1000, 8), ElementsAre(Pair(-16, 1)));
}

TEST(XcorrRounding, LessThanHalfABinGoesToTheNearerCentre) {
  EXPECT_THAT(bin_of(0, 1000, 8), ElementsAre(Pair(0, 1)));
  EXPECT_THAT(bin_of(3, 1000, 8), ElementsAre(Pair(0, 1)));
  EXPECT_THAT(bin_of(-3, 1000, 8), ElementsAre(Pair(0, 1)));
  EXPECT_THAT(bin_of(5, 1000, 8), ElementsAre(Pair(8, 1)));
  EXPECT_THAT(bin_of(-11, 1000, 8), ElementsAre(Pair(-8, 1)));
}

TEST(XcorrRounding, OddWidthsAreSymmetricAboutZero) {
  EXPECT_THAT(bin_of(3, 100, 7), ElementsAre(Pair(0, 1)));
  EXPECT_THAT(bin_of(-3, 100, 7), ElementsAre(Pair(0, 1)));
  EXPECT_THAT(bin_of(4, 100, 7), ElementsAre(Pair(7, 1)));
  EXPECT_THAT(bin_of(-4, 100, 7), ElementsAre(Pair(-7, 1)));
  EXPECT_THAT(bin_of(-5, 100, 1), ElementsAre(Pair(-5, 1)));
}

TEST(XcorrRange, BothEndsBelongToIt) {
  EXPECT_THAT(bin_of(1000, 1000, 8), ElementsAre(Pair(1000, 1)));
  EXPECT_THAT(bin_of(-1000, 1000, 8), ElementsAre(Pair(-1000, 1)));
  EXPECT_THAT(bin_of(1001, 1000, 8), ElementsAre());
  EXPECT_THAT(bin_of(-1001, 1000, 8), ElementsAre());
}

TEST(XcorrRange, PairsRoundedBeyondTheLastBinAreDropped) {
  // Three bins reach 12 ps from 0, and 12 ps rounds to the centre 16.
  EXPECT_THAT(bin_of(12, 12, 8), ElementsAre());
  EXPECT_THAT(bin_of(-12, 12, 8), ElementsAre());
  EXPECT_THAT(bin_of(11, 12, 8), ElementsAre(Pair(8, 1)));
  EXPECT_THAT(bin_of(-11, 12, 8), ElementsAre(Pair(-8, 1)));
}

TEST(XcorrRange, LiesAroundTheOffset) {
  EXPECT_THAT(filled(xcorr_histogram({0}, {105}, 16, 8, 100)), ElementsAre(Pair(8, 1)));
  EXPECT_THAT(filled(xcorr_histogram({0}, {-105}, 16, 8, -100)), ElementsAre(Pair(-8, 1)));
  EXPECT_THAT(filled(xcorr_histogram({0}, {0}, 16, 8, 100)), ElementsAre());
}

TEST(XcorrPairs, AreAllCounted) {
  EXPECT_THAT(filled(xcorr_histogram({0, 8}, {0, 8}, 16, 8, 0)),
              ElementsAre(Pair(-8, 1), Pair(0, 2), Pair(8, 1)));
  EXPECT_THAT(filled(xcorr_histogram({5, 5, 5}, {5, 5}, 16, 8, 0)), ElementsAre(Pair(0, 6)));
}

TEST(XcorrPairs, DoNotDependOnTheOrderOfTheTags) {
  const Times a{8, 0, 100};
  const Times b{100, 8, 0, 116};
  EXPECT_THAT(filled(xcorr_histogram(a, b, 16, 8, 0)),
              ElementsAre(Pair(-8, 1), Pair(0, 3), Pair(8, 1), Pair(16, 1)));
  EXPECT_THAT(a, ElementsAre(8, 0, 100));
  EXPECT_THAT(b, ElementsAre(100, 8, 0, 116));
}

TEST(XcorrRms, IsTheSpreadAboutTheWeightedMean) {
  EXPECT_DOUBLE_EQ((XcorrHistogram{{-8, 0, 8}, {1, 0, 1}}.rms_ps()), 8.0);
  // Mean 2, squared distances 4, 4, 4 and 36.
  EXPECT_DOUBLE_EQ((XcorrHistogram{{-8, 0, 8}, {0, 3, 1}}.rms_ps()), 3.4641016151377544);
  EXPECT_DOUBLE_EQ((XcorrHistogram{{-1'000'000'000, 1'000'000'000}, {1, 1}}.rms_ps()), 1e9);
}

TEST(XcorrRms, IsZeroForASingleFilledBin) {
  EXPECT_EQ((XcorrHistogram{{-8, 0, 8}, {0, 0, 5}}.rms_ps()), 0.0);
}

TEST(XcorrRms, IsZeroWithoutCounts) {
  EXPECT_EQ((XcorrHistogram{{}, {}}.rms_ps()), 0.0);
  EXPECT_EQ((XcorrHistogram{{0}, {0}}.rms_ps()), 0.0);
  EXPECT_EQ((XcorrHistogram{{-8, 0, 8}, {0, 0, 0}}.rms_ps()), 0.0);
  EXPECT_EQ((XcorrHistogram{{-8, 0, 8}, {1, -3, 1}}.rms_ps()), 0.0);
}

void expect_agreement(const Times& a, const Times& b, std::int64_t range, std::int64_t width,
                      std::int64_t offset) {
  const XcorrHistogram histogram = xcorr_histogram(a, b, range, width, offset);
  const zelk::reference::Histogram expected =
      zelk::reference::xcorr_histogram(a, b, range, width, offset);
  ASSERT_EQ(histogram.centers_ps, expected.centers) << range << ' ' << width;
  ASSERT_EQ(histogram.counts, expected.counts) << range << ' ' << width << ' ' << offset;
  ASSERT_DOUBLE_EQ(histogram.rms_ps(), zelk::reference::rms_ps(expected));
}

TEST(XcorrHistogram, AnyListsAgreeWithThePlainSearch) {
  zelk::reference::RandomTimes random(5);
  constexpr std::array<std::int64_t, 8> ranges{-1, 0, 1, 12, 999, 1000, 3333, 20'000};
  constexpr std::array<std::int64_t, 8> widths{-1, 0, 1, 2, 7, 8, 33, largest};
  for (int round = 0; round < 1500; ++round) {
    const Times a = random.list(random.below(80));
    const Times b = random.partner_of(a, random.below(80));
    const std::int64_t offset = random.below(4) == 0 ? random.extreme() : random.between(-99, 99);
    const std::int64_t range = ranges[random.below(ranges.size())];
    const std::int64_t width = widths[random.below(widths.size())];
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(expect_agreement(a, b, range, width, offset));
  }
}

TEST(XcorrHistogram, WideRangesAgreeWithThePlainSearch) {
  zelk::reference::RandomTimes random(6);
  for (const std::int64_t width : {1, 8, 13, 99'999, 100'000, 100'001, 200'001}) {
    const Times a = random.list(300);
    const Times b = random.partner_of(a, 300);
    SCOPED_TRACE(width);
    ASSERT_NO_FATAL_FAILURE(expect_agreement(a, b, 100'000, width, random.between(-999, 999)));
  }
}

TEST(XcorrHistogram, GiantRangesWithFewBinsAgreeWithThePlainSearch) {
  zelk::reference::RandomTimes random(7);
  for (int round = 0; round < 1000; ++round) {
    const Times a = random.list(random.below(40));
    const Times b = random.partner_of(a, random.below(40));
    const std::int64_t range = largest - random.between(0, largest / 2);
    const std::int64_t width = range / random.between(2, 50) + random.between(0, 9);
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(expect_agreement(a, b, range, width, random.extreme()));
  }
}

// Many more tags than differences in the window.
TEST(XcorrHistogram, LongListsAgreeWithThePlainSearch) {
  zelk::reference::RandomTimes random(15);
  constexpr std::array<std::int64_t, 6> widths{1, 2, 7, 8, 33, largest};
  for (int round = 0; round < 300; ++round) {
    const Times a = random.list(random.below(800));
    const Times b = random.partner_of(a, random.below(800));
    const std::int64_t offset = random.below(4) == 0 ? random.extreme() : random.between(-99, 99);
    const std::int64_t range = random.between(1, 400);
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(
        expect_agreement(a, b, range, widths[random.below(widths.size())], offset));
  }
}

TEST(XcorrHistogram, CrowdedListsAgreeWithThePlainSearch) {
  zelk::reference::RandomTimes random(16);
  for (int round = 0; round < 40; ++round) {
    Times a(500);
    Times b(500);
    for (Times* list : {&a, &b}) {
      for (std::int64_t& time : *list) {
        time = random.between(0, 900);
      }
    }
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(expect_agreement(a, b, random.between(1, 499), 8, 20));
  }
}

TEST(XcorrHistogram, ListsThatOverlapInPartAgreeWithThePlainSearch) {
  Times times;
  for (std::int64_t i = 0; i < 1000; ++i) {
    times.push_back(30 * i);
  }
  for (const std::int64_t shift : {-29'990, -29'970, -15'000, 0, 15'000, 29'970, 29'990}) {
    Times shifted;
    for (const std::int64_t time : times) {
      shifted.push_back(time + shift);
    }
    for (const std::int64_t offset : {std::int64_t{0}, shift}) {
      SCOPED_TRACE(shift);
      ASSERT_NO_FATAL_FAILURE(expect_agreement(times, shifted, 100, 8, offset));
    }
  }
}

// An offset beyond half of the range: the window's lower bound relative to the
// time wraps around, the window itself does not.
TEST(XcorrHistogram, GiantOffsetsAgreeWithThePlainSearch) {
  Times a;
  Times b;
  for (std::int64_t i = 0; i < 200; ++i) {
    a.push_back(largest - 10'000 + 40 * i);
    b.push_back(a.back() + 3 + (smallest + 5));
  }
  ASSERT_NO_FATAL_FAILURE(expect_agreement(a, b, 100, 8, smallest + 5));
  ASSERT_NO_FATAL_FAILURE(expect_agreement(b, a, 100, 8, largest - 5));
}

TEST(XcorrHistogram, RangesAsLargeAsTheListAreCountedBothWays) {
  zelk::reference::RandomTimes random(17);
  for (const std::size_t size : {99U, 100U, 101U}) {
    Times a(size);
    Times b(size);
    for (Times* list : {&a, &b}) {
      for (std::int64_t& time : *list) {
        time = random.between(0, 2000);
      }
    }
    ASSERT_NO_FATAL_FAILURE(expect_agreement(a, b, 100, 8, 0));
  }
}

TEST(XcorrHistogram, ListsOfKnownOrderAreCountedAlike) {
  const Times a{8, 0, 100};
  const Times b{0, 8, 100, 116};
  using zelk::timing::detail::SortedTimes;
  EXPECT_THAT(filled(xcorr_histogram(SortedTimes(a, false), SortedTimes(b, true), 16, 8, 0)),
              ElementsAre(Pair(-8, 1), Pair(0, 3), Pair(8, 1), Pair(16, 1)));
}

}  // namespace
