// The figures of an analysis by brute force: every pair of times is looked at, and
// sums and differences are taken in 128 bits. Where a bound does not fit into 64
// bits it wraps around; there the literal routines, which say so, are the measure.
// Pure functions.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <utility>
#include <vector>

#include "timing/time_tag.hpp"

namespace zelk::fuzz {

__extension__ typedef __int128 Wide;
using Times = std::vector<std::int64_t>;                             // ps
using Ranking = std::vector<std::pair<std::int64_t, std::int64_t>>;  // (value, count)

inline std::int64_t wrapped(Wide value) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(value));
}

// ---- One channel -------------------------------------------------------------

struct Steps {
  std::uint64_t violations = 0;  // steps back
  std::int64_t max_gap_ps = 0;
  std::int64_t min_step_ps = 0;
  std::array<std::uint64_t, 4> below{};  // 10, 100, 500 and 900 ns
};

Steps steps_of(const Times& times);

struct Residues {
  std::size_t unique = 0;
  std::uint64_t exact_zero = 0;
  Ranking top;  // at most eight
};

Residues residues_of(const Times& times);

struct TimeRows {
  std::vector<std::array<std::uint64_t, 4>> rows;
  std::uint64_t overflow = 0;
};

TimeRows time_rows_of(const std::vector<timing::TimeTag>& tags, double width_s);

// ---- The pair ----------------------------------------------------------------

std::uint64_t coincidences_of(const Times& a, const Times& b, std::int64_t window);

struct Offset {
  std::int64_t offset_ps = 0;
  bool valid = false;
};

Offset offset_of(const Times& a, const Times& b, std::int64_t window);

// The bins of a histogram that are not empty, by number, the middle one being 0.
struct Bins {
  std::int64_t half = 0;
  std::int64_t width_ps = 1;
  std::map<std::int64_t, std::int64_t> counts;

  // The last one of the widest histogram does not fit into 64 bits.
  [[nodiscard]] std::int64_t center(std::int64_t number) const {
    constexpr Wide highest = std::numeric_limits<std::int64_t>::max();
    return wrapped(std::min(Wide{number} * width_ps, highest));
  }
  [[nodiscard]] std::int64_t count(std::int64_t number) const {
    const auto found = counts.find(number);
    return found != counts.end() ? found->second : 0;
  }
};

// How many bins a histogram has, the empty ones included; for a range and a width
// above 0.
Wide number_of_bins(Wide range, Wide width);

// A bound that does not fit into 64 bits wraps around.
Bins bins_of(const Times& a, const Times& b, std::int64_t range, std::int64_t width,
             std::int64_t offset_ps);

// The bins of 8 ps that the figures of a pair come from: as above, but the bounds
// of windows beyond 2^62 do not wrap around.
Bins pair_bins_of(const Times& a, const Times& b, std::int64_t window, std::int64_t offset_ps);

// The ten fullest bins, with the empty ones that belong there.
Ranking top_ten(const Bins& bins);

// Pairs within 40 ps of the centre.
std::uint64_t side_window(const Bins& bins, std::int64_t center_ps);

// From sums of whole numbers, nothing of which is rounded, where these fit into
// 128 bits; otherwise in extended precision, about the mean as a double.
double rms_of(const Bins& bins);

}  // namespace zelk::fuzz
