// The passes of the analysis as one would first write them: one walk with two
// cursors, a comparison at a time. Yardsticks for the real routines. For
// ascending lists whose windows stay inside 64 bits.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zelk::reference {

// Counts of the bins of the cross-correlation histogram. The width is a
// constant, so that no pair costs a division by a number unknown at compile
// time.
template <std::int64_t width_ps>
std::vector<std::int64_t> plain_histogram(std::span<const std::int64_t> a,
                                          std::span<const std::int64_t> b, std::int64_t range_ps,
                                          std::int64_t offset_ps) {
  const std::int64_t bins = ((2 * range_ps + width_ps - 1) / width_ps) | 1;
  std::vector<std::int64_t> counts(static_cast<std::size_t>(bins));
  std::size_t first = 0;
  for (const std::int64_t x : a) {
    const std::int64_t low = x + offset_ps - range_ps;
    const std::int64_t high = x + offset_ps + range_ps;
    while (first < b.size() && b[first] < low) {
      ++first;
    }
    for (std::size_t i = first; i < b.size() && b[i] <= high; ++i) {
      const std::int64_t d = b[i] - x - offset_ps;
      const std::int64_t r =
          d >= 0 ? (d + width_ps / 2) / width_ps : -((width_ps / 2 - d) / width_ps);
      const std::int64_t index = bins / 2 + r;
      if (index >= 0 && index < bins) {
        ++counts[static_cast<std::size_t>(index)];
      }
    }
  }
  return counts;
}

inline std::uint64_t plain_coincidences(std::span<const std::int64_t> a,
                                        std::span<const std::int64_t> b, std::int64_t window_ps) {
  std::uint64_t coincidences = 0;
  std::size_t next = 0;
  for (const std::int64_t x : a) {
    while (next < b.size() && b[next] < x - window_ps) {
      ++next;
    }
    if (next < b.size() && b[next] <= x + window_ps) {
      ++coincidences;
    }
  }
  return coincidences;
}

// Steps below 10, 100, 500 and 900 ns.
inline std::array<std::uint64_t, 4> plain_steps(std::span<const std::int64_t> times) {
  constexpr std::array<std::uint64_t, 4> limits{10'000, 100'000, 500'000, 900'000};
  std::array<std::uint64_t, 4> below{};
  for (std::size_t i = 1; i < times.size(); ++i) {
    const auto step = static_cast<std::uint64_t>(times[i] - times[i - 1]);
    for (std::size_t k = 0; k < limits.size(); ++k) {
      below[k] += step < limits[k] ? 1U : 0U;
    }
  }
  return below;
}

}  // namespace zelk::reference
