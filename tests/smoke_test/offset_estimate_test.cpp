#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "smoke_test/pair_analysis.hpp"
#include "tests/reference/literal_analysis.hpp"
#include "tests/reference/random_times.hpp"
#include "timing/detail/sorted_times.hpp"

namespace {

using zelk::timing::detail::SortedTimes;

using Times = std::vector<std::int64_t>;
using Estimate = std::optional<std::int64_t>;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

// Nothing for an estimate that is marked invalid, whose offset is always 0.
Estimate estimate(const Times& a, const Times& b, std::int64_t window_ps) {
  const OffsetEstimate result = estimate_offset(SortedTimes(a), SortedTimes(b), window_ps);
  if (!result.valid) {
    EXPECT_EQ(result.offset_ps, 0);
    return std::nullopt;
  }
  return result.offset_ps;
}

// Two lists of pairs far apart from each other; pair i has the i-th
// difference, and no partner at all where there is none.
struct Pairs {
  Times a;
  Times b;
};

void append(Pairs& pairs, std::size_t count, Estimate difference_ps) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto time = static_cast<std::int64_t>(pairs.a.size()) * 100'000;
    pairs.a.push_back(time);
    if (difference_ps) {
      pairs.b.push_back(time + *difference_ps);
    }
  }
}

TEST(OffsetEstimate, IsInvalidWithoutTagsOnBothChannels) {
  EXPECT_EQ(estimate({}, {}, 1000), std::nullopt);
  EXPECT_EQ(estimate({1}, {}, 1000), std::nullopt);
  EXPECT_EQ(estimate({}, {1}, 1000), std::nullopt);
}

TEST(OffsetEstimate, IsTheSecondTimeMinusTheFirst) {
  EXPECT_EQ(estimate({100}, {130}, 1000), 30);
  EXPECT_EQ(estimate({100}, {70}, 1000), -30);
}

TEST(OffsetEstimate, TakesTheNearerNeighbour) {
  EXPECT_EQ(estimate({100}, {90, 105}, 1000), 5);
  EXPECT_EQ(estimate({100}, {95, 110}, 1000), -5);
  EXPECT_EQ(estimate({100}, {40, 95, 100, 110}, 1000), 0);
}

TEST(OffsetEstimate, OfEquallyNearNeighboursTakesTheLater) {
  EXPECT_EQ(estimate({100}, {95, 105}, 1000), 5);
}

TEST(OffsetEstimate, BeyondTheEndsTakesTheOutermostTag) {
  EXPECT_EQ(estimate({200}, {50, 150}, 1000), -50);
  EXPECT_EQ(estimate({0}, {40, 60}, 1000), 40);
}

TEST(OffsetEstimate, IsTheMedianOfAnOddNumber) {
  EXPECT_EQ(estimate({0, 1'000'000, 2'000'000}, {-9, 1'000'500, 2'000'003}, 1000), 3);
}

TEST(OffsetEstimate, IsTheUpperMiddleOfAnEvenNumber) {
  EXPECT_EQ(
      estimate({0, 1'000'000, 2'000'000, 3'000'000}, {1, 1'000'004, 2'000'002, 3'000'003}, 1000),
      3);
  EXPECT_EQ(estimate({0, 1'000'000}, {10, 1'000'020}, 1000), 20);
}

TEST(OffsetEstimate, BothEndsOfTheWindowBelongToIt) {
  EXPECT_EQ(estimate({0}, {1000}, 1000), 1000);
  EXPECT_EQ(estimate({0}, {-1000}, 1000), -1000);
  EXPECT_EQ(estimate({0}, {1000}, 999), std::nullopt);
  EXPECT_EQ(estimate({0}, {-1000}, 999), std::nullopt);
}

TEST(OffsetEstimate, LeavesOutTagsWithoutAPartnerInTheWindow) {
  EXPECT_EQ(estimate({0, 1'000'000, 2'000'000}, {10, 1'005'000}, 1000), 10);
}

TEST(OffsetEstimate, DoesNotDependOnTheOrderOfTheTags) {
  EXPECT_EQ(estimate({2'000'000, 0, 1'000'000}, {1'000'500, 2'000'003, -9}, 1000), 3);
}

TEST(OffsetEstimate, WindowOfZeroKeepsEqualTimesOnly) {
  EXPECT_EQ(estimate({5}, {5}, 0), 0);
  EXPECT_EQ(estimate({5}, {6}, 0), std::nullopt);
  EXPECT_EQ(estimate({0}, {smallest}, 0), std::nullopt);
}

TEST(OffsetEstimate, NegativeWindowKeepsNothing) {
  EXPECT_EQ(estimate({5}, {5}, -1), std::nullopt);
  EXPECT_EQ(estimate({5}, {5}, smallest), std::nullopt);
  EXPECT_EQ(estimate({0}, {smallest}, -1), std::nullopt);
}

TEST(OffsetEstimate, TheLargestDistanceIsOutsideEveryWindow) {
  EXPECT_EQ(estimate({0}, {smallest}, largest), std::nullopt);
  EXPECT_EQ(estimate({0}, {smallest, 5}, 10), 5);
  EXPECT_EQ(estimate({0}, {-largest}, largest), -largest);
}

TEST(OffsetEstimate, LooksAtEveryTagOfShortLists) {
  Pairs pairs;
  append(pairs, 1999, 5);
  append(pairs, 2000, 9);
  EXPECT_EQ(estimate(pairs.a, pairs.b, 1000), 9);
}

TEST(OffsetEstimate, KeepsTheFirst4000Differences) {
  // All 7999 would have the median 7.
  Pairs pairs;
  append(pairs, 3000, 5);
  append(pairs, 1000, 7);
  append(pairs, 3999, 9);
  EXPECT_EQ(estimate(pairs.a, pairs.b, 1000), 5);
}

TEST(OffsetEstimate, TagsWithoutAPartnerDoNotUseUpThe4000) {
  // The first 4000 tags alone would have the median 5.
  Pairs pairs;
  append(pairs, 3000, std::nullopt);
  append(pairs, 900, 5);
  append(pairs, 4099, 9);
  EXPECT_EQ(estimate(pairs.a, pairs.b, 1000), 9);
}

TEST(OffsetEstimate, LooksAtEverySecondOf8000Tags) {
  Pairs pairs;
  for (int i = 0; i < 4000; ++i) {
    append(pairs, 1, 5);
    append(pairs, 1, 9);
  }
  EXPECT_EQ(estimate(pairs.a, pairs.b, 1000), 5);
}

TEST(OffsetEstimate, LooksAtEveryThirdOf12000Tags) {
  Pairs pairs;
  for (int i = 0; i < 4000; ++i) {
    append(pairs, 1, 5);
    append(pairs, 2, 9);
  }
  EXPECT_EQ(estimate(pairs.a, pairs.b, 1000), 5);
}

TEST(OffsetEstimate, AnyListsAgreeWithThePlainSearch) {
  constexpr std::array<std::int64_t, 10> windows{0,  1,       50,          1000,     100'000,
                                                 -1, largest, largest / 2, smallest, smallest + 1};
  zelk::reference::RandomTimes random(3);
  int valid = 0;
  for (int round = 0; round < 1000; ++round) {
    const Times a = random.list(random.below(150));
    const Times b = random.partner_of(a, random.below(150));
    for (const std::int64_t window : windows) {
      const Estimate expected = zelk::reference::offset_estimate(a, b, window);
      ASSERT_EQ(estimate(a, b, window), expected) << "round " << round << ", window " << window;
      valid += expected ? 1 : 0;
    }
  }
  EXPECT_GT(valid, 1000);
}

TEST(OffsetEstimate, LongListsAgreeWithThePlainSearch) {
  zelk::reference::RandomTimes random(4);
  for (const std::size_t size : {3999U, 4000U, 4001U, 7999U, 8000U, 8001U, 12001U}) {
    const Times a = random.list(size);
    const Times b = random.partner_of(a, 500);
    for (const std::int64_t window : {20, 1000, 100'000}) {
      EXPECT_EQ(estimate(a, b, window), zelk::reference::offset_estimate(a, b, window))
          << size << " tags, window " << window;
    }
  }
}

}  // namespace
