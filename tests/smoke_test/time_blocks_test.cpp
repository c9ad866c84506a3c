#include "smoke_test/time_blocks.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <numeric>
#include <span>
#include <vector>

namespace {

TEST(TimeBlocks, EachBeginsWithTheLastTimeOfTheOneBefore) {
  for (const std::size_t size : {2U, 3U, 128U, 129U, 130U, 257U, 258U, 1000U, 5000U}) {
    std::vector<std::int64_t> times(size);
    std::iota(times.begin(), times.end(), 0);
    const std::int64_t* next = times.data();
    for_each_block(times, [&](std::span<const std::int64_t> block) {
      ASSERT_EQ(block.data(), next);
      ASSERT_GE(block.size(), 2U);
      ASSERT_LE(block.size(), steps_per_block + 1);
      next = &block.back();
    });
    EXPECT_EQ(next, &times.back()) << size;
  }
}

TEST(TimeBlocks, FewerThanTwoTimesHaveNone) {
  int blocks = 0;
  const auto count = [&](std::span<const std::int64_t>) { ++blocks; };
  for_each_block({}, count);
  for_each_block(std::vector<std::int64_t>{5}, count);
  EXPECT_EQ(blocks, 0);
}

}  // namespace
