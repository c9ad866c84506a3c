#include "smoke_test/nearest_word.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace {

constexpr std::size_t characters_per_change = 3;

// The fewest changes that turn one text into the other. Row i of the table
// stands for the first i characters of `from`, and only three rows are kept.
std::size_t changes_between(std::string_view from, std::string_view to) {
  using Row = std::vector<std::size_t>;
  Row before_last(to.size() + 1);
  Row last(to.size() + 1);
  Row row(to.size() + 1);
  for (std::size_t j = 0; j <= to.size(); ++j) {
    row[j] = j;
  }
  for (std::size_t i = 1; i <= from.size(); ++i) {
    std::swap(before_last, last);
    std::swap(last, row);
    row[0] = i;
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t another = from[i - 1] == to[j - 1] ? 0 : 1;
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + another});
      if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
        row[j] = std::min(row[j], before_last[j - 2] + 1);
      }
    }
  }
  return row[to.size()];
}

}  // namespace

std::string nearest_word(std::string_view text, std::span<const std::string> words) {
  std::string nearest;
  std::size_t fewest = 0;
  for (const std::string& word : words) {
    const auto [shorter, longer] = std::minmax({text.size(), word.size()});
    // Their difference in length alone takes so many; a long text is not compared.
    if (word.empty() || (longer - shorter) * characters_per_change > longer) {
      continue;
    }
    const std::size_t changes = changes_between(text, word);
    if (changes * characters_per_change <= longer && (nearest.empty() || changes < fewest)) {
      nearest = word;
      fewest = changes;
    }
  }
  return nearest;
}
