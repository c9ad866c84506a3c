// Numbers and lists as they stand in the lines for a person.
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

// Fixed-point, as "%.*f" writes it.
inline std::string fixed_text(double value, int decimals) {
  std::array<char, 352> text{};  // the longest double has 309 digits before its point
  std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
  return text.data();
}

// "a", "a and b", "a, b and c".
inline std::string enumerated(const std::vector<std::string>& texts) {
  std::string all;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const bool is_last = i + 1 == texts.size();
    all += i == 0 ? "" : is_last ? " and " : ", ";
    all += texts[i];
  }
  return all;
}
