// Figures of one channel, computed from its times (ps) after the capture. Pure
// functions, usable from any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "smoke_test/capture_statistics.hpp"
#include "smoke_test/ranking.hpp"

struct StepStatistics {
  // Steps below these limits are counted, each under every limit above it.
  static constexpr std::array<std::int64_t, 4> limits_ps{10'000, 100'000, 500'000, 900'000};

  std::int64_t min_step_ps = 0;  // 0 for fewer than two times
  std::array<std::uint64_t, 4> below{};
  bool in_order = true;  // no time is earlier than the one before it
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

// Everything that is calculated for one channel, its time bins apart.
struct ChannelAnalysis {
  std::uint64_t tags = 0;
  std::uint64_t monotonic_violations = 0;
  double max_gap_ms = 0.0;
  StepStatistics steps;
  ResidueStatistics residues;
  // Beyond the report; none where there are too few tags for it.
  std::optional<double> rate_hz;           // steps over the time from first to last tag
  std::optional<double> violations_share;  // of the tags
};

ChannelAnalysis analyse_channel(const CaptureStatistics& statistics, std::size_t channel);
