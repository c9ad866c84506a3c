// Rankings of the report: the fullest bins, or residues, first.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

// A (value, count) pair of a ranking.
using Ranked = std::pair<std::int64_t, std::int64_t>;

// The order of every ranking: larger counts first, of equals the smaller value.
inline bool ranks_before(const Ranked& left, const Ranked& right) {
  return left.second != right.second ? left.second > right.second : left.first < right.first;
}

// Puts the entry into its place, unless it comes after the first `most`. Almost
// every entry of a long list fails the comparison with the last one kept.
inline void add_ranked(std::vector<Ranked>& ranking, const Ranked& entry, std::size_t most) {
  if (ranking.size() == most) {
    if (most == 0 || !ranks_before(entry, ranking.back())) {
      return;
    }
    ranking.pop_back();
  }
  ranking.insert(std::ranges::upper_bound(ranking, entry, ranks_before), entry);
}
