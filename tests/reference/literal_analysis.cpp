#include "tests/reference/literal_analysis.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace zelk::reference {
namespace {

__extension__ typedef __int128 Wide;

std::int64_t plus(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

std::int64_t minus(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

std::uint64_t magnitude(std::int64_t a) {
  return a < 0 ? 0 - static_cast<std::uint64_t>(a) : static_cast<std::uint64_t>(a);
}

bool within(std::int64_t difference, std::int64_t window) {
  return window >= 0 && magnitude(difference) <= static_cast<std::uint64_t>(window);
}

Times sorted(Times list) {
  std::sort(list.begin(), list.end());
  return list;
}

// The difference from x to the nearest element of a sorted, non-empty list.
std::int64_t nearest_difference(const Times& list, std::int64_t x) {
  const auto k =
      static_cast<std::size_t>(std::lower_bound(list.begin(), list.end(), x) - list.begin());
  if (k == list.size()) {
    return minus(list.back(), x);
  }
  if (k == 0) {
    return minus(list[0], x);
  }
  const std::int64_t next = minus(list[k], x);
  const std::int64_t previous = minus(list[k - 1], x);
  return magnitude(next) <= magnitude(previous) ? next : previous;
}

// Larger counts first, of equals the smaller value.
void rank(Pairs& pairs) {
  std::sort(pairs.begin(), pairs.end(), [](const auto& left, const auto& right) {
    if (left.second != right.second) {
      return left.second > right.second;
    }
    return left.first < right.first;
  });
}

}  // namespace

std::uint64_t count_coincidences(const Times& a, const Times& b, std::int64_t window) {
  if (window < 0) {
    return 0;
  }
  const bool wraps = window <= std::int64_t{1} << 62;
  std::uint64_t hits = 0;
  std::size_t j = 0;
  for (const std::int64_t x : a) {
    const Wide low = wraps ? Wide{minus(x, window)} : Wide{x} - window;
    const Wide high = wraps ? Wide{plus(x, window)} : Wide{x} + window;
    while (j < b.size() && b[j] < low) {
      ++j;
    }
    if (j < b.size() && b[j] <= high) {
      ++hits;
    }
  }
  return hits;
}

std::optional<std::int64_t> offset_estimate(const Times& a, const Times& b, std::int64_t window) {
  if (a.empty() || b.empty()) {
    return std::nullopt;
  }
  const Times sorted_a = sorted(a);
  const Times sorted_b = sorted(b);
  const std::size_t n = sorted_a.size();
  const std::size_t stride = n / 4000 == 0 ? 1 : n / 4000;
  Times kept;
  for (std::size_t i = 0; i < n && kept.size() < 4000; i += stride) {
    const std::int64_t candidate = nearest_difference(sorted_b, sorted_a[i]);
    if (within(candidate, window)) {
      kept.push_back(candidate);
    }
  }
  if (kept.empty()) {
    return std::nullopt;
  }
  return sorted(kept)[kept.size() / 2];
}

Histogram xcorr_histogram(const Times& a, const Times& b, std::int64_t range_ps,
                          std::int64_t bin_width_ps, std::int64_t offset_ps) {
  if (range_ps < 1 || bin_width_ps < 1) {
    return {{0}, {0}};
  }
  auto nbins = static_cast<std::int64_t>((Wide{2} * range_ps + bin_width_ps - 1) / bin_width_ps);
  if (nbins % 2 == 0) {
    ++nbins;
  }
  const std::int64_t half = nbins / 2;
  Histogram histogram;
  for (std::int64_t k = -half; k <= half; ++k) {
    histogram.centers.push_back(static_cast<std::int64_t>(Wide{bin_width_ps} * k));
    histogram.counts.push_back(0);
  }
  const std::int64_t w2 = bin_width_ps / 2;
  const Times sorted_b = sorted(b);
  for (const std::int64_t x : sorted(a)) {
    const std::int64_t low = minus(plus(x, offset_ps), range_ps);
    const std::int64_t high = plus(plus(x, offset_ps), range_ps);
    for (const std::int64_t y : sorted_b) {
      if (y < low || y > high) {
        continue;
      }
      const std::int64_t d = minus(minus(y, x), offset_ps);
      const std::int64_t r =
          d >= 0 ? plus(d, w2) / bin_width_ps : minus(0, minus(w2, d) / bin_width_ps);
      const std::int64_t index = plus(half, r);
      if (0 <= index && index < nbins) {
        ++histogram.counts[static_cast<std::size_t>(index)];
      }
    }
  }
  return histogram;
}

double rms_ps(const Histogram& histogram) {
  long double total = 0;
  long double weighted = 0;
  for (std::size_t i = 0; i < histogram.counts.size(); ++i) {
    total += static_cast<long double>(histogram.counts[i]);
    weighted += static_cast<long double>(histogram.counts[i]) *
                static_cast<long double>(histogram.centers[i]);
  }
  const double mean = total > 0 ? static_cast<double>(weighted / total) : 0.0;
  long double variance_sum = 0;
  for (std::size_t i = 0; i < histogram.counts.size(); ++i) {
    const long double deviation = static_cast<long double>(histogram.centers[i]) - mean;
    variance_sum += static_cast<long double>(histogram.counts[i]) * (deviation * deviation);
  }
  if (!(total > 0)) {
    return 0.0;
  }
  return static_cast<double>(std::sqrt(variance_sum / total));
}

Peak peak(const Histogram& histogram) {
  if (histogram.counts.empty() || histogram.counts.size() != histogram.centers.size()) {
    return {};
  }
  std::size_t best = 0;
  for (std::size_t i = 0; i < histogram.counts.size(); ++i) {
    if (histogram.counts[i] > histogram.counts[best]) {
      best = i;
    }
  }
  return {histogram.counts[best], histogram.centers[best]};
}

std::uint64_t side_window(const Histogram& histogram, std::int64_t center) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < histogram.counts.size() && i < histogram.centers.size(); ++i) {
    if (center - 40 <= histogram.centers[i] && histogram.centers[i] <= center + 40) {
      sum += static_cast<std::uint64_t>(histogram.counts[i]);
    }
  }
  return sum;
}

Pairs ranking(const Histogram& histogram) {
  Pairs pairs;
  for (std::size_t i = 0; i < histogram.counts.size() && i < histogram.centers.size(); ++i) {
    pairs.emplace_back(histogram.centers[i], histogram.counts[i]);
  }
  rank(pairs);
  return pairs;
}

Statistics statistics(const std::vector<timing::TimeTag>& tags, double bin_s) {
  Statistics result;
  const double width_s = bin_s > 0.001 ? bin_s : 0.001;
  const double width_ps = width_s * 1e12;
  result.bin_width = width_ps < 9223372036854775808.0 ? static_cast<std::int64_t>(width_ps)
                                                      : std::numeric_limits<std::int64_t>::min();
  for (const timing::TimeTag& tag : tags) {
    const std::size_t channel = tag.channel;
    const std::int64_t t = tag.timestamp_ps;
    if (channel >= 4) {
      continue;
    }
    if (!result.base) {
      result.base = t;
    }
    ++result.count[channel];
    if (result.seen[channel]) {
      const std::int64_t step = minus(t, result.last[channel]);
      if (step < 0) {
        ++result.violations[channel];
      } else if (step > result.max_gap[channel]) {
        result.max_gap[channel] = step;
      }
    }
    result.seen[channel] = true;
    result.last[channel] = t;
    result.times[channel].push_back(t);
    if (result.bin_width < 1) {
      continue;
    }
    const std::int64_t rel = minus(t, *result.base);
    const std::int64_t index = rel < 0 ? 0 : rel / result.bin_width;
    if (index >= 4096) {
      ++result.bin_overflow;
      continue;
    }
    while (static_cast<std::int64_t>(result.bins.size()) < index + 1) {
      result.bins.push_back({0, 0, 0, 0});
    }
    ++result.bins[static_cast<std::size_t>(index)][channel];
  }
  return result;
}

Steps steps(const Times& list) {
  constexpr std::int64_t none = std::numeric_limits<std::int64_t>::max();
  Steps result;
  result.minimum = none;
  for (std::size_t i = 1; i < list.size(); ++i) {
    const std::int64_t step = minus(list[i], list[i - 1]);
    result.minimum = std::min(result.minimum, step);
    const auto size = static_cast<std::uint64_t>(step);
    result.below_10ns += size < 10000 ? 1 : 0;
    result.below_100ns += size < 100000 ? 1 : 0;
    result.below_500ns += size < 500000 ? 1 : 0;
    result.below_900ns += size < 900000 ? 1 : 0;
  }
  if (result.minimum == none) {
    result.minimum = 0;
  }
  return result;
}

Residues residues(const Times& list) {
  Residues result;
  for (const std::int64_t t : list) {
    std::int64_t r = t % 3333;
    if (r < 0) {
      r += 3333;
    }
    ++result.counts[r];
    if (r == 0) {
      ++result.exact_zero;
    }
  }
  for (const auto& [residue, count] : result.counts) {
    result.top.emplace_back(residue, static_cast<std::int64_t>(count));
  }
  rank(result.top);
  if (result.top.size() > 8) {
    result.top.resize(8);
  }
  return result;
}

}  // namespace zelk::reference
