#include "simulator/shown_text.hpp"

#include <algorithm>

namespace zelk::simulator {
namespace {

constexpr std::string_view gap = "...";

std::string without_control_characters(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  constexpr unsigned char first_printable = 0x20;
  constexpr unsigned char del = 0x7F;
  std::string printable;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= first_printable && byte != del) {
      printable += c;
    } else if (c == '\n') {
      printable += "\\n";
    } else if (c == '\r') {
      printable += "\\r";
    } else if (c == '\t') {
      printable += "\\t";
    } else {
      printable += "\\x";
      printable += digits[byte >> 4];
      printable += digits[byte & 0xF];
    }
  }
  return printable;
}

// Whether a character of UTF-8 goes on with this byte.
bool goes_on(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80;
}

std::string between(char mark, std::string_view text) {
  return mark + in_one_line(text) + mark;
}

}  // namespace

std::string in_one_line(std::string_view text, std::size_t max_bytes) {
  std::string line = without_control_characters(text);
  if (line.size() <= max_bytes) {
    return line;
  }
  // The end says more than the beginning: it holds the name of a file.
  const std::size_t kept = max_bytes - std::min(max_bytes, gap.size());
  std::size_t begin = kept / 3;
  std::size_t end = line.size() - (kept - begin);
  while (begin > 0 && goes_on(line[begin])) {
    --begin;
  }
  while (end < line.size() && goes_on(line[end])) {
    ++end;
  }
  return line.replace(begin, end - begin, gap);
}

std::string named(std::string_view text) {
  return between('`', text);
}

std::string quoted(std::string_view text) {
  return between('"', text);
}

}  // namespace zelk::simulator
