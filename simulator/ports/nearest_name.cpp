#include "simulator/ports/nearest_name.hpp"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <string>
#include <vector>

namespace zelk::simulator {
namespace {

// No name is nearly as long.
constexpr std::size_t longest_wrong = 60;

// In shorter texts too many names hold them by chance.
constexpr std::size_t shortest_part = 3;

std::string in_small_letters(std::string_view text) {
  std::string small(text);
  for (char& c : small) {
    if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return small;
}

// How many letters have to be inserted, removed or replaced to make b of a.
std::size_t letters_apart(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);  // from a's beginning to each beginning of b
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

std::optional<std::string_view> only_one_holding(const std::string& part,
                                                 std::span<const std::string_view> names) {
  std::optional<std::string_view> found;
  for (const std::string_view name : names) {
    if (in_small_letters(name).find(part) == std::string::npos) {
      continue;
    }
    if (found) {
      return std::nullopt;
    }
    found = name;
  }
  return found;
}

}  // namespace

std::optional<std::string_view> nearest_name(std::string_view wrong,
                                             std::span<const std::string_view> names) {
  if (wrong.size() > longest_wrong) {
    return std::nullopt;
  }
  const std::string small = in_small_letters(wrong);
  const std::size_t most_apart = std::max<std::size_t>(1, wrong.size() / 3);
  std::size_t least = most_apart + 1;
  std::optional<std::string_view> nearest;
  for (const std::string_view name : names) {
    const std::size_t apart = letters_apart(small, in_small_letters(name));
    if (apart == least) {
      nearest.reset();
    } else if (apart < least) {
      least = apart;
      nearest = name;
    }
  }
  if (least <= most_apart) {
    return nearest;
  }
  return small.size() >= shortest_part ? only_one_holding(small, names) : std::nullopt;
}

}  // namespace zelk::simulator
