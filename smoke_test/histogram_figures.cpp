#include "smoke_test/histogram_figures.hpp"

#include <algorithm>
#include <cmath>
#include <span>

#include "smoke_test/window_bounds.hpp"
#include "timing/detail/partner_windows.hpp"
#include "timing/detail/wrapping.hpp"
#include "timing/time_tag.hpp"

using zelk::timing::XcorrHistogram;
using zelk::timing::detail::SortedTimes;
using zelk::timing::detail::windows_stay_in_range;
using zelk::timing::detail::wrap_add;
using zelk::timing::detail::wrap_sub;

namespace {

constexpr std::size_t top_bin_count = 10;
constexpr std::int64_t side_window_ps = 40;
constexpr std::int64_t period_ps = zelk::timing::clock_period_ps;

bool is_near(std::int64_t bin_ps, std::int64_t center_ps) {
  return wrap_sub(center_ps, side_window_ps) <= bin_ps &&
         bin_ps <= wrap_add(center_ps, side_window_ps);
}

// The windows of the times around the offset, as xcorr_histogram() has them:
// those whose bounds wrap around hold nothing. They are left out here.
std::vector<std::int64_t> centers_of_windows(std::span<const std::int64_t> times,
                                             std::int64_t range_ps, std::int64_t offset_ps) {
  std::vector<std::int64_t> centers;
  for (const std::int64_t x : times) {
    const std::int64_t center = wrap_add(x, offset_ps);
    if (windows_stay_in_range({&center, 1}, 0, range_ps)) {
      centers.push_back(center);
    }
  }
  std::ranges::sort(centers);
  return centers;
}

// The first empty bins, in ascending order, of all that the filled ones leave.
class EmptyBins {
 public:
  EmptyBins(std::int64_t first, std::size_t most) : next_(first), most_(most) {}

  // All bins before this one, from the last filled one on, are empty.
  void add_before(std::int64_t filled) {
    for (; next_ < filled && bins_.size() < most_; ++next_) {
      bins_.emplace_back(bin_center_ps(next_), 0);
    }
    next_ = filled + 1;
  }

  [[nodiscard]] const std::vector<Ranked>& bins() const { return bins_; }

 private:
  std::int64_t next_;
  std::size_t most_;
  std::vector<Ranked> bins_;
};

// Both passes add in the order of the bins and in extended precision, as
// XcorrHistogram::rms_ps() does. Empty bins add nothing there.
HistogramFigures figures_of_pairs(std::span<const std::int64_t> times,
                                  std::span<const std::int64_t> partners, std::int64_t range_ps,
                                  std::int64_t offset_ps, const BinSlices& slices) {
  const std::uint64_t bins = zelk::timing::detail::bin_count(range_ps, histogram_bin_ps);
  const auto half = static_cast<std::int64_t>(bins / 2);
  HistogramFigures figures;
  figures.peak.center_ps = bin_center_ps(-half);  // of empty bins the first
  EmptyBins empty(-half, top_bin_count);
  long double total = 0;
  long double weighted = 0;
  for_each_filled_bin(times, partners, range_ps, offset_ps, slices, [&](const FilledBin& bin) {
    const std::int64_t center_ps = bin_center_ps(bin.number);
    if (bin.pairs > figures.peak.count) {
      figures.peak = {.count = bin.pairs, .center_ps = center_ps};
    }
    const auto pairs = static_cast<std::uint64_t>(bin.pairs);
    figures.minus_period_window += is_near(center_ps, -period_ps) ? pairs : 0;
    figures.plus_period_window += is_near(center_ps, period_ps) ? pairs : 0;
    add_ranked(figures.top, {center_ps, bin.pairs}, top_bin_count);
    empty.add_before(bin.number);
    const auto count = static_cast<long double>(bin.pairs);
    total += count;
    weighted += count * static_cast<long double>(center_ps);
  });
  empty.add_before(half + 1);
  for (const Ranked& bin : empty.bins()) {
    add_ranked(figures.top, bin, top_bin_count);
  }
  if (!(total > 0)) {
    return figures;
  }

  const auto mean = static_cast<double>(weighted / total);
  long double variance_sum = 0;
  for_each_filled_bin(times, partners, range_ps, offset_ps, slices, [&](const FilledBin& bin) {
    const long double distance = static_cast<long double>(bin_center_ps(bin.number)) - mean;
    variance_sum += static_cast<long double>(bin.pairs) * distance * distance;
  });
  figures.rms_ps = static_cast<double>(std::sqrt(variance_sum / total));
  return figures;
}

}  // namespace

HistogramPeak find_peak(const XcorrHistogram& histogram) {
  if (histogram.counts.empty() || histogram.counts.size() != histogram.centers_ps.size()) {
    return {};
  }
  const auto fullest = std::ranges::max_element(histogram.counts);
  const auto index = static_cast<std::size_t>(fullest - histogram.counts.begin());
  return {.count = *fullest, .center_ps = histogram.centers_ps[index]};
}

std::uint64_t count_near_center(const XcorrHistogram& histogram, std::int64_t center_ps) {
  const std::size_t bins = std::min(histogram.counts.size(), histogram.centers_ps.size());
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < bins; ++i) {
    if (is_near(histogram.centers_ps[i], center_ps)) {
      sum += static_cast<std::uint64_t>(histogram.counts[i]);
    }
  }
  return sum;
}

std::vector<Ranked> top_bins(const XcorrHistogram& histogram, std::size_t most) {
  const std::size_t bins = std::min(histogram.counts.size(), histogram.centers_ps.size());
  std::vector<Ranked> top;
  for (std::size_t i = 0; i < bins; ++i) {
    add_ranked(top, {histogram.centers_ps[i], histogram.counts[i]}, most);
  }
  return top;
}

HistogramFigures figures_of(const XcorrHistogram& histogram) {
  return {.peak = find_peak(histogram),
          .rms_ps = histogram.rms_ps(),
          .minus_period_window = count_near_center(histogram, -period_ps),
          .plus_period_window = count_near_center(histogram, period_ps),
          .top = top_bins(histogram, top_bin_count)};
}

HistogramFigures figures_without_histogram(const SortedTimes& a, const SortedTimes& b,
                                           std::int64_t range_ps, std::int64_t offset_ps,
                                           std::optional<BinSlices> slices) {
  const std::span<const std::int64_t> times = a.get();
  const std::span<const std::int64_t> partners = b.get();
  const BinSlices used = slices.value_or(BinSlices::for_tags(times.size() + partners.size()));
  if (times.empty() || range_ps < 1 || range_ps > widest_wrapping_window_ps ||
      windows_stay_in_range(times, offset_ps, range_ps)) {
    return figures_of_pairs(times, partners, range_ps, offset_ps, used);
  }
  const std::vector<std::int64_t> centers = centers_of_windows(times, range_ps, offset_ps);
  return figures_of_pairs(centers, partners, range_ps, 0, used);
}
