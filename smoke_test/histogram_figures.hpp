// What the report says about a cross-correlation histogram: peak, width, side
// windows and fullest bins. Pure functions, usable from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "smoke_test/filled_bins.hpp"
#include "smoke_test/ranking.hpp"
#include "timing/detail/sorted_times.hpp"
#include "timing/xcorr_histogram.hpp"

// A histogram of at most this many bins is made: 64 MiB for windows up to 16 µs,
// more than any coincidence takes. Above it, also with 20 million tags per second,
// most bins hold few pairs or none, and to find the others is the faster way.
inline constexpr std::uint64_t max_histogram_bins = std::uint64_t{1} << 22;

struct HistogramPeak {
  std::int64_t count = 0;
  std::int64_t center_ps = 0;

  bool operator==(const HistogramPeak&) const = default;
};

// The fullest bin; of equals the one with the most negative centre.
HistogramPeak find_peak(const zelk::timing::XcorrHistogram& histogram);

// Sum of the bins whose centre lies within 40 ps of `center_ps`, ends included.
std::uint64_t count_near_center(const zelk::timing::XcorrHistogram& histogram,
                                std::int64_t center_ps);

// The `most` fullest bins as (centre in ps, count): larger counts first, of
// equals the smaller centre first. Empty bins count too.
std::vector<Ranked> top_bins(const zelk::timing::XcorrHistogram& histogram, std::size_t most);

struct HistogramFigures {
  HistogramPeak peak;
  double rms_ps = 0.0;
  std::uint64_t minus_period_window = 0;  // pairs one clock period before the offset
  std::uint64_t plus_period_window = 0;   // pairs one clock period after the offset
  std::vector<Ranked> top;                // the ten fullest bins

  bool operator==(const HistogramFigures&) const = default;
};

HistogramFigures figures_of(const zelk::timing::XcorrHistogram& histogram);

// The figures of xcorr_histogram(a, b, range_ps, histogram_bin_ps, offset_ps), to
// the last bit, without that histogram. A range of more than half of all times,
// whose bins no list can hold, is cut off at the ends of the 64-bit range: no pair
// in it is lost. Throws std::bad_alloc.
HistogramFigures figures_without_histogram(const zelk::timing::detail::SortedTimes& a,
                                           const zelk::timing::detail::SortedTimes& b,
                                           std::int64_t range_ps, std::int64_t offset_ps,
                                           std::optional<BinSlices> slices = std::nullopt);
