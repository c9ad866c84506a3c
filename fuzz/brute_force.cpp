#include "fuzz/brute_force.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>

#include "tests/reference/literal_analysis.hpp"

namespace zelk::fuzz {
namespace {

constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

bool fits(Wide value) {
  return lowest <= value && value <= highest;
}

Wide size_of(Wide value) {
  return value < 0 ? -value : value;
}

// Tags of `a` with a partner within the window, for ascending lists. None where
// the lists are in another order or a bound does not fit.
std::optional<std::uint64_t> all_coincidences(const Times& a, const Times& b, std::int64_t window) {
  if (!std::ranges::is_sorted(a) || !std::ranges::is_sorted(b)) {
    return std::nullopt;
  }
  std::uint64_t count = 0;
  for (const Wide x : a) {
    if (!fits(x - window) || !fits(x + window)) {
      return std::nullopt;
    }
    count += std::ranges::any_of(b, [=](Wide y) { return size_of(y - x) <= window; }) ? 1U : 0U;
  }
  return count;
}

// The difference from x to the nearest of `b`, of two the later one. None where
// any difference does not fit into 64 bits.
std::optional<Wide> nearest_difference(Wide x, const Times& b) {
  Wide nearest = Wide{b.front()} - x;
  for (const Wide y : b) {
    const Wide difference = y - x;
    if (!fits(difference)) {
      return std::nullopt;
    }
    if (size_of(difference) < size_of(nearest) ||
        (size_of(difference) == size_of(nearest) && difference > 0)) {
      nearest = difference;
    }
  }
  return nearest;
}

std::int64_t bin_number(std::int64_t difference, std::int64_t width) {
  const Wide half_width = width / 2;
  return difference >= 0 ? wrapped(difference + half_width) / width
                         : wrapped(-Wide{wrapped(half_width - difference) / width});
}

// Larger counts first, of equals the smaller value.
void rank(Ranking& ranking) {
  std::ranges::sort(ranking, [](const auto& left, const auto& right) {
    return left.second != right.second ? left.second > right.second : left.first < right.first;
  });
}

}  // namespace

Steps steps_of(const Times& times) {
  constexpr std::array<std::int64_t, 4> limits{10'000, 100'000, 500'000, 900'000};
  Steps steps;
  std::int64_t smallest = highest;
  for (std::size_t i = 1; i < times.size(); ++i) {
    const std::int64_t step = wrapped(Wide{times[i]} - times[i - 1]);
    steps.violations += step < 0 ? 1U : 0U;
    steps.max_gap_ps = std::max(steps.max_gap_ps, step);
    smallest = std::min(smallest, step);
    for (std::size_t k = 0; k < limits.size(); ++k) {
      steps.below[k] += step >= 0 && step < limits[k] ? 1U : 0U;
    }
  }
  steps.min_step_ps = smallest == highest ? 0 : smallest;
  return steps;
}

Residues residues_of(const Times& times) {
  std::map<std::int64_t, std::int64_t> counts;
  for (const Wide time : times) {
    ++counts[wrapped((time % 3333 + 3333) % 3333)];
  }
  Residues residues;
  residues.unique = counts.size();
  residues.exact_zero = counts.contains(0) ? static_cast<std::uint64_t>(counts.at(0)) : 0;
  residues.top.assign(counts.begin(), counts.end());
  rank(residues.top);
  residues.top.resize(std::min<std::size_t>(residues.top.size(), 8));
  return residues;
}

TimeRows time_rows_of(const std::vector<timing::TimeTag>& tags, double width_s) {
  TimeRows result;
  const double width_ps = width_s * 1e12;
  if (!(width_ps < 9223372036854775808.0)) {
    return result;
  }
  std::optional<std::int64_t> base;
  for (const timing::TimeTag& tag : tags) {
    if (tag.channel > 3) {
      continue;
    }
    base = base.value_or(tag.timestamp_ps);
    const std::int64_t elapsed = wrapped(Wide{tag.timestamp_ps} - *base);
    const std::int64_t index = elapsed < 0 ? 0 : elapsed / static_cast<std::int64_t>(width_ps);
    if (index >= 4096) {
      ++result.overflow;
      continue;
    }
    const auto row = static_cast<std::size_t>(index);
    result.rows.resize(std::max(result.rows.size(), row + 1));
    ++result.rows[row][tag.channel];
  }
  return result;
}

std::uint64_t coincidences_of(const Times& a, const Times& b, std::int64_t window) {
  if (window < 0) {
    return 0;
  }
  const std::optional<std::uint64_t> all = all_coincidences(a, b, window);
  return all ? *all : reference::count_coincidences(a, b, window);
}

Offset offset_of(const Times& a, const Times& b, std::int64_t window) {
  if (a.empty() || b.empty()) {
    return {};
  }
  Times sorted = a;
  std::ranges::sort(sorted);
  const std::size_t stride = a.size() < 8000 ? 1 : a.size() / 4000;
  Times kept;
  for (std::size_t i = 0; i < sorted.size() && kept.size() < 4000; i += stride) {
    const std::optional<Wide> nearest = nearest_difference(sorted[i], b);
    if (!nearest) {
      const std::optional<std::int64_t> literal = reference::offset_estimate(a, b, window);
      return {.offset_ps = literal.value_or(0), .valid = literal.has_value()};
    }
    if (size_of(*nearest) <= window) {
      kept.push_back(wrapped(*nearest));
    }
  }
  std::ranges::sort(kept);
  return kept.empty() ? Offset{} : Offset{.offset_ps = kept[kept.size() / 2], .valid = true};
}

Wide number_of_bins(Wide range, Wide width) {
  const Wide bins = (2 * range + width - 1) / width;
  return bins % 2 == 0 ? bins + 1 : bins;
}

Bins bins_of(const Times& a, const Times& b, std::int64_t range, std::int64_t width,
             std::int64_t offset_ps) {
  Bins bins;
  if (range < 1 || width < 1) {
    return bins;
  }
  bins.half = wrapped(number_of_bins(range, width) / 2);
  bins.width_ps = width;
  for (const Wide x : a) {
    const Wide center = wrapped(x + offset_ps);
    const std::int64_t low = wrapped(center - range);
    const std::int64_t high = wrapped(center + range);
    for (const Wide y : b) {
      if (low <= y && y <= high) {
        const Wide number = bin_number(wrapped(y - x - offset_ps), width);
        if (-bins.half <= number && number <= bins.half) {
          ++bins.counts[wrapped(number)];
        }
      }
    }
  }
  return bins;
}

Bins pair_bins_of(const Times& a, const Times& b, std::int64_t window, std::int64_t offset_ps) {
  constexpr std::int64_t width = 8;
  if (window <= std::int64_t{1} << 62) {
    return bins_of(a, b, window, width, offset_ps);
  }
  Bins bins;
  bins.half = wrapped(number_of_bins(window, width) / 2);
  bins.width_ps = width;
  for (const Wide x : a) {
    for (const Wide y : b) {
      const Wide difference = y - x - offset_ps;
      if (size_of(difference) <= window) {
        const Wide number = (size_of(difference) + width / 2) / width;
        ++bins.counts[wrapped(difference < 0 ? -number : number)];
      }
    }
  }
  return bins;
}

Ranking top_ten(const Bins& bins) {
  Ranking top;
  for (const auto& [number, count] : bins.counts) {
    top.emplace_back(bins.center(number), count);
  }
  rank(top);
  for (Wide number = -bins.half; number <= bins.half && top.size() < 10; ++number) {
    if (bins.count(wrapped(number)) == 0) {
      top.emplace_back(bins.center(wrapped(number)), 0);
    }
  }
  top.resize(std::min<std::size_t>(top.size(), 10));
  return top;
}

std::uint64_t side_window(const Bins& bins, std::int64_t center_ps) {
  std::int64_t sum = 0;
  for (const auto& [number, count] : bins.counts) {
    sum += size_of(Wide{bins.center(number)} - center_ps) <= 40 ? count : 0;
  }
  return static_cast<std::uint64_t>(sum);
}

namespace {

double rounded_rms_of(const Bins& bins) {
  long double total = 0;
  long double weighted = 0;
  for (const auto& [number, count] : bins.counts) {
    total += static_cast<long double>(count);
    weighted += static_cast<long double>(count) * static_cast<long double>(bins.center(number));
  }
  const auto mean = static_cast<double>(weighted / total);
  long double squares = 0;
  for (const auto& [number, count] : bins.counts) {
    const long double distance = static_cast<long double>(bins.center(number)) - mean;
    squares += static_cast<long double>(count) * (distance * distance);
  }
  return static_cast<double>(std::sqrt(squares / total));
}

}  // namespace

double rms_of(const Bins& bins) {
  constexpr std::int64_t exact_up_to_ps = std::int64_t{1} << 40;
  if (!bins.counts.empty() && (bins.center(bins.counts.begin()->first) < -exact_up_to_ps ||
                               bins.center(bins.counts.rbegin()->first) > exact_up_to_ps)) {
    return rounded_rms_of(bins);
  }
  Wide total = 0;
  Wide sum = 0;
  Wide squares = 0;
  for (const auto& [number, count] : bins.counts) {
    const Wide center = bins.center(number);
    total += count;
    sum += count * center;
    squares += count * center * center;
  }
  if (total == 0) {
    return 0.0;
  }
  const Wide variance = total * squares - sum * sum;  // times the square of the total
  return static_cast<double>(std::sqrt(static_cast<long double>(variance)) /
                             static_cast<long double>(total));
}

}  // namespace zelk::fuzz
