// Small files as they are read, filled in and written while the program is built. Each
// function throws std::runtime_error when it fails.
#pragma once

#include <cstddef>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

inline std::string read_text(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    throw std::runtime_error("cannot read " + path);
  }
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void write_text(const std::string& path, std::string_view text) {
  std::ofstream out(path, std::ios::binary);
  if (!(out << text).flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

// The text with `filling` in the place of `mark`, which it holds once.
inline std::string filled_in(std::string text, std::string_view mark, std::string_view filling) {
  const std::size_t found = text.find(mark);
  if (found == std::string::npos || text.find(mark, found + 1) != std::string::npos) {
    throw std::runtime_error("the template does not hold " + std::string(mark) + " once");
  }
  return text.replace(found, mark.size(), filling);
}
