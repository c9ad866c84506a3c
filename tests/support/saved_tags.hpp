// Reads what save_tags= left behind, by the page that describes it and without the
// code that wrote it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/file_content.hpp"

namespace zelk::test_support {

using SavedTag = std::pair<unsigned, std::int64_t>;  // channel and time in ps

struct SavedTags {
  std::uint64_t told = 0;         // rows by the header
  std::vector<SavedTag> rows;     // that are there, be they told or not
  std::uint64_t bytes_after = 0;  // of a row that is not whole
};

// Throws std::runtime_error for anything but an array of such rows.
inline SavedTags read_npy(const std::filesystem::path& file) {
  const std::string text = file_content(file);
  const std::string start =
      "{'descr': [('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<i8')], "
      "'fortran_order': False, 'shape': (";
  if (text.size() < 192 || text.compare(10, start.size(), start) != 0 || text[191] != '\n') {
    throw std::runtime_error("no header");
  }
  SavedTags saved;
  saved.told = std::stoull(text.substr(10 + start.size()));
  const auto number = [&text](std::size_t at, int bytes) {
    std::uint64_t value = 0;
    for (int i = bytes - 1; i >= 0; --i) {
      value = value << 8 | static_cast<unsigned char>(text[at + static_cast<std::size_t>(i)]);
    }
    return value;
  };
  std::size_t at = 192;
  for (; at + 16 <= text.size(); at += 16) {
    saved.rows.emplace_back(static_cast<unsigned>(number(at, 8)),  // the padding is zero
                            static_cast<std::int64_t>(number(at + 8, 8)));
  }
  saved.bytes_after = text.size() - at;
  return saved;
}

}  // namespace zelk::test_support
