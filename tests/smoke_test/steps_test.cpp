#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "smoke_test/channel_analysis.hpp"
#include "tests/reference/literal_analysis.hpp"
#include "tests/reference/random_times.hpp"
#include "timing/detail/wrapping.hpp"

namespace {

using testing::ElementsAre;

using Times = std::vector<std::int64_t>;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

void expect_steps(const Times& times, std::int64_t min_step_ps,
                  const std::array<std::uint64_t, 4>& below) {
  const StepStatistics steps = step_statistics(times);
  EXPECT_EQ(steps.min_step_ps, min_step_ps);
  EXPECT_EQ(steps.below, below);
}

TEST(StepStatistics, FewerThanTwoTimesHaveNoStep) {
  expect_steps({}, 0, {0, 0, 0, 0});
  expect_steps({5}, 0, {0, 0, 0, 0});
  expect_steps({-5}, 0, {0, 0, 0, 0});
}

TEST(StepStatistics, EqualTimesAreBelowEveryLimit) {
  expect_steps({7, 7}, 0, {1, 1, 1, 1});
}

TEST(StepStatistics, AStepIsBelowEachLimitAboveIt) {
  expect_steps({0, 9'999}, 9'999, {1, 1, 1, 1});
  expect_steps({0, 10'000}, 10'000, {0, 1, 1, 1});
  expect_steps({0, 99'999}, 99'999, {0, 1, 1, 1});
  expect_steps({0, 100'000}, 100'000, {0, 0, 1, 1});
  expect_steps({0, 499'999}, 499'999, {0, 0, 1, 1});
  expect_steps({0, 500'000}, 500'000, {0, 0, 0, 1});
  expect_steps({0, 899'999}, 899'999, {0, 0, 0, 1});
  expect_steps({0, 900'000}, 900'000, {0, 0, 0, 0});
}

TEST(StepStatistics, TheSmallestStepIsFoundAnywhere) {
  expect_steps({0, 1'000'000, 1'000'003, 1'200'003, 3'000'000}, 3, {1, 1, 2, 2});
}

TEST(StepStatistics, ANegativeStepIsTheSmallestButBelowNoLimit) {
  expect_steps({100, 40}, -60, {0, 0, 0, 0});
  expect_steps({0, 5, 1, 2}, -4, {2, 2, 2, 2});
}

TEST(StepStatistics, StepsAtTheEndsOfTheRange) {
  expect_steps({0, largest}, 0, {0, 0, 0, 0});  // indistinguishable from no step
  expect_steps({1, largest}, largest - 1, {0, 0, 0, 0});
  expect_steps({0, smallest}, smallest, {0, 0, 0, 0});
  expect_steps({largest, smallest}, 1, {1, 1, 1, 1});  // wraps around
}

// Also that a list is in order exactly when it is sorted.
void expect_agreement(const Times& times) {
  const StepStatistics steps = step_statistics(times);
  const zelk::reference::Steps expected = zelk::reference::steps(times);
  ASSERT_EQ(steps.min_step_ps, expected.minimum);
  ASSERT_THAT(steps.below, ElementsAre(expected.below_10ns, expected.below_100ns,
                                       expected.below_500ns, expected.below_900ns));
  ASSERT_EQ(steps.in_order, std::is_sorted(times.begin(), times.end()));
}

TEST(StepStatistics, ListsThatNeverStepBackAreInOrder) {
  EXPECT_TRUE(step_statistics(Times{}).in_order);
  EXPECT_TRUE(step_statistics(Times{5}).in_order);
  EXPECT_TRUE(step_statistics(Times{-5, -5, 7}).in_order);
  EXPECT_TRUE(step_statistics(Times{smallest, largest}).in_order);
  EXPECT_FALSE(step_statistics(Times{0, 1, 0}).in_order);
  EXPECT_FALSE(step_statistics(Times{0, -5'000'000'000'000}).in_order);
}

TEST(StepStatistics, ListsThatWrapAroundAreNotInOrder) {
  EXPECT_FALSE(step_statistics(Times{largest, smallest}).in_order);
  EXPECT_FALSE(step_statistics(Times{largest - 2, largest, smallest + 7}).in_order);
  EXPECT_FALSE(step_statistics(Times{1, largest, smallest, 0}).in_order);
}

TEST(StepStatistics, AnyListsAgreeWithThePlainCounts) {
  zelk::reference::RandomTimes random(11);
  for (int round = 0; round < 3000; ++round) {
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(expect_agreement(random.list(random.below(200))));
  }
  for (int round = 0; round < 1000; ++round) {
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(expect_agreement(random.list(random.below(1000))));
  }
}

TEST(StepStatistics, TheEndsOfNarrowNumbersAgreeWithThePlainCounts) {
  constexpr std::int64_t two_to_31 = std::int64_t{1} << 31;
  constexpr std::int64_t two_to_32 = std::int64_t{1} << 32;
  for (const std::int64_t step :
       {two_to_31 - 1, two_to_31, two_to_31 + 5, two_to_32 - 1, two_to_32, two_to_32 + 5,
        two_to_32 + two_to_31, largest, largest - 5, smallest, smallest + 5}) {
    for (const std::int64_t sign : {1, -1}) {
      for (const std::int64_t first : {std::int64_t{0}, largest - 3, smallest + 3}) {
        const std::int64_t next =
            zelk::timing::detail::wrap_add(first, zelk::timing::detail::wrap_mul(sign, step));
        SCOPED_TRACE(testing::Message() << first << ", then " << next);
        ASSERT_NO_FATAL_FAILURE(expect_agreement({first, next}));
        ASSERT_NO_FATAL_FAILURE(expect_agreement({first, next, next}));
      }
    }
  }
}

TEST(StepStatistics, AnOddStepIsFoundWhereverItIs) {
  for (const std::size_t size : {2U, 127U, 128U, 129U, 130U, 256U, 257U, 258U, 385U, 700U}) {
    for (std::size_t place = 1; place < size; ++place) {
      for (const std::int64_t odd : {std::int64_t{3}, std::int64_t{-3}, std::int64_t{5} << 40}) {
        Times times(size);
        for (std::size_t i = 1; i < size; ++i) {
          times[i] = times[i - 1] + (i == place ? odd : 20'000);
        }
        SCOPED_TRACE(testing::Message() << place << " of " << size << ", " << odd);
        ASSERT_NO_FATAL_FAILURE(expect_agreement(times));
      }
    }
  }
}

}  // namespace
