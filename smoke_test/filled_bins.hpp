// The bins of a cross-correlation histogram that are not empty, without the
// histogram. Memory is taken for the tags, never for the window or the pairs,
// and time for the pairs. Pure functions, usable from any thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

// Width of the report's bins.
inline constexpr std::int64_t histogram_bin_ps = 8;

struct FilledBin {
  std::int64_t number = 0;  // counted from the bin in the middle, whose centre is 0
  std::int64_t pairs = 0;   // at least 1
};

// Centre of a bin, relative to the offset. The last bin of the widest windows
// has its centre at 2^63 ps, which is given as the largest time.
std::int64_t bin_center_ps(std::int64_t number);

// What is done at a time: so many neighbouring bins, each with a count of its
// own, or so many pairs, which are sorted. Both at least 1.
struct BinSlices {
  std::uint64_t bins = 1U << 16;   // 512 KiB, which stay in the second-level cache
  std::uint64_t pairs = 1U << 20;  // 8 MiB

  // Each slice takes a walk along both lists: at least one pair per step.
  static BinSlices for_tags(std::size_t tags) {
    BinSlices slices;
    slices.pairs = std::max<std::uint64_t>(slices.pairs, tags);
    return slices;
  }
};

// Calls visit(bin), in ascending order, for the bins of the pairs (x of `times`,
// y of `partners`) with |y - x - offset_ps| <= range_ps: the bins and the
// rounding of xcorr_histogram(). Nothing wraps around. A range below 1 has no
// pairs. Both lists ascend. Throws std::bad_alloc.
void for_each_filled_bin(std::span<const std::int64_t> times,
                         std::span<const std::int64_t> partners, std::int64_t range_ps,
                         std::int64_t offset_ps, const BinSlices& slices,
                         const std::function<void(const FilledBin&)>& visit);
