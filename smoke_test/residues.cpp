#include <algorithm>
#include <array>

#include "smoke_test/analysis.hpp"

namespace {

constexpr std::size_t top_residue_count = 8;

std::size_t residue_of(std::int64_t time_ps) {
  const std::int64_t remainder = time_ps % zelk::timing::clock_period_ps;
  return static_cast<std::size_t>(remainder < 0 ? remainder + zelk::timing::clock_period_ps
                                                : remainder);
}

}  // namespace

ResidueStatistics residue_statistics(std::span<const std::int64_t> times_ps) {
  std::array<std::int64_t, zelk::timing::clock_period_ps> counts{};
  for (const std::int64_t time : times_ps) {
    ++counts[residue_of(time)];
  }
  std::vector<Ranked> ranking;
  for (std::size_t residue = 0; residue < counts.size(); ++residue) {
    if (counts[residue] != 0) {
      ranking.emplace_back(static_cast<std::int64_t>(residue), counts[residue]);
    }
  }
  ResidueStatistics statistics;
  statistics.unique = ranking.size();
  statistics.exact_zero = static_cast<std::uint64_t>(counts[0]);
  const auto top_end =
      ranking.begin() + static_cast<std::ptrdiff_t>(std::min(ranking.size(), top_residue_count));
  std::partial_sort(ranking.begin(), top_end, ranking.end(), ranks_before);
  statistics.top.assign(ranking.begin(), top_end);
  return statistics;
}
