#include "smoke_test/channel_analysis.hpp"

#include <algorithm>
#include <limits>

#include "smoke_test/share.hpp"
#include "smoke_test/time_blocks.hpp"
#include "timing/detail/wrapping.hpp"
#include "timing/time_tag.hpp"

using zelk::timing::detail::wrap_sub;

namespace {

constexpr std::size_t top_residue_count = 8;
constexpr double ps_per_ms = 1e9;
constexpr double ps_per_s = 1e12;

// Counts the steps between the times of blocks.
class StepCounter {
 public:
  // Steps as they are have 64 bits, which the smallest common instruction set
  // cannot compare side by side. Nearly all of them fit into 31 bits, and all
  // limits do: cut off there, four are compared at a time. That takes a third
  // of the time of counting one by one. Only the smallest step and the order
  // need the whole number, in the blocks where one was cut off.
  void add(std::span<const std::int64_t> block) {
    Steps steps;
    const bool all_short = cut_off(block, steps);
    const std::int32_t smallest = count(std::span(steps).first(block.size() - 1));
    if (all_short) {
      // So short that the block cannot wrap around and come back.
      statistics_.min_step_ps = std::min<std::int64_t>(statistics_.min_step_ps, smallest);
      statistics_.in_order = statistics_.in_order && block.front() <= block.back();
    } else {
      look_closely(block);
    }
  }

  [[nodiscard]] StepStatistics statistics() const {
    StepStatistics statistics = statistics_;
    // There was no step, or every step was the largest number.
    if (statistics.min_step_ps == std::numeric_limits<std::int64_t>::max()) {
      statistics.min_step_ps = 0;
    }
    return statistics;
  }

 private:
  static constexpr std::int32_t largest_short = std::numeric_limits<std::int32_t>::max();

  static_assert(StepStatistics::limits_ps.back() < largest_short);

  using Steps = std::array<std::int32_t, steps_per_block>;

  // Whether no step had to be cut off. As unsigned numbers negative steps are
  // the largest of all.
  static bool cut_off(std::span<const std::int64_t> block, Steps& steps) {
    std::uint32_t any_excess = 0;
    for (std::size_t i = 1; i < block.size(); ++i) {
      const auto step = static_cast<std::uint64_t>(wrap_sub(block[i], block[i - 1]));
      const auto low = static_cast<std::uint32_t>(step);
      const std::uint32_t excess = static_cast<std::uint32_t>(step >> 32) | (low >> 31);
      steps[i - 1] = excess == 0 ? static_cast<std::int32_t>(low) : largest_short;
      any_excess |= excess;
    }
    return any_excess == 0;
  }

  // Returns the smallest one. One loop per limit is what compilers turn into
  // comparisons of four steps at a time; the steps are in the nearest cache.
  std::int32_t count(std::span<const std::int32_t> steps) {
    for (std::size_t k = 0; k < StepStatistics::limits_ps.size(); ++k) {
      const auto limit = static_cast<std::int32_t>(StepStatistics::limits_ps[k]);
      std::uint32_t below = 0;
      for (const std::int32_t step : steps) {
        below += static_cast<std::uint32_t>(step < limit);
      }
      statistics_.below[k] += below;
    }
    std::int32_t smallest = largest_short;
    for (const std::int32_t step : steps) {
      smallest = std::min(smallest, step);
    }
    return smallest;
  }

  void look_closely(std::span<const std::int64_t> block) {
    for (std::size_t i = 1; i < block.size(); ++i) {
      statistics_.min_step_ps = std::min(statistics_.min_step_ps, wrap_sub(block[i], block[i - 1]));
      statistics_.in_order = statistics_.in_order && block[i - 1] <= block[i];
    }
  }

  StepStatistics statistics_{.min_step_ps = std::numeric_limits<std::int64_t>::max()};
};

// Counts the residues of the times of blocks.
class ResidueCounter {
 public:
  // Counts the first time, which is the one that no block has after another.
  explicit ResidueCounter(std::span<const std::int64_t> times_ps) {
    if (!times_ps.empty()) {
      count(times_ps.first(1));
    }
  }

  void add(std::span<const std::int64_t> block) { count(block.subspan(1)); }

  [[nodiscard]] ResidueStatistics statistics() const {
    ResidueStatistics statistics;
    statistics.exact_zero = static_cast<std::uint64_t>(counts_[0]);
    for (std::size_t residue = 0; residue < counts_.size(); ++residue) {
      if (counts_[residue] != 0) {
        ++statistics.unique;
        add_ranked(statistics.top, {static_cast<std::int64_t>(residue), counts_[residue]},
                   top_residue_count);
      }
    }
    return statistics;
  }

 private:
  static constexpr std::int64_t period_ps = zelk::timing::clock_period_ps;

  void count(std::span<const std::int64_t> times_ps) {
    for (const std::int64_t time : times_ps) {
      const std::int64_t remainder = time % period_ps;
      ++counts_[static_cast<std::size_t>(remainder < 0 ? remainder + period_ps : remainder)];
    }
  }

  std::array<std::int64_t, period_ps> counts_{};
};

// None without two tags, and none when the last one is not later than the first.
std::optional<double> rate_of(std::span<const std::int64_t> times_ps) {
  if (times_ps.size() < 2 || times_ps.back() <= times_ps.front()) {
    return std::nullopt;
  }
  const std::uint64_t length_ps =
      static_cast<std::uint64_t>(times_ps.back()) - static_cast<std::uint64_t>(times_ps.front());
  return static_cast<double>(times_ps.size() - 1) / static_cast<double>(length_ps) * ps_per_s;
}

}  // namespace

StepStatistics step_statistics(std::span<const std::int64_t> times_ps) {
  StepCounter steps;
  for_each_block(times_ps, [&steps](std::span<const std::int64_t> block) { steps.add(block); });
  return steps.statistics();
}

ResidueStatistics residue_statistics(std::span<const std::int64_t> times_ps) {
  ResidueCounter residues(times_ps);
  for_each_block(times_ps,
                 [&residues](std::span<const std::int64_t> block) { residues.add(block); });
  return residues.statistics();
}

ChannelAnalysis analyse_channel(const CaptureStatistics& statistics, std::size_t channel) {
  const std::span<const std::int64_t> times_ps = statistics.times_ps()[channel];
  StepCounter steps;
  ResidueCounter residues(times_ps);
  for_each_block(times_ps, [&](std::span<const std::int64_t> block) {
    steps.add(block);
    residues.add(block);
  });
  const std::uint64_t violations = statistics.monotonic_violations()[channel];
  return {.tags = times_ps.size(),
          .monotonic_violations = violations,
          .max_gap_ms = static_cast<double>(statistics.max_gap_ps()[channel]) / ps_per_ms,
          .steps = steps.statistics(),
          .residues = residues.statistics(),
          .rate_hz = rate_of(times_ps),
          .violations_share = share(violations, times_ps.size())};
}
