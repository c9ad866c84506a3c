#include "timing/detail/sorted_times.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using testing::ElementsAre;
using zelk::timing::detail::SortedTimes;

TEST(SortedTimes, BorrowsAListThatIsInOrder) {
  const std::vector<std::int64_t> times{-4, 1, 1, 9};
  const SortedTimes sorted(times);
  EXPECT_EQ(sorted.get().data(), times.data());
  EXPECT_EQ(sorted.get().size(), 4U);
}

TEST(SortedTimes, SortsACopyOfAnyOtherList) {
  const std::vector<std::int64_t> times{5, -3, 5, 0, INT64_MIN, INT64_MAX, 1};
  const SortedTimes sorted(times);
  EXPECT_THAT(sorted.get(), ElementsAre(INT64_MIN, -3, 0, 1, 5, 5, INT64_MAX));
  EXPECT_THAT(times, ElementsAre(5, -3, 5, 0, INT64_MIN, INT64_MAX, 1));
}

TEST(SortedTimes, HoldsNothingForAnEmptyList) {
  const std::vector<std::int64_t> times;
  EXPECT_TRUE(SortedTimes(times).get().empty());
}

TEST(SortedTimes, KnowsWhetherTheListWasInOrder) {
  EXPECT_TRUE(SortedTimes(std::vector<std::int64_t>{}).in_order());
  EXPECT_TRUE(SortedTimes(std::vector<std::int64_t>{-3, -3, 8}).in_order());
  EXPECT_FALSE(SortedTimes(std::vector<std::int64_t>{-3, 8, -3}).in_order());
}

TEST(SortedTimes, KeepsTheOrderInWhichTheListWasStored) {
  const std::vector<std::int64_t> times{8, -3, 0};
  const SortedTimes sorted(times);
  EXPECT_EQ(sorted.stored().data(), times.data());
  EXPECT_THAT(sorted.stored(), ElementsAre(8, -3, 0));
  EXPECT_THAT(sorted.get(), ElementsAre(-3, 0, 8));
}

TEST(SortedTimes, TakesAnOrderThatIsKnownAlready) {
  const std::vector<std::int64_t> ascending{1, 2};
  EXPECT_EQ(SortedTimes(ascending, true).get().data(), ascending.data());
  const std::vector<std::int64_t> other{2, 1};
  EXPECT_THAT(SortedTimes(other, false).get(), ElementsAre(1, 2));
}

}  // namespace
