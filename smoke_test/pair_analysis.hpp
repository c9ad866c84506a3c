// Figures of a pair of channels, computed from their times (ps) after the
// capture. Pure functions, usable from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "smoke_test/histogram_figures.hpp"
#include "smoke_test/ranking.hpp"
#include "timing/detail/sorted_times.hpp"

// Tags of `a` with at least one partner in `b` at most `window` ps away, in
// one forward pass over both lists in their stored order: exact for ascending
// lists, while a tag out of order can make later ones miss their partners. The
// bounds of the windows are those of window_bounds.hpp.
std::uint64_t count_coincidences(const std::vector<std::int64_t>& a,
                                 const std::vector<std::int64_t>& b, std::int64_t window);

// The same for lists whose order is known.
std::uint64_t count_coincidences(const zelk::timing::detail::SortedTimes& a,
                                 const zelk::timing::detail::SortedTimes& b, std::int64_t window);

struct OffsetEstimate {
  std::int64_t offset_ps = 0;
  bool valid = false;  // some tag had a partner within the window
};

// Median of b - a over nearest partners that are within `window_ps`; for an
// even number the upper middle value. Every tag of `a` is tried, or of n >= 8000
// tags every (n / 4000)th, until 4000 differences are found.
OffsetEstimate estimate_offset(const zelk::timing::detail::SortedTimes& a,
                               const zelk::timing::detail::SortedTimes& b, std::int64_t window_ps);

// Everything that the report says about the channel pair.
struct PairAnalysis {
  std::uint64_t tags_a = 0;
  std::uint64_t tags_b = 0;
  std::uint64_t coincidences = 0;
  std::optional<double> coincidence_share;  // of the rarer channel's tags; none without any
  OffsetEstimate offset;
  HistogramPeak peak;
  double rms_ps = 0.0;
  double fwhm_estimate_ps = 0.0;
  std::uint64_t minus_period_window = 0;  // pairs one clock period before the offset
  std::uint64_t plus_period_window = 0;   // pairs one clock period after the offset
  std::vector<Ranked> top;
};

// Throws std::runtime_error when memory does not suffice for the histogram of this
// window, or for finding its bins.
PairAnalysis analyse_pair(const zelk::timing::detail::SortedTimes& a,
                          const zelk::timing::detail::SortedTimes& b, std::int64_t window_ps);
