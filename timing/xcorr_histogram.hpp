// Cross-correlation of two lists of times: the histogram of their pairwise
// differences around an offset. Pure functions, usable from any thread.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

#include "timing/detail/sorted_times.hpp"
#include "timing/detail/wrapping.hpp"

namespace zelk::timing {

// Bins of equal width, an odd number of them, the middle one centred on the
// offset that the histogram was built around.
struct XcorrHistogram {
  std::vector<std::int64_t> centers_ps;  // relative to the offset, ascending
  std::vector<std::int64_t> counts;      // pairs per bin, as many as centres

  // Count-weighted standard deviation of the bin centres, in ps, about their
  // weighted mean; 0 without counts.
  [[nodiscard]] double rms_ps() const;
};

namespace detail {

// All bins empty. Throws std::length_error when their number has no meaning
// as a list length, std::bad_alloc when memory does not suffice.
inline XcorrHistogram empty_histogram(std::int64_t range_ps, std::int64_t bin_width_ps) {
  if (range_ps < 1 || bin_width_ps < 1) {
    return {.centers_ps = {0}, .counts = {0}};
  }
  // Twice a positive signed range fits into 64 unsigned bits, so nothing wraps.
  const auto width = static_cast<std::uint64_t>(bin_width_ps);
  const std::uint64_t twice_range = 2 * static_cast<std::uint64_t>(range_ps);
  const std::uint64_t whole_bins = twice_range / width + (twice_range % width != 0 ? 1 : 0);
  const std::uint64_t bins = whole_bins | 1;
  XcorrHistogram histogram;
  if (bins > histogram.counts.max_size()) {
    throw std::length_error("xcorr_histogram");
  }
  histogram.counts.resize(bins);
  histogram.centers_ps.resize(bins);
  const auto half = static_cast<std::int64_t>(bins / 2);
  for (std::size_t i = 0; i < bins; ++i) {
    histogram.centers_ps[i] = wrap_mul(bin_width_ps, static_cast<std::int64_t>(i) - half);
  }
  return histogram;
}

// Number of the bin nearest to `difference_ps`, counted from the middle one; a
// half bin is rounded away from 0.
inline std::int64_t bin_number(std::int64_t difference_ps, std::int64_t bin_width_ps) {
  const std::int64_t half_width = bin_width_ps / 2;
  return difference_ps >= 0 ? wrap_add(difference_ps, half_width) / bin_width_ps
                            : wrap_sub(0, wrap_sub(half_width, difference_ps) / bin_width_ps);
}

// Whether x + offset - range and x + offset + range stay inside 64 bits for
// every x of an ascending list.
inline bool windows_stay_in_range(std::span<const std::int64_t> times, std::int64_t offset_ps,
                                  std::int64_t range_ps) {
  std::int64_t first = 0;
  std::int64_t last = 0;
  return !__builtin_add_overflow(times.front(), offset_ps, &first) &&
         !__builtin_add_overflow(times.back(), offset_ps, &last) &&
         !__builtin_sub_overflow(first, range_ps, &first) &&
         !__builtin_add_overflow(last, range_ps, &last);
}

}  // namespace detail

// Counts every pair (x of `a`, y of `b`) with |y - x - offset_ps| <= range_ps
// into bins of `bin_width_ps`; a difference half way between two centres goes
// to the one away from 0. Range or width below 1: one empty bin. The lists may
// be in any order and are not changed. Throws std::length_error or
// std::bad_alloc when the bins do not fit into memory.
//
// For ascending lists the window of partners only moves forward, so the cost
// is one step per time and one per pair.
inline XcorrHistogram xcorr_histogram(const std::vector<std::int64_t>& a,
                                      const std::vector<std::int64_t>& b, std::int64_t range_ps,
                                      std::int64_t bin_width_ps, std::int64_t offset_ps) {
  using detail::wrap_add;
  using detail::wrap_sub;
  XcorrHistogram histogram = detail::empty_histogram(range_ps, bin_width_ps);
  if (range_ps < 1 || bin_width_ps < 1 || a.empty() || b.empty()) {
    return histogram;
  }
  const detail::SortedTimes sorted_a(a);
  const detail::SortedTimes sorted_b(b);
  const std::span<const std::int64_t> partners = sorted_b.get();
  // Bounds that wrap around may lie anywhere and take a search per time.
  const bool forward_only = detail::windows_stay_in_range(sorted_a.get(), offset_ps, range_ps);
  const auto bins = static_cast<std::int64_t>(histogram.counts.size());
  const std::int64_t half = bins / 2;

  std::size_t first = 0;
  for (const std::int64_t x : sorted_a.get()) {
    const std::int64_t center = wrap_add(x, offset_ps);
    const std::int64_t low = wrap_sub(center, range_ps);
    const std::int64_t high = wrap_add(center, range_ps);
    if (forward_only) {
      while (first < partners.size() && partners[first] < low) {
        ++first;
      }
    } else {
      first = static_cast<std::size_t>(std::lower_bound(partners.begin(), partners.end(), low) -
                                       partners.begin());
    }
    for (std::size_t i = first; i < partners.size() && partners[i] <= high; ++i) {
      const std::int64_t difference = wrap_sub(wrap_sub(partners[i], x), offset_ps);
      const std::int64_t index = wrap_add(half, detail::bin_number(difference, bin_width_ps));
      if (index >= 0 && index < bins) {
        ++histogram.counts[static_cast<std::size_t>(index)];
      }
    }
  }
  return histogram;
}

// Accumulates in extended precision: sums of squares of long captures exceed
// the 53 bits of a double.
inline double XcorrHistogram::rms_ps() const {
  long double total = 0;
  long double weighted = 0;
  const std::size_t bins = std::min(counts.size(), centers_ps.size());
  for (std::size_t i = 0; i < bins; ++i) {
    const auto count = static_cast<long double>(counts[i]);
    total += count;
    weighted += count * static_cast<long double>(centers_ps[i]);
  }
  if (!(total > 0)) {
    return 0.0;
  }
  const auto mean = static_cast<double>(weighted / total);
  long double variance_sum = 0;
  for (std::size_t i = 0; i < bins; ++i) {
    const long double distance = static_cast<long double>(centers_ps[i]) - mean;
    variance_sum += static_cast<long double>(counts[i]) * distance * distance;
  }
  return static_cast<double>(std::sqrt(variance_sum / total));
}

}  // namespace zelk::timing
