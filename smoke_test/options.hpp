// From key=value arguments to a Config. In the table of options one row says
// everything about a key, for the parser and for the help alike.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "smoke_test/config.hpp"

struct Option {
  std::array<std::string_view, 3> keys;  // lower case, the chief one first; unused ones empty
  std::string_view default_text;         // a value that sets the default
  std::string_view unit;                 // empty for texts and plain numbers
  std::string_view description;          // meaning and allowed values, "%" for each of the words
  void (*apply)(Config& config, const std::string& value);
  std::string_view (*word)(std::size_t i) = nullptr;  // of an option that takes one of a few
};

std::span<const Option> options();

// The text with each "%" replaced by the next word.
std::string fill_in(std::string_view text, std::string_view (*word)(std::size_t i));

// Applies one option. The key is case-insensitive; an unknown key is ignored.
// Throws std::runtime_error for a rejected text, and what std::stoi and its
// relatives throw for a number that cannot be read.
void apply_arg(Config& config, std::string key, std::string value);

// Applies one command-line argument: a leading "--" is removed, the text is
// split at the first "=", and an argument without "=" is ignored.
void apply_argument(Config& config, std::string_view argument);

// The text with every byte passed through tolower.
std::string lower_ascii(std::string text);

// Unsigned number, base 16 after "0x" or "0X" and base 10 otherwise, cut to 32
// bits. Throws what std::stoul throws.
std::uint32_t parse_u32(std::string text);
