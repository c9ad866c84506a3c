#include "smoke_test/filled_bins.hpp"

#include <array>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

#include "timing/detail/wrapping.hpp"
#include "timing/xcorr_histogram.hpp"

using zelk::timing::detail::bin_count;
using zelk::timing::detail::magnitude;
using zelk::timing::detail::wrap_sub;

namespace {

// For sums of times, which take a bit or two more than 64. (An alias cannot be
// marked as an extension.)
__extension__ typedef __int128 Wide;  // NOLINT(modernize-use-using)

constexpr std::int64_t half_bin_ps = histogram_bin_ps / 2;

// More would not fit into the keys of a sort.
constexpr std::uint64_t max_sorted_bins = std::uint64_t{1} << 32;

// Number of the bin nearest to a difference; half a bin is rounded away from 0.
std::int64_t nearest_bin(std::int64_t difference_ps) {
  const std::uint64_t distance = magnitude(difference_ps) + std::uint64_t{half_bin_ps};
  const auto number = static_cast<std::int64_t>(distance / std::uint64_t{histogram_bin_ps});
  return difference_ps < 0 ? -number : number;
}

// The smallest difference that this bin is the nearest to.
Wide lower_end_ps(std::int64_t number) {
  const Wide center_ps = Wide{number} * histogram_bin_ps;
  return number > 0 ? center_ps - half_bin_ps : center_ps - (histogram_bin_ps - 1 - half_bin_ps);
}

// Sorts by 11 bits at a time, the lowest first: five times as fast as comparing,
// for keys without any order. No key is above `largest`. The result lies in one of
// the two lists, which are equally long.
std::span<std::uint32_t> sort_keys(std::span<std::uint32_t> keys, std::span<std::uint32_t> spare,
                                   std::uint32_t largest) {
  constexpr unsigned digit_bits = 11;
  constexpr std::uint32_t digits = 1U << digit_bits;
  for (unsigned shift = 0; shift < 32 && largest >> shift != 0; shift += digit_bits) {
    const auto digit = [=](std::uint32_t key) { return (key >> shift) % digits; };
    std::array<std::size_t, digits> places{};
    for (const std::uint32_t key : keys) {
      ++places[digit(key)];
    }
    std::exclusive_scan(places.begin(), places.end(), places.begin(), std::size_t{0});
    for (const std::uint32_t key : keys) {
      spare[places[digit(key)]++] = key;
    }
    std::swap(keys, spare);
  }
  return keys;
}

// Cuts the axis of the differences into slices until each holds few bins or few
// pairs. A sort of all pairs would take memory for them, and most of the time
// between the caches and the memory.
class BinWalk {
 public:
  BinWalk(std::span<const std::int64_t> times, std::span<const std::int64_t> partners,
          std::int64_t range_ps, std::int64_t offset_ps, const BinSlices& slices,
          const std::function<void(const FilledBin&)>& visit)
      : times_(times),
        partners_(partners),
        range_ps_(range_ps),
        offset_ps_(offset_ps),
        slices_(slices),
        visit_(visit) {}

  // Bins first to last. The depth of the recursion is at most that of 62 halvings.
  void walk(std::int64_t first, std::int64_t last) {
    std::uint64_t pairs = 0;
    for_each_time(first, last, [&](std::int64_t /*x*/, std::span<const std::int64_t> partners) {
      pairs += partners.size();
    });
    if (pairs == 0) {
      return;
    }
    const std::uint64_t bins = magnitude(last - first) + 1;
    if (bins <= slices_.bins) {
      count(first, last);
    } else if (pairs <= slices_.pairs && bins <= max_sorted_bins) {
      sort(first, last, pairs);
    } else {
      const std::int64_t middle = first + (last - first) / 2;
      walk(first, middle);
      walk(middle + 1, last);
    }
  }

 private:
  // Calls action(x, partners) with the partners that the bins first to last
  // take of each time.
  template <typename Action>
  void for_each_time(std::int64_t first, std::int64_t last, Action action) const {
    const Wide low = std::max(lower_end_ps(first), -Wide{range_ps_}) + offset_ps_;
    const Wide end = std::min(lower_end_ps(last + 1), Wide{range_ps_} + 1) + offset_ps_;
    std::size_t begin_index = 0;
    std::size_t end_index = 0;
    for (const std::int64_t x : times_) {
      while (begin_index < partners_.size() && Wide{partners_[begin_index]} - x < low) {
        ++begin_index;
      }
      while (end_index < partners_.size() && Wide{partners_[end_index]} - x < end) {
        ++end_index;
      }
      action(x, partners_.subspan(begin_index, end_index - begin_index));
    }
  }

  // The same, with the bin of every pair.
  template <typename Action>
  void for_each_pair(std::int64_t first, std::int64_t last, Action action) const {
    for_each_time(first, last, [&](std::int64_t x, std::span<const std::int64_t> partners) {
      for (const std::int64_t y : partners) {
        // The difference is one of the range: what wraps around on the way wraps back.
        action(nearest_bin(wrap_sub(wrap_sub(y, x), offset_ps_)));
      }
    });
  }

  void count(std::int64_t first, std::int64_t last) {
    counts_.assign(static_cast<std::size_t>(last - first + 1), 0);
    for_each_pair(first, last,
                  [&](std::int64_t bin) { ++counts_[static_cast<std::size_t>(bin - first)]; });
    for (std::int64_t bin = first; bin <= last; ++bin) {
      const std::int64_t pairs = counts_[static_cast<std::size_t>(bin - first)];
      if (pairs != 0) {
        visit_({.number = bin, .pairs = pairs});
      }
    }
  }

  void sort(std::int64_t first, std::int64_t last, std::uint64_t pairs) {
    if (keys_.size() < pairs) {
      keys_ = std::vector<std::uint32_t>();  // not both at a time
      keys_.resize(pairs);
      spare_ = std::vector<std::uint32_t>();
      spare_.resize(pairs);
    }
    std::span<std::uint32_t> keys(keys_.data(), pairs);
    std::size_t next = 0;
    for_each_pair(first, last, [&](std::int64_t bin) {
      keys[next++] = static_cast<std::uint32_t>(bin - first);
    });
    keys = sort_keys(keys, {spare_.data(), pairs}, static_cast<std::uint32_t>(last - first));
    for (auto run = keys.begin(); run != keys.end();) {
      const auto end =
          std::find_if(run, keys.end(), [&](std::uint32_t key) { return key != *run; });
      visit_({.number = first + *run, .pairs = end - run});
      run = end;
    }
  }

  std::span<const std::int64_t> times_;
  std::span<const std::int64_t> partners_;
  std::int64_t range_ps_;
  std::int64_t offset_ps_;
  BinSlices slices_;
  const std::function<void(const FilledBin&)>& visit_;
  std::vector<std::int64_t> counts_;  // of a slice's bins
  std::vector<std::uint32_t> keys_;   // of a slice's pairs: their bins, from its first on
  std::vector<std::uint32_t> spare_;  // as many
};

}  // namespace

std::int64_t bin_center_ps(std::int64_t number) {
  std::int64_t center_ps = 0;
  return __builtin_mul_overflow(number, histogram_bin_ps, &center_ps)
             ? std::numeric_limits<std::int64_t>::max()
             : center_ps;
}

void for_each_filled_bin(std::span<const std::int64_t> times,
                         std::span<const std::int64_t> partners, std::int64_t range_ps,
                         std::int64_t offset_ps, const BinSlices& slices,
                         const std::function<void(const FilledBin&)>& visit) {
  if (range_ps < 1) {
    return;
  }
  const auto half = static_cast<std::int64_t>(bin_count(range_ps, histogram_bin_ps) / 2);
  BinWalk(times, partners, range_ps, offset_ps, slices, visit).walk(-half, half);
}
