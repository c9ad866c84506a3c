#include "smoke_test/pair_analysis.hpp"

#include <algorithm>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "smoke_test/share.hpp"
#include "smoke_test/window_bounds.hpp"
#include "timing/detail/partner_windows.hpp"
#include "timing/detail/sorted_times.hpp"
#include "timing/detail/wrapping.hpp"
#include "timing/xcorr_histogram.hpp"

using zelk::timing::detail::bin_count;
using zelk::timing::detail::for_each_window;
using zelk::timing::detail::magnitude;
using zelk::timing::detail::SortedTimes;
using zelk::timing::detail::windows_stay_in_range;
using zelk::timing::detail::wrap_sub;

namespace {

constexpr double gaussian_fwhm_factor = 2.355;

HistogramFigures histogram_figures(const SortedTimes& a, const SortedTimes& b,
                                   std::int64_t window_ps, std::int64_t offset_ps) {
  try {
    return bin_count(window_ps, histogram_bin_ps) <= max_histogram_bins
               ? figures_of(
                     zelk::timing::xcorr_histogram(a, b, window_ps, histogram_bin_ps, offset_ps))
               : figures_without_histogram(a, b, window_ps, offset_ps);
  } catch (const std::bad_alloc&) {
    throw std::runtime_error("the cross-correlation histogram of a window of " +
                             std::to_string(window_ps) + " ps does not fit into memory");
  }
}

// In any order, one step per tag.
std::uint64_t count_in_stored_order(std::span<const std::int64_t> a,
                                    std::span<const std::int64_t> b, std::int64_t window) {
  std::uint64_t coincidences = 0;
  std::size_t next = 0;
  for (const std::int64_t x : a) {
    while (next < b.size() && b[next] < window_low(x, window)) {
      ++next;
    }
    if (next < b.size() && b[next] <= window_high(x, window)) {
      ++coincidences;
    }
  }
  return coincidences;
}

std::uint64_t count_coincidences(std::span<const std::int64_t> a, std::span<const std::int64_t> b,
                                 bool in_order, std::int64_t window) {
  if (window < 0 || a.empty()) {
    return 0;  // also where the bounds would wrap around and change places
  }
  if (!in_order || !windows_stay_in_range(a, 0, window)) {
    return count_in_stored_order(a, b, window);
  }
  std::uint64_t coincidences = 0;
  for_each_window(a, b, -window,
                  [&](std::size_t /*lane*/, std::int64_t x, const std::int64_t* partner) {
                    coincidences += *partner <= x + window ? 1 : 0;
                  });
  return coincidences;
}

}  // namespace

std::uint64_t count_coincidences(const std::vector<std::int64_t>& a,
                                 const std::vector<std::int64_t>& b, std::int64_t window) {
  return count_coincidences(a, b, std::ranges::is_sorted(a) && std::ranges::is_sorted(b), window);
}

std::uint64_t count_coincidences(const SortedTimes& a, const SortedTimes& b, std::int64_t window) {
  return count_coincidences(a.stored(), b.stored(), a.in_order() && b.in_order(), window);
}

OffsetEstimate estimate_offset(const SortedTimes& a, const SortedTimes& b, std::int64_t window_ps) {
  constexpr std::size_t max_differences = 4000;
  const std::span<const std::int64_t> times = a.get();
  const std::span<const std::int64_t> partners = b.get();
  if (times.empty() || partners.empty()) {
    return {};
  }

  const std::size_t stride = std::max<std::size_t>(times.size() / max_differences, 1);
  std::vector<std::int64_t> differences;
  auto next = partners.begin();  // first partner not before the current time
  for (std::size_t i = 0; i < times.size() && differences.size() < max_differences; i += stride) {
    const std::int64_t x = times[i];
    next = std::lower_bound(next, partners.end(), x);
    // At either end of the list the only neighbour is both of them.
    const std::int64_t to_next = wrap_sub(next != partners.end() ? *next : partners.back(), x);
    const std::int64_t to_previous =
        wrap_sub(next != partners.begin() ? *std::prev(next) : partners.front(), x);
    const std::int64_t difference =
        magnitude(to_next) <= magnitude(to_previous) ? to_next : to_previous;
    if (window_ps >= 0 && magnitude(difference) <= magnitude(window_ps)) {
      differences.push_back(difference);
    }
  }
  if (differences.empty()) {
    return {};
  }
  const auto middle = differences.begin() + static_cast<std::ptrdiff_t>(differences.size() / 2);
  std::nth_element(differences.begin(), middle, differences.end());
  return {.offset_ps = *middle, .valid = true};
}

PairAnalysis analyse_pair(const SortedTimes& a, const SortedTimes& b, std::int64_t window_ps) {
  PairAnalysis pair;
  pair.tags_a = a.get().size();
  pair.tags_b = b.get().size();
  pair.coincidences = count_coincidences(a, b, window_ps);
  pair.coincidence_share = share(pair.coincidences, std::min(pair.tags_a, pair.tags_b));
  pair.offset = estimate_offset(a, b, window_ps);
  HistogramFigures figures = histogram_figures(a, b, window_ps, pair.offset.offset_ps);
  pair.peak = figures.peak;
  pair.rms_ps = figures.rms_ps;
  pair.fwhm_estimate_ps = pair.rms_ps * gaussian_fwhm_factor;
  pair.minus_period_window = figures.minus_period_window;
  pair.plus_period_window = figures.plus_period_window;
  pair.top = std::move(figures.top);
  return pair;
}
