#include "smoke_test/conversions.hpp"

#include <algorithm>
#include <cctype>

std::string lower_ascii(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

unsigned long parse_prefixed(const std::string& text, std::size_t* length) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  return std::stoul(text, length, hexadecimal ? 16 : 10);
}

std::uint32_t parse_u32(std::string text) {
  return static_cast<std::uint32_t>(parse_prefixed(text));
}
