// What stands in a file, byte for byte.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace zelk::test_support {

// Throws std::runtime_error when the file cannot be read, which fails the test.
inline std::string file_content(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    throw std::runtime_error("no file " + file.string());
  }
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace zelk::test_support
