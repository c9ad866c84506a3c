// Figures computed from the captured times after the capture. Pure functions:
// they take times in ps, return values and print nothing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "timing/time_tag.hpp"
#include "timing/xcorr_histogram.hpp"

// Tags of `a` with at least one partner in `b` at most `window` ps away, in
// one forward pass over both lists in their stored order: exact for ascending
// lists, while a tag out of order can make later ones miss their partners.
std::uint64_t count_coincidences(const std::vector<std::int64_t>& a,
                                 const std::vector<std::int64_t>& b, std::int64_t window);

struct OffsetEstimate {
  std::int64_t offset_ps = 0;
  bool valid = false;  // some tag had a partner within the window
};

// Median of b - a over nearest partners that are within `window_ps`; for an
// even number the upper middle value. Every tag of `a` is tried, or of n >= 8000
// tags every (n / 4000)th, until 4000 differences are found.
OffsetEstimate estimate_offset(const std::vector<std::int64_t>& a,
                               const std::vector<std::int64_t>& b, std::int64_t window_ps);

struct HistogramPeak {
  std::int64_t count = 0;
  std::int64_t center_ps = 0;
};

// The fullest bin; of equals the one with the most negative centre.
HistogramPeak find_peak(const zelk::timing::XcorrHistogram& histogram);

// Sum of the bins whose centre lies within 40 ps of `center_ps`, ends included.
std::uint64_t count_near_center(const zelk::timing::XcorrHistogram& histogram,
                                std::int64_t center_ps);

// A (value, count) pair of a ranking.
using Ranked = std::pair<std::int64_t, std::int64_t>;

// The order of every ranking: larger counts first, of equals the smaller value.
bool ranks_before(const Ranked& left, const Ranked& right);

// The `most` fullest bins as (centre in ps, count): larger counts first, of
// equals the smaller centre first. Empty bins count too.
std::vector<Ranked> top_bins(const zelk::timing::XcorrHistogram& histogram, std::size_t most);

// Everything that the report says about the channel pair.
struct PairAnalysis {
  std::uint64_t coincidences = 0;
  OffsetEstimate offset;
  HistogramPeak peak;
  double rms_ps = 0.0;
  double fwhm_estimate_ps = 0.0;
  std::uint64_t minus_period_window = 0;  // pairs one clock period before the offset
  std::uint64_t plus_period_window = 0;   // pairs one clock period after the offset
  std::vector<Ranked> top;
};

// Throws std::runtime_error when the histogram of this window does not fit
// into memory.
PairAnalysis analyse_pair(const std::vector<std::int64_t>& a, const std::vector<std::int64_t>& b,
                          std::int64_t window_ps);

struct StepStatistics {
  // Steps below these limits are counted, each under every limit above it.
  static constexpr std::array<std::int64_t, 4> limits_ps{10'000, 100'000, 500'000, 900'000};

  std::int64_t min_step_ps = 0;  // 0 for fewer than two times
  std::array<std::uint64_t, 4> below{};
};

// Steps between consecutive times in stored order. A negative step can be the
// smallest one, but is below no limit.
StepStatistics step_statistics(std::span<const std::int64_t> times_ps);

struct ResidueStatistics {
  std::size_t unique = 0;        // distinct residues
  std::uint64_t exact_zero = 0;  // times on the coarse grid
  std::vector<Ranked> top;       // (residue, count), at most eight, fullest first
};

// Residues of the times modulo the clock period, each in 0..3332, also for
// negative times. Of equal counts the smaller residue comes first.
ResidueStatistics residue_statistics(std::span<const std::int64_t> times_ps);
