// NumPy array files of tags, made by code of the tests' own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zelk::test_support {

inline std::string little_endian(std::uint64_t value, std::size_t bytes) {
  std::string text;
  for (; bytes > 0; --bytes, value >>= 8) {
    text += static_cast<char>(value & 0xFF);
  }
  return text;
}

// The file's beginning up to the first row, for a dictionary as Python writes it,
// filled up with blanks to a multiple of 64 bytes as NumPy does.
inline std::string npy_beginning(const std::string& dictionary, int major = 1) {
  const std::size_t length_bytes = major == 1 ? 2 : 4;
  std::string text = dictionary;
  while ((8 + length_bytes + text.size() + 1) % 64 != 0) {
    text += ' ';
  }
  text += '\n';
  return std::string("\x93NUMPY") + static_cast<char>(major) + '\0' +
         little_endian(text.size(), length_bytes) + text;
}

// Each part of the dictionary as it stands for `shape` tags.
inline std::string npy_dictionary(
    const std::string& shape,
    const std::string& type = "[('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<i8')]",
    const std::string& fortran_order = "False") {
  return "{'descr': " + type + ", 'fortran_order': " + fortran_order + ", 'shape': " + shape +
         ", }";
}

inline std::string npy_beginning_for(std::uint64_t count) {
  return npy_beginning(npy_dictionary("(" + std::to_string(count) + ",)"));
}

inline std::string npy_row(int channel, std::int64_t time_ps, char padding = '\0') {
  return static_cast<char>(channel) + std::string(7, padding) +
         little_endian(static_cast<std::uint64_t>(time_ps), 8);
}

}  // namespace zelk::test_support
