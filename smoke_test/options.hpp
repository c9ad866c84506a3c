// From key=value arguments to a Config. In the table of options one row says
// everything about a key, for the parser and for the help alike.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "smoke_test/config.hpp"
#include "smoke_test/option_values.hpp"

// What an option is about; the help shows the groups in this order.
enum class OptionGroup : std::uint8_t { device, stream, signals, analysis, output };

struct OptionGroupName {
  OptionGroup group;
  std::string_view name;
};

inline constexpr auto option_groups = std::to_array<OptionGroupName>({
    {OptionGroup::device, "device"},
    {OptionGroup::stream, "stream"},
    {OptionGroup::signals, "signals"},
    {OptionGroup::analysis, "analysis"},
    {OptionGroup::output, "output"},
});

struct Option {
  OptionGroup group;
  std::array<std::string_view, 3> keys;  // lower case, the chief one first; unused ones empty
  std::string_view default_text;         // a value that sets the default
  std::string_view unit;                 // empty for texts and plain numbers
  std::string_view description;          // meaning and allowed values, "%" for each of the words
  OptionValue value;
};

std::span<const Option> options();

// The option with this key, in lower case; null when there is none.
const Option* find_option(std::string_view key);

// The text with each "%" replaced by the next word.
std::string fill_in(std::string_view text, std::string_view (*word)(std::size_t i));

// Applies one option. The key is case-insensitive; an unknown key is ignored.
// Throws std::runtime_error for a rejected text, and what std::stoi and its
// relatives throw for a number that cannot be read.
void apply_arg(Config& config, std::string key, std::string value);

// One command-line argument: what stands before its first "=", without a
// leading "--", and what stands behind. Views of the argument.
struct SplitArgument {
  std::string_view key;
  std::optional<std::string_view> value;  // none without "="
};

SplitArgument split_argument(std::string_view argument);

// Applies one command-line argument; one without "=" is ignored.
void apply_argument(Config& config, std::string_view argument);
