#include "simulator/signals/npy_header.hpp"

#include <charconv>
#include <optional>
#include <system_error>

#include "simulator/failure.hpp"
#include "simulator/shown_text.hpp"

namespace zelk::simulator::npy {
namespace {

// Takes `end` and what stands before it off the front of `text`. Returns what
// stood before it; none: there is no such end.
std::optional<std::string_view> take_until(std::string_view end, std::string_view& text) {
  const std::size_t place = text.find(end);
  if (place == text.npos) {
    return std::nullopt;
  }
  const std::string_view taken = text.substr(0, place);
  text.remove_prefix(place + end.size());
  return taken;
}

// Blanks and a line feed fill the header up.
bool is_filling(std::string_view text) {
  return text.ends_with('\n') && text.find_first_not_of(' ') == text.size() - 1;
}

// The number in "(N,)", as Python writes it.
std::optional<std::uint64_t> one_length(std::string_view shape) {
  if (!shape.starts_with('(') || !shape.ends_with(",)")) {
    return std::nullopt;
  }
  shape.remove_prefix(1);
  shape.remove_suffix(2);
  std::uint64_t length = 0;
  const char* const end = shape.data() + shape.size();
  const auto [rest, error] = std::from_chars(shape.data(), end, length);
  const bool has_leading_zero = shape.size() > 1 && shape.front() == '0';
  if (error != std::errc{} || rest != end || has_leading_zero) {
    return std::nullopt;
  }
  return length;
}

}  // namespace

void refuse_header(const std::string& path, const std::string& reason) {
  throw Failure(Status::malformed_tag_header,
                "the header of the tag file " + named(path) + ' ' + reason);
}

std::size_t length_bytes(std::uint8_t major, std::uint8_t minor, const std::string& path) {
  if (major == 1 && minor == 0) {
    return 2;
  }
  if (major == 2 && minor == 0) {
    return 4;
  }
  refuse_header(path, "is of version " + std::to_string(major) + '.' + std::to_string(minor) +
                          ", not 1.0 or 2.0");
}

std::uint64_t rows_told(std::string_view text, const std::string& path) {
  const auto before = take_until("{'descr': ", text);
  const auto type = take_until(", 'fortran_order': ", text);
  const auto order = take_until(", 'shape': ", text);
  const auto shape = take_until(", }", text);
  if (before != "" || !type || (order != "False" && order != "True") || !shape ||
      !is_filling(text)) {
    refuse_header(path, "is not as NumPy writes it");
  }
  if (*type != row_type) {
    refuse_header(path, "has rows of the type " + named(*type) + ", not " + named(row_type));
  }
  if (order != "False") {
    refuse_header(path, "has rows in Fortran order");
  }
  const std::optional<std::uint64_t> rows = one_length(*shape);
  if (!rows) {
    refuse_header(path, "has the shape " + named(*shape) + ", not that of one list, `(N,)`");
  }
  return *rows;
}

}  // namespace zelk::simulator::npy
