// The analysis of a capture, written for plainness and for nothing else: lists
// are copied and sorted, every tag searches for its partners, residues sit in
// a map and rankings are sorted whole. Tests hold it against the real
// routines, so it shares no constant and no code with them. Pure functions of
// their arguments.
//
// Sums and differences wrap around at 64 bits. Magnitudes are compared as
// unsigned numbers, because the most negative number has no signed one.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "timing/time_tag.hpp"

namespace zelk::reference {

using Times = std::vector<std::int64_t>;  // ps

// Tags of `a` that have a partner in `b`, both lists in their stored order. A
// negative window has no partners, even where its bounds wrap around. The bounds
// of a window above 2^62 are exact and never wrap around.
std::uint64_t count_coincidences(const Times& a, const Times& b, std::int64_t window);

// Nothing when no difference was kept.
std::optional<std::int64_t> offset_estimate(const Times& a, const Times& b, std::int64_t window);

struct Histogram {
  Times centers;
  std::vector<std::int64_t> counts;
};

Histogram xcorr_histogram(const Times& a, const Times& b, std::int64_t range_ps,
                          std::int64_t bin_width_ps, std::int64_t offset_ps);

double rms_ps(const Histogram& histogram);

struct Peak {
  std::int64_t count = 0;
  std::int64_t center = 0;
};

Peak peak(const Histogram& histogram);

std::uint64_t side_window(const Histogram& histogram, std::int64_t center);

using Pairs = std::vector<std::pair<std::int64_t, std::int64_t>>;  // (value, count)

// Every bin: larger counts first, of equals the smaller centre.
Pairs ranking(const Histogram& histogram);

struct Statistics {
  std::array<std::uint64_t, 4> count{};
  std::array<Times, 4> times;
  std::array<bool, 4> seen{};
  std::array<std::int64_t, 4> last{};
  std::array<std::uint64_t, 4> violations{};
  std::array<std::int64_t, 4> max_gap{};
  std::optional<std::int64_t> base;
  std::int64_t bin_width = 0;  // below 1: no bins
  std::vector<std::array<std::uint64_t, 4>> bins;
  std::uint64_t bin_overflow = 0;
};

Statistics statistics(const std::vector<timing::TimeTag>& tags, double bin_s);

struct Steps {
  std::int64_t minimum = 0;
  std::uint64_t below_10ns = 0;
  std::uint64_t below_100ns = 0;
  std::uint64_t below_500ns = 0;
  std::uint64_t below_900ns = 0;
};

Steps steps(const Times& list);

struct Residues {
  std::map<std::int64_t, std::uint64_t> counts;
  std::uint64_t exact_zero = 0;
  Pairs top;  // at most eight
};

Residues residues(const Times& list);

}  // namespace zelk::reference
