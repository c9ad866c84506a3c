#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <vector>

#include "smoke_test/channel_analysis.hpp"
#include "tests/reference/literal_analysis.hpp"
#include "tests/reference/random_times.hpp"

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

TEST(StepStatistics, AnyListsAgreeWithThePlainCounts) {
  zelk::reference::RandomTimes random(11);
  for (int round = 0; round < 3000; ++round) {
    const Times times = random.list(random.below(200));
    const StepStatistics steps = step_statistics(times);
    const zelk::reference::Steps expected = zelk::reference::steps(times);
    ASSERT_EQ(steps.min_step_ps, expected.minimum) << "round " << round;
    ASSERT_THAT(steps.below, ElementsAre(expected.below_10ns, expected.below_100ns,
                                         expected.below_500ns, expected.below_900ns))
        << "round " << round;
  }
}

}  // namespace
