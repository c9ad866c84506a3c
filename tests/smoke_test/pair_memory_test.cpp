// The memory that the analysis of a pair takes, and what is said when there is
// not enough.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "smoke_test/pair_analysis.hpp"
#include "timing/detail/sorted_times.hpp"

namespace {

constexpr std::size_t no_limit = std::numeric_limits<std::size_t>::max();
std::size_t largest_allowed = no_limit;  // bytes of one allocation
std::size_t in_use = 0;                  // bytes
std::size_t most_in_use = 0;

}  // namespace

// Not inlined: g++ 12 takes half of an inlined pair for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* memory = size <= largest_allowed ? std::malloc(size) : nullptr;
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  in_use += malloc_usable_size(memory);
  most_in_use = std::max(most_in_use, in_use);
  return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
  in_use -= malloc_usable_size(memory);
  std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
  operator delete(memory);
}

namespace {

using zelk::timing::detail::SortedTimes;
using Times = std::vector<std::int64_t>;

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t mebibyte = std::size_t{1} << 20;

// Hardly two differences between such times lie in the same bin.
Times times_apart(std::int64_t count) {
  Times times;
  for (std::int64_t i = 0; i < count; ++i) {
    times.push_back(1'000'000 * i + 40 * i * i);
  }
  return times;
}

// At most, at any moment.
std::size_t bytes_for(const Times& times, std::int64_t window_ps) {
  const SortedTimes sorted(times, true);
  const std::size_t before = in_use;
  most_in_use = in_use;
  analyse_pair(sorted, sorted, window_ps);
  return most_in_use - before;
}

std::string error_for(const Times& times, std::int64_t window_ps, std::size_t limit) {
  const SortedTimes sorted(times, true);
  largest_allowed = limit;
  std::string error;
  try {
    analyse_pair(sorted, sorted, window_ps);
  } catch (const std::runtime_error& failed) {
    largest_allowed = no_limit;
    error = failed.what();
  }
  largest_allowed = no_limit;
  return error;
}

TEST(PairMemory, DoesNotGrowWithTheWindow) {
  const Times times = times_apart(50);
  for (const std::int64_t window : {std::int64_t{20'000'000}, std::int64_t{1'000'000'000},
                                    std::int64_t{5'000'000'000}, largest}) {
    EXPECT_LT(bytes_for(times, window), 2 * mebibyte) << window;
  }
}

// Nine million pairs, whose bins would take 72 MiB.
TEST(PairMemory, DoesNotGrowWithThePairs) {
  EXPECT_LT(bytes_for(times_apart(3000), largest), 10 * mebibyte);
}

TEST(PairMemory, OfAHistogramIsThatOfItsBins) {
  EXPECT_GT(bytes_for(times_apart(50), 4'000'000), 16'000'000U);
}

TEST(PairMemory, ThatDoesNotSufficeIsOneLineWithTheWindow) {
  EXPECT_EQ(error_for(times_apart(50), 4'000'000, mebibyte),
            "the cross-correlation histogram of a window of 4000000 ps does not fit into memory");
  EXPECT_EQ(error_for(times_apart(1000), largest, mebibyte),
            "the cross-correlation histogram of a window of 9223372036854775807 ps does not fit "
            "into memory");
  EXPECT_EQ(error_for(times_apart(50), largest, mebibyte), "");
}

}  // namespace
