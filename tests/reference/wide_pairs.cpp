#include "tests/reference/wide_pairs.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace zelk::reference {
namespace {

__extension__ typedef __int128 Wide;

struct Bin {
  Wide number = 0;
  std::int64_t pairs = 0;
};
using Bins = std::vector<Bin>;  // ascending, none of them empty

Wide wrapped(Wide number) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(number));
}

std::int64_t center(Wide bin) {
  return static_cast<std::int64_t>(
      std::min(8 * bin, Wide{std::numeric_limits<std::int64_t>::max()}));
}

// The number of the last bin; the first has the same below 0.
Wide last_bin(Wide range) {
  if (range < 1) {
    return 0;
  }
  Wide bins = (2 * range + 7) / 8;
  if (bins % 2 == 0) {
    ++bins;
  }
  return bins / 2;
}

Bins filled_bins(const Times& a, const Times& b, Wide range, Wide offset) {
  std::vector<Wide> all;
  if (range < 1) {
    return {};
  }
  const bool wraps = range <= Wide{1} << 62;
  for (const std::int64_t x : a) {
    const Wide middle = wraps ? wrapped(x + offset) : x + offset;
    const Wide low = wraps ? wrapped(middle - range) : middle - range;
    const Wide high = wraps ? wrapped(middle + range) : middle + range;
    for (const std::int64_t y : b) {
      if (y < low || y > high) {
        continue;
      }
      const Wide difference = y - middle;
      const Wide bin = difference >= 0 ? (difference + 4) / 8 : -((4 - difference) / 8);
      if (-last_bin(range) <= bin && bin <= last_bin(range)) {
        all.push_back(bin);
      }
    }
  }
  std::sort(all.begin(), all.end());
  Bins bins;
  for (const Wide bin : all) {
    if (bins.empty() || bins.back().number != bin) {
      bins.push_back({.number = bin, .pairs = 0});
    }
    ++bins.back().pairs;
  }
  return bins;
}

double spread(const Bins& bins) {
  long double total = 0;
  long double weighted = 0;
  for (const auto& [bin, count] : bins) {
    total += static_cast<long double>(count);
    weighted += static_cast<long double>(count) * static_cast<long double>(center(bin));
  }
  if (!(total > 0)) {
    return 0.0;
  }
  const auto mean = static_cast<double>(weighted / total);
  long double variance_sum = 0;
  for (const auto& [bin, count] : bins) {
    const long double deviation = static_cast<long double>(center(bin)) - mean;
    variance_sum += static_cast<long double>(count) * deviation * deviation;
  }
  return static_cast<double>(std::sqrt(variance_sum / total));
}

Pairs ten_fullest(const Bins& bins, Wide last) {
  Pairs all;
  for (const auto& [bin, count] : bins) {
    all.emplace_back(center(bin), count);
  }
  std::size_t empty = 0;
  std::size_t filled = 0;  // bins before the next one
  for (Wide bin = -last; bin <= last && empty < 10; ++bin) {
    if (filled < bins.size() && bins[filled].number == bin) {
      ++filled;
    } else {
      all.emplace_back(center(bin), 0);
      ++empty;
    }
  }
  std::sort(all.begin(), all.end(), [](const auto& left, const auto& right) {
    return left.second != right.second ? left.second > right.second : left.first < right.first;
  });
  all.resize(std::min<std::size_t>(all.size(), 10));
  return all;
}

}  // namespace

WidePairs wide_pairs(const Times& a, const Times& b, std::int64_t range_ps,
                     std::int64_t offset_ps) {
  const Bins bins = filled_bins(a, b, range_ps, offset_ps);
  WidePairs figures;
  figures.peak.center = center(-last_bin(range_ps));
  for (const auto& [bin, count] : bins) {
    if (count > figures.peak.count) {
      figures.peak = {.count = count, .center = center(bin)};
    }
    if (3333 - 40 <= 8 * bin && 8 * bin <= 3333 + 40) {
      figures.plus_window += static_cast<std::uint64_t>(count);
    }
    if (-3333 - 40 <= 8 * bin && 8 * bin <= -3333 + 40) {
      figures.minus_window += static_cast<std::uint64_t>(count);
    }
  }
  figures.rms_ps = spread(bins);
  figures.top = ten_fullest(bins, last_bin(range_ps));
  return figures;
}

}  // namespace zelk::reference
