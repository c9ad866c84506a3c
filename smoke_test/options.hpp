// The table of command-line options: one row says everything about a key, for
// the parser and for the help text alike.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

#include "smoke_test/config.hpp"

struct Option {
  std::array<std::string_view, 3> keys;  // lower case, the chief one first; unused ones empty
  std::string_view default_text;         // a value that sets the default
  std::string_view unit;                 // empty for texts and plain numbers
  std::string_view description;          // meaning and allowed values
  void (*apply)(Config& config, const std::string& value);
};

std::span<const Option> options();

// The option with this lower-case key, or null.
const Option* find_option(std::string_view key);
