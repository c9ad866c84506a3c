// A long list of times in blocks that stay in the first-level cache, so that
// several routines share one read of the list. Used by the thread that owns the
// list.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

inline constexpr std::size_t steps_per_block = 128;  // at most; 1 KiB of times

// Calls visit(block) for consecutive blocks of the list. Every block begins
// with the last time of the block before it, so that the steps inside the
// blocks are all steps of the list; the first one begins with the first time of
// the list. A list of fewer than two times has no block.
//
// Each block asks for the memory of a later one: counting takes so many
// instructions per time that the processor does not look far enough ahead by
// itself. A list larger than the caches is counted in half the time with it.
template <typename Visit>
void for_each_block(std::span<const std::int64_t> times, Visit visit) {
  constexpr std::size_t fetched_ahead = 512;               // times
  constexpr std::size_t line = 64 / sizeof(std::int64_t);  // times per cache line
  for (std::size_t first = 0; first + 1 < times.size(); first += steps_per_block) {
    for (std::size_t i = 0; i < steps_per_block; i += line) {
      const std::size_t later = std::min(first + fetched_ahead + i, times.size() - 1);
      __builtin_prefetch(&times[later]);
    }
    visit(times.subspan(first, std::min(steps_per_block + 1, times.size() - first)));
  }
}
