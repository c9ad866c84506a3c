#include "smoke_test/filled_bins.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <utility>
#include <vector>

#include "tests/reference/random_times.hpp"
#include "timing/xcorr_histogram.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Times = std::vector<std::int64_t>;
using Bins = std::vector<std::pair<std::int64_t, std::int64_t>>;  // number, pairs

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t last_of_the_widest = std::int64_t{1} << 60;

Bins filled_bins(const Times& times, const Times& partners, std::int64_t range_ps,
                 std::int64_t offset_ps = 0, const BinSlices& slices = {}) {
  Bins bins;
  for_each_filled_bin(times, partners, range_ps, offset_ps, slices,
                      [&](const FilledBin& bin) { bins.emplace_back(bin.number, bin.pairs); });
  return bins;
}

TEST(FilledBins, AreVisitedInAscendingOrder) {
  EXPECT_THAT(filled_bins({0}, {-12, 5, 5}, 1000), ElementsAre(Pair(-2, 1), Pair(1, 2)));
  EXPECT_THAT(filled_bins({0, 8}, {0, 8}, 1000), ElementsAre(Pair(-1, 1), Pair(0, 2), Pair(1, 1)));
}

TEST(FilledBins, LieAroundTheOffset) {
  EXPECT_THAT(filled_bins({0}, {105}, 16, 100), ElementsAre(Pair(1, 1)));
  EXPECT_THAT(filled_bins({0}, {-105}, 16, -100), ElementsAre(Pair(-1, 1)));
  EXPECT_THAT(filled_bins({0}, {0}, 16, 100), IsEmpty());
}

TEST(FilledBins, TakeHalfABinAwayFromZero) {
  for (const auto& [difference, bin] :
       Bins{{0, 0}, {3, 0}, {4, 1}, {11, 1}, {12, 2}, {-3, 0}, {-4, -1}, {-11, -1}, {-12, -2}}) {
    for (const BinSlices& slices : {BinSlices{}, BinSlices{.bins = 1, .pairs = 1}}) {
      EXPECT_THAT(filled_bins({0}, {difference}, 1000, 0, slices), ElementsAre(Pair(bin, 1)))
          << difference;
    }
  }
}

TEST(FilledBins, EndWithTheRangeAndTheLastBin) {
  EXPECT_THAT(filled_bins({0}, {-1001, -1000, 1000, 1001}, 1000),
              ElementsAre(Pair(-125, 1), Pair(125, 1)));
  // Three bins reach 12 ps from 0, and 12 ps would belong to a fourth.
  EXPECT_THAT(filled_bins({0}, {-12, -11, 11, 12}, 12), ElementsAre(Pair(-1, 1), Pair(1, 1)));
}

TEST(FilledBins, AreNoneWithoutARangeOrAPair) {
  for (const std::int64_t range : {std::int64_t{0}, std::int64_t{-1}, smallest}) {
    EXPECT_THAT(filled_bins({5}, {5}, range), IsEmpty());
  }
  EXPECT_THAT(filled_bins({}, {5}, largest), IsEmpty());
  EXPECT_THAT(filled_bins({5}, {}, largest), IsEmpty());
  EXPECT_THAT(filled_bins({0}, {1001}, 1000), IsEmpty());
}

TEST(FilledBins, NothingWrapsAroundAtTheEndsOfTheRange) {
  EXPECT_THAT(filled_bins({0}, {largest}, largest), ElementsAre(Pair(last_of_the_widest, 1)));
  EXPECT_THAT(filled_bins({0}, {-largest}, largest), ElementsAre(Pair(-last_of_the_widest, 1)));
  EXPECT_THAT(filled_bins({0}, {smallest}, largest), IsEmpty());  // 2^63 ps away
  EXPECT_THAT(filled_bins({smallest}, {largest}, largest), IsEmpty());
  EXPECT_THAT(filled_bins({smallest}, {-1}, largest), ElementsAre(Pair(last_of_the_widest, 1)));
  EXPECT_THAT(filled_bins({5000}, {5100}, largest), ElementsAre(Pair(13, 1)));
  // The middle of the window lies at 2^64 - 2, far outside the range of times.
  EXPECT_THAT(filled_bins({largest}, {largest}, largest, largest),
              ElementsAre(Pair(-last_of_the_widest, 1)));
  EXPECT_THAT(filled_bins({largest}, {largest - 1}, largest, largest), IsEmpty());
}

// 2 * (2^63 - 4) / 8 is 2^61 - 1: the last bin is the one before 2^60, and takes
// differences below 2^63 - 4.
TEST(FilledBins, EndAtTheLastBinOfAlmostTheWidestRange) {
  EXPECT_THAT(filled_bins({0}, {largest - 4, largest - 3}, largest - 3),
              ElementsAre(Pair(last_of_the_widest - 1, 1)));
}

TEST(FilledBins, HaveTheCentresOfTheHistogram) {
  EXPECT_EQ(bin_center_ps(0), 0);
  EXPECT_EQ(bin_center_ps(-125), -1000);
  EXPECT_EQ(bin_center_ps(last_of_the_widest - 1), largest - 7);
  EXPECT_EQ(bin_center_ps(-last_of_the_widest), smallest);
  EXPECT_EQ(bin_center_ps(last_of_the_widest), largest);  // 2^63 fits in no time
}

TEST(FilledBins, DoNotDependOnTheSlices) {
  zelk::reference::RandomTimes random(21);
  std::size_t bins = 0;
  for (int round = 0; round < 200; ++round) {
    Times a = random.list(random.below(30));
    Times b = random.partner_of(a, random.below(30));
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    const std::int64_t range =
        random.below(3) == 0 ? largest - random.between(0, 9) : random.between(1, 1'000'000);
    const std::int64_t offset = random.below(3) == 0 ? random.extreme() : random.between(-99, 99);
    const Bins expected = filled_bins(a, b, range, offset);
    const BinSlices slices{.bins = 1 + random.below(9), .pairs = 1 + random.below(9)};
    ASSERT_EQ(filled_bins(a, b, range, offset, slices), expected) << "round " << round;
    ASSERT_EQ(std::ranges::adjacent_find(expected, std::ranges::greater_equal{},
                                         &Bins::value_type::first),
              expected.end());
    bins += expected.size();
  }
  EXPECT_GT(bins, 3000U);
}

}  // namespace
