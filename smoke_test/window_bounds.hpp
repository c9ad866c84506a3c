// Where the window around a time begins and ends, also at the ends of the
// 64-bit range of times. Pure functions, usable from any thread.
#pragma once

#include <cstdint>
#include <limits>

// Up to this window, half of the range, a bound outside the range wraps around:
// the window of such a time holds nothing, as in xcorr_histogram(). No time of a
// capture comes so close to the ends. A wider window leaves the range around
// nearly every time, and would find nothing at all. Its bounds are cut off at
// the ends instead.
inline constexpr std::int64_t widest_wrapping_window_ps = std::int64_t{1} << 62;

// For windows of at least 0. Both bounds belong to the window.
inline std::int64_t window_low(std::int64_t time_ps, std::int64_t window_ps) {
  std::int64_t low = 0;
  const bool is_outside = __builtin_sub_overflow(time_ps, window_ps, &low);
  return is_outside && window_ps > widest_wrapping_window_ps
             ? std::numeric_limits<std::int64_t>::min()
             : low;
}

inline std::int64_t window_high(std::int64_t time_ps, std::int64_t window_ps) {
  std::int64_t high = 0;
  const bool is_outside = __builtin_add_overflow(time_ps, window_ps, &high);
  return is_outside && window_ps > widest_wrapping_window_ps
             ? std::numeric_limits<std::int64_t>::max()
             : high;
}
