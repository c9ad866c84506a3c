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

#include "timing/detail/partner_windows.hpp"
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

// The number of bins, always odd; 1 without a range or a width.
inline std::uint64_t bin_count(std::int64_t range_ps, std::int64_t bin_width_ps) {
  if (range_ps < 1 || bin_width_ps < 1) {
    return 1;
  }
  // Twice a positive signed range fits into 64 unsigned bits, so nothing wraps.
  const auto width = static_cast<std::uint64_t>(bin_width_ps);
  const std::uint64_t twice_range = 2 * static_cast<std::uint64_t>(range_ps);
  const std::uint64_t whole_bins = twice_range / width + (twice_range % width != 0 ? 1 : 0);
  return whole_bins | 1;
}

// All bins empty. Throws std::length_error when their number has no meaning
// as a list length, std::bad_alloc when memory does not suffice.
inline XcorrHistogram empty_histogram(std::int64_t range_ps, std::int64_t bin_width_ps) {
  if (range_ps < 1 || bin_width_ps < 1) {
    return {.centers_ps = {0}, .counts = {0}};
  }
  const std::uint64_t bins = bin_count(range_ps, bin_width_ps);
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

// Index of the bin of a difference (relative to the offset), or at least the
// number of bins where it rounds to none of them.
inline std::size_t bin_index(std::int64_t difference_ps, std::int64_t bin_width_ps,
                             std::size_t bins) {
  const auto half = static_cast<std::int64_t>(bins / 2);
  return static_cast<std::size_t>(wrap_add(half, bin_number(difference_ps, bin_width_ps)));
}

// Windows of at most this many differences of whole picoseconds, 1 MiB of
// counts, are counted difference by difference.
inline constexpr std::int64_t max_counted_differences = 1 << 17;

// Whether counting each difference is possible, and cheaper than a division
// per pair.
inline bool differences_can_be_counted(std::span<const std::int64_t> times, std::int64_t range_ps) {
  return range_ps <= max_counted_differences / 2 &&
         static_cast<std::uint64_t>(range_ps) <= times.size();
}

// Adds the pairs to the bins, for ascending lists whose windows stay inside 64
// bits. Each difference in picoseconds has a count of its own, and the bins are
// summed up from these at the end. So no pair costs a division or a guess about
// its sign, and the width of the bins does not matter. A time without a partner
// counts in a place behind the differences, for a branch that is taken half of
// the time costs more than a count that is thrown away.
inline void count_differences(XcorrHistogram& histogram, std::span<const std::int64_t> times,
                              std::span<const std::int64_t> partners, std::int64_t range_ps,
                              std::int64_t bin_width_ps, std::int64_t offset_ps) {
  const auto last = 2 * static_cast<std::uint64_t>(range_ps);
  // A place per lane: the next increment need not wait for the last one.
  std::vector<std::int64_t> pairs(last + 1 + partner_lanes);
  const std::int64_t low_ps = wrap_sub(offset_ps, range_ps);
  const std::int64_t* const end = partners.data() + partners.size();
  for_each_window(
      times, partners, low_ps,
      [=, pairs = pairs.data()](std::size_t lane, std::int64_t x, const std::int64_t* partner) {
        const std::int64_t low = wrap_add(x, low_ps);
        const auto from_low = [low](std::int64_t y) {
          return static_cast<std::uint64_t>(y) - static_cast<std::uint64_t>(low);
        };
        const std::uint64_t difference = from_low(*partner);
        ++pairs[difference <= last ? difference : last + 1 + lane];
        for (++partner; partner != end && from_low(*partner) <= last; ++partner) {
          ++pairs[from_low(*partner)];
        }
      });
  for (std::uint64_t i = 0; i <= last; ++i) {
    const std::int64_t difference = static_cast<std::int64_t>(i) - range_ps;
    const std::size_t index = bin_index(difference, bin_width_ps, histogram.counts.size());
    if (index < histogram.counts.size()) {
      histogram.counts[index] += pairs[i];
    }
  }
}

// Adds the pairs to the bins, for any ascending lists and windows: one step per
// time and one per pair.
inline void count_pairs(XcorrHistogram& histogram, std::span<const std::int64_t> times,
                        std::span<const std::int64_t> partners, std::int64_t range_ps,
                        std::int64_t bin_width_ps, std::int64_t offset_ps, bool forward_only) {
  std::size_t first = 0;
  for (const std::int64_t x : times) {
    const std::int64_t center = wrap_add(x, offset_ps);
    const std::int64_t low = wrap_sub(center, range_ps);
    const std::int64_t high = wrap_add(center, range_ps);
    if (forward_only) {
      while (first < partners.size() && partners[first] < low) {
        ++first;
      }
    } else {
      // Bounds that wrap around may lie anywhere and take a search per time.
      first = static_cast<std::size_t>(std::ranges::lower_bound(partners, low) - partners.begin());
    }
    for (std::size_t i = first; i < partners.size() && partners[i] <= high; ++i) {
      const std::int64_t difference = wrap_sub(wrap_sub(partners[i], x), offset_ps);
      const std::size_t index = bin_index(difference, bin_width_ps, histogram.counts.size());
      if (index < histogram.counts.size()) {
        ++histogram.counts[index];
      }
    }
  }
}

}  // namespace detail

// As below, for lists whose order is known.
inline XcorrHistogram xcorr_histogram(const detail::SortedTimes& a, const detail::SortedTimes& b,
                                      std::int64_t range_ps, std::int64_t bin_width_ps,
                                      std::int64_t offset_ps) {
  XcorrHistogram histogram = detail::empty_histogram(range_ps, bin_width_ps);
  const std::span<const std::int64_t> times = a.get();
  const std::span<const std::int64_t> partners = b.get();
  if (range_ps < 1 || bin_width_ps < 1 || times.empty() || partners.empty()) {
    return histogram;
  }
  const bool forward_only = detail::windows_stay_in_range(times, offset_ps, range_ps);
  if (forward_only && detail::differences_can_be_counted(times, range_ps)) {
    detail::count_differences(histogram, times, partners, range_ps, bin_width_ps, offset_ps);
  } else {
    detail::count_pairs(histogram, times, partners, range_ps, bin_width_ps, offset_ps,
                        forward_only);
  }
  return histogram;
}

// Counts every pair (x of `a`, y of `b`) with |y - x - offset_ps| <= range_ps
// into bins of `bin_width_ps`; a difference half way between two centres goes
// to the one away from 0. Range or width below 1: one empty bin. The lists may
// be in any order and are not changed. Throws std::length_error or
// std::bad_alloc when the bins do not fit into memory.
inline XcorrHistogram xcorr_histogram(const std::vector<std::int64_t>& a,
                                      const std::vector<std::int64_t>& b, std::int64_t range_ps,
                                      std::int64_t bin_width_ps, std::int64_t offset_ps) {
  return xcorr_histogram(detail::SortedTimes(a), detail::SortedTimes(b), range_ps, bin_width_ps,
                         offset_ps);
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
