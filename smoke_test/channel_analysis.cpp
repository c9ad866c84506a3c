#include "smoke_test/channel_analysis.hpp"

#include <algorithm>
#include <limits>

#include "timing/detail/wrapping.hpp"
#include "timing/time_tag.hpp"

using zelk::timing::detail::wrap_sub;

namespace {

constexpr std::size_t top_residue_count = 8;
constexpr double ps_per_ms = 1e9;

}  // namespace

StepStatistics step_statistics(std::span<const std::int64_t> times_ps) {
  StepStatistics statistics;
  statistics.min_step_ps = std::numeric_limits<std::int64_t>::max();
  for (std::size_t i = 1; i < times_ps.size(); ++i) {
    const std::int64_t step = wrap_sub(times_ps[i], times_ps[i - 1]);
    statistics.min_step_ps = std::min(statistics.min_step_ps, step);
    for (std::size_t k = 0; k < StepStatistics::limits_ps.size(); ++k) {
      // As unsigned numbers negative steps are the largest of all.
      const auto limit = static_cast<std::uint64_t>(StepStatistics::limits_ps[k]);
      statistics.below[k] += static_cast<std::uint64_t>(step) < limit ? 1 : 0;
    }
  }
  // There was no step, or every step was the largest number.
  if (statistics.min_step_ps == std::numeric_limits<std::int64_t>::max()) {
    statistics.min_step_ps = 0;
  }
  return statistics;
}

ResidueStatistics residue_statistics(std::span<const std::int64_t> times_ps) {
  constexpr std::int64_t period_ps = zelk::timing::clock_period_ps;
  std::array<std::int64_t, period_ps> counts{};
  for (const std::int64_t time : times_ps) {
    const std::int64_t remainder = time % period_ps;
    ++counts[static_cast<std::size_t>(remainder < 0 ? remainder + period_ps : remainder)];
  }
  ResidueStatistics statistics;
  statistics.exact_zero = static_cast<std::uint64_t>(counts[0]);
  for (std::size_t residue = 0; residue < counts.size(); ++residue) {
    if (counts[residue] != 0) {
      ++statistics.unique;
      add_ranked(statistics.top, {static_cast<std::int64_t>(residue), counts[residue]},
                 top_residue_count);
    }
  }
  return statistics;
}

ChannelAnalysis analyse_channel(const CaptureStatistics& statistics, std::size_t channel) {
  const std::span<const std::int64_t> times_ps = statistics.times_ps()[channel];
  return {.tags = times_ps.size(),
          .monotonic_violations = statistics.monotonic_violations()[channel],
          .max_gap_ms = static_cast<double>(statistics.max_gap_ps()[channel]) / ps_per_ms,
          .steps = step_statistics(times_ps),
          .residues = residue_statistics(times_ps)};
}
