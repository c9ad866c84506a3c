#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <vector>

#include "smoke_test/pair_analysis.hpp"
#include "tests/reference/literal_analysis.hpp"
#include "tests/reference/random_times.hpp"
#include "timing/detail/sorted_times.hpp"

namespace {

using zelk::timing::detail::SortedTimes;
using Times = std::vector<std::int64_t>;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

TEST(Coincidences, EmptyListsHaveNone) {
  EXPECT_EQ(count_coincidences({}, {}, 1000), 0U);
  EXPECT_EQ(count_coincidences({}, {5}, 1000), 0U);
  EXPECT_EQ(count_coincidences({5}, {}, 1000), 0U);
}

TEST(Coincidences, BothEndsOfTheWindowBelongToIt) {
  EXPECT_EQ(count_coincidences({1000}, {0}, 1000), 1U);
  EXPECT_EQ(count_coincidences({1000}, {2000}, 1000), 1U);
  EXPECT_EQ(count_coincidences({1000}, {-1}, 1000), 0U);
  EXPECT_EQ(count_coincidences({1000}, {2001}, 1000), 0U);
}

TEST(Coincidences, ATagWithManyPartnersCountsOnce) {
  EXPECT_EQ(count_coincidences({0}, {-1, 0, 1}, 5), 1U);
}

TEST(Coincidences, OnePartnerServesSeveralTags) {
  EXPECT_EQ(count_coincidences({0, 1, 2}, {1}, 1), 3U);
}

TEST(Coincidences, TagsOfTheFirstListAreCountedNotPairs) {
  EXPECT_EQ(count_coincidences({0, 100, 200}, {0, 1, 2, 200}, 5), 2U);
  EXPECT_EQ(count_coincidences({0, 1, 2, 200}, {0, 100, 200}, 5), 4U);
}

TEST(Coincidences, WindowOfZeroDemandsEqualTimes) {
  EXPECT_EQ(count_coincidences({1, 2, 3}, {2, 3, 4}, 0), 2U);
  EXPECT_EQ(count_coincidences({1, 3}, {2, 4}, 0), 0U);
}

TEST(Coincidences, NegativeWindowCountsNothing) {
  EXPECT_EQ(count_coincidences({0, 10}, {0, 10}, -1), 0U);
  EXPECT_EQ(count_coincidences({0, 10}, {0, 10}, -1000), 0U);
  EXPECT_EQ(count_coincidences({0, 10}, {0, 10}, smallest), 0U);
}

TEST(Coincidences, NegativeWindowCountsNothingWhereItsBoundsWrap) {
  EXPECT_EQ(count_coincidences({largest - 5}, {0}, -10), 0U);
  EXPECT_EQ(count_coincidences({smallest + 5}, {0}, -10), 0U);
  EXPECT_EQ(count_coincidences({0}, {smallest}, smallest), 0U);
}

TEST(Coincidences, ALateTagOfTheFirstListMissesPartnersLeftBehind) {
  // 100 moves the cursor past the partner of 0.
  EXPECT_EQ(count_coincidences({100, 0}, {0, 100}, 10), 1U);
  EXPECT_EQ(count_coincidences({0, 100}, {0, 100}, 10), 2U);
}

TEST(Coincidences, ALateTagOfTheSecondListHidesBehindItsPredecessor) {
  // The cursor stands at 100 while the partner of 0 lies behind it.
  EXPECT_EQ(count_coincidences({0, 100}, {100, 0}, 10), 1U);
}

TEST(Coincidences, TheCursorStaysWhereItIsAfterAHit) {
  EXPECT_EQ(count_coincidences({10, 12, 14, 30}, {11, 13, 29}, 2), 4U);
}

TEST(Coincidences, WindowsReachAcrossTheWholeRange) {
  EXPECT_EQ(count_coincidences({0}, {largest}, largest), 1U);
  EXPECT_EQ(count_coincidences({0}, {-largest}, largest), 1U);
  EXPECT_EQ(count_coincidences({0}, {smallest}, largest), 0U);
}

// Above half of all times the bounds of a window do not wrap around.
TEST(Coincidences, VeryWideWindowsAreCutOffAtTheEnds) {
  constexpr std::int64_t half_of_all = std::int64_t{1} << 62;
  EXPECT_EQ(count_coincidences({1000}, {1100}, largest), 1U);
  EXPECT_EQ(count_coincidences({-5000, 5000}, {0}, largest), 2U);
  EXPECT_EQ(count_coincidences({5000, -5000}, {0}, largest), 2U);
  EXPECT_EQ(count_coincidences({smallest}, {-1}, largest), 1U);
  EXPECT_EQ(count_coincidences({smallest}, {0}, largest), 0U);
  EXPECT_EQ(count_coincidences({largest}, {0}, largest), 1U);
  EXPECT_EQ(count_coincidences({largest}, {-1}, largest), 0U);
  EXPECT_EQ(count_coincidences({largest - 5}, {largest - 9}, half_of_all), 0U);
  EXPECT_EQ(count_coincidences({largest - 5}, {largest - 9}, half_of_all + 1), 1U);
  EXPECT_EQ(count_coincidences({smallest + 5}, {smallest + 9}, half_of_all), 0U);
  EXPECT_EQ(count_coincidences({smallest + 5}, {smallest + 9}, half_of_all + 1), 1U);
}

TEST(Coincidences, AscendingListsAreCountedExactly) {
  zelk::reference::RandomTimes random(1);
  for (int round = 0; round < 300; ++round) {
    Times a(random.below(60));
    Times b(random.below(60));
    for (Times* list : {&a, &b}) {
      for (std::int64_t& time : *list) {
        time = random.between(-2000, 2000);
      }
      std::sort(list->begin(), list->end());
    }
    const std::int64_t window = random.between(0, 100);
    const auto has_partner = [&](std::int64_t x) {
      return std::any_of(b.begin(), b.end(),
                         [&](std::int64_t y) { return x - window <= y && y <= x + window; });
    };
    const auto expected =
        static_cast<std::uint64_t>(std::count_if(a.begin(), a.end(), has_partner));
    EXPECT_EQ(count_coincidences(a, b, window), expected) << "round " << round;
  }
}

TEST(Coincidences, AnyListsAgreeWithThePlainPass) {
  constexpr std::array<std::int64_t, 14> windows{
      0,  1,     7,       50,          1000,        100'000,  1'000'000'000'000,
      -1, -1000, largest, largest - 1, largest / 2, smallest, smallest + 1};
  zelk::reference::RandomTimes random(2);
  std::uint64_t hits = 0;
  for (int round = 0; round < 2000; ++round) {
    const Times a = random.list(random.below(200));
    const Times b = random.partner_of(a, random.below(200));
    for (const std::int64_t window : windows) {
      const std::uint64_t expected = zelk::reference::count_coincidences(a, b, window);
      ASSERT_EQ(count_coincidences(a, b, window), expected)
          << "round " << round << ", window " << window;
      hits += expected;
    }
  }
  EXPECT_GT(hits, 100'000U);
}

TEST(Coincidences, ListsOfKnownOrderAgreeWithThePlainPass) {
  zelk::reference::RandomTimes random(13);
  std::uint64_t hits = 0;
  for (int round = 0; round < 1000; ++round) {
    const Times a = random.list(random.below(500));
    const Times b = random.partner_of(a, random.below(500));
    const SortedTimes sorted_a(a);
    const SortedTimes sorted_b(b);
    for (const std::int64_t window : {std::int64_t{-1}, std::int64_t{0}, std::int64_t{50},
                                      std::int64_t{1000}, std::int64_t{100'000}, largest}) {
      const std::uint64_t expected = zelk::reference::count_coincidences(a, b, window);
      ASSERT_EQ(count_coincidences(sorted_a, sorted_b, window), expected)
          << "round " << round << ", window " << window;
      hits += expected;
    }
  }
  EXPECT_GT(hits, 100'000U);
}

}  // namespace
