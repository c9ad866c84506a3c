// The kinds of values that options take. Each kind is made of one conversion
// and one set of limits or words, from which come both what the run reads and
// what a check of the arguments says about it.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "smoke_test/config.hpp"
#include "smoke_test/conversions.hpp"
#include "smoke_test/words.hpp"

// How the value of one argument was read.
struct Reading {
  std::size_t length = 0;  // the characters that were read; text may stand behind them
  bool kept = true;        // false: the run goes by another value than the one written
};

// What an option makes of its values, and what a check of the arguments asks
// about that. A text has nothing but `apply`. `read` and `as_read` are missing,
// too, where every value is either taken as it is or rejected.
struct OptionValue {
  void (*apply)(Config& config, const std::string& value);
  Reading (*read)(const std::string& value) = nullptr;  // throws what a conversion throws
  std::string (*as_read)(const Config& config, std::string_view unit) = nullptr;  // "500 s"
  std::string (*allowed)(std::string_view unit) = nullptr;  // "allowed is a number of s"
  std::string_view (*word)(std::size_t i) = nullptr;        // of one that takes one of a few
  std::span<const std::string_view> (*spellings)(std::size_t i) = nullptr;  // of that word
  bool is_file_name = false;
};

namespace option_values {

// ---- Numbers ---------------------------------------------------------------

// Numbers are what the standard conversions make of them, errors included.
constexpr auto as_double = [](const std::string& value, std::size_t* length = nullptr) {
  return std::stod(value, length);
};
constexpr auto as_int = [](const std::string& value, std::size_t* length = nullptr) {
  return std::stoi(value, length);
};
constexpr auto as_int64 = [](const std::string& value, std::size_t* length = nullptr) {
  return std::stoll(value, length);
};
constexpr auto as_unsigned = [](const std::string& value, std::size_t* length = nullptr) {
  return std::stoul(value, length);
};
constexpr auto as_uint64 = [](const std::string& value, std::size_t* length = nullptr) {
  return std::stoull(value, length);
};
constexpr auto as_mask = [](const std::string& value, std::size_t* length = nullptr) {
  return parse_prefixed(value, length);
};

// What the run can go by as it is written. A number beyond is cut to its field,
// or taken as the nearest limit by whoever uses it.
template <typename Number>
struct Limits {
  using Range = std::numeric_limits<Number>;
  static constexpr Number bottom = Range::has_infinity ? -Range::infinity() : Range::lowest();
  static constexpr Number top = Range::has_infinity ? Range::infinity() : Range::max();

  Number least = bottom;
  Number most = top;
  bool takes_nan = true;
  bool checked_later = false;  // with all other arguments: the field keeps any number until then

  [[nodiscard]] constexpr bool holds(Number number) const {
    const bool beyond = number < least || number > most;
    return checked_later || (!beyond && (takes_nan || !is_nan(number)));
  }

  [[nodiscard]] constexpr Number nearest(Number number) const {
    return holds(number) ? number : number > most ? most : least;
  }

 private:
  static constexpr bool is_nan([[maybe_unused]] Number number) {
    if constexpr (std::is_floating_point_v<Number>) {
      return std::isnan(number);
    }
    return false;
  }
};

template <auto convert>
using NumberOf = std::invoke_result_t<decltype(convert), const std::string&>;

template <auto field>
using FieldOf = std::remove_reference_t<decltype(std::declval<Config&>().*field)>;

// Every number of the conversion that the field has room for.
template <auto field, auto convert>
constexpr Limits<NumberOf<convert>> limits_of_field() {
  Limits<NumberOf<convert>> limits;
  if constexpr (sizeof(FieldOf<field>) < sizeof(NumberOf<convert>)) {
    limits.most = std::numeric_limits<FieldOf<field>>::max();
  }
  return limits;
}
template <auto field, auto convert>
inline constexpr auto room = limits_of_field<field, convert>();

// The fewest digits that are read back as the same number, without an exponent
// where a person would write none.
template <typename Number>
std::string to_text(Number number) {
  std::array<char, 64> text{};
  char* const last = text.data() + text.size();
  if constexpr (std::is_floating_point_v<Number>) {
    const double magnitude = std::abs(number);
    if (magnitude == 0.0 || (magnitude >= 1e-6 && magnitude < 1e15)) {
      return {text.data(), std::to_chars(text.data(), last, number, std::chars_format::fixed).ptr};
    }
  }
  return {text.data(), std::to_chars(text.data(), last, number).ptr};
}

inline std::string with_unit(const std::string& number, std::string_view unit) {
  return unit.empty() ? number : number + " " + std::string(unit);
}

// Sets a field to the value as it is read, cut to the field's width.
template <auto field, auto read>
void set(Config& config, const std::string& value) {
  config.*field = static_cast<FieldOf<field>>(read(value));
}

template <auto convert, const auto& limits>
Reading read_number(const std::string& value) {
  Reading reading;
  const auto number = convert(value, &reading.length);
  const bool wraps = std::is_unsigned_v<decltype(number)> && value.find('-') < reading.length;
  reading.kept = !wraps && limits.holds(number);
  return reading;
}

template <auto field, auto convert, const auto& limits>
std::string number_as_read(const Config& config, std::string_view unit) {
  return with_unit(to_text(limits.nearest(static_cast<NumberOf<convert>>(config.*field))), unit);
}

template <typename Number>
std::string range_text(const Limits<Number>& limits) {
  const bool has_least = std::is_unsigned_v<Number> || limits.least > limits.bottom;
  const bool has_most = limits.most < limits.top;
  if (has_least && has_most) {
    return ", " + to_text(limits.least) + " to " + to_text(limits.most);
  }
  return has_least  ? ", at least " + to_text(limits.least)
         : has_most ? ", at most " + to_text(limits.most)
                    : "";
}

template <const auto& limits>
std::string allowed_number(std::string_view unit) {
  constexpr bool whole = std::is_integral_v<decltype(limits.least)>;
  constexpr bool or_nan = !whole && limits.takes_nan;
  const std::string range = range_text(limits);
  return (whole ? "allowed is a whole decimal number" : "allowed is a number") +
         (unit.empty() ? "" : " of " + std::string(unit)) + range +
         (or_nan && !range.empty() ? ", or nan" : "");
}

template <auto field, auto convert, const auto& limits = room<field, convert>>
constexpr OptionValue number{.apply = set<field, convert>,
                             .read = read_number<convert, limits>,
                             .as_read = number_as_read<field, convert, limits>,
                             .allowed = allowed_number<limits>};

// ---- Masks -----------------------------------------------------------------

inline std::string mask_text(std::uint8_t mask) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  return {'0', 'x', digits[mask >> 4], digits[mask & 0xF]};
}

template <std::uint8_t mask>
constexpr auto masked = [](const std::string& value) { return parse_u32(value) & mask; };

template <std::uint8_t mask>
inline constexpr Limits<unsigned long> mask_limits{.most = mask};

template <auto field>
std::string mask_as_read(const Config& config, std::string_view /*unit*/) {
  return mask_text(config.*field);
}

template <std::uint8_t mask>
std::string allowed_mask(std::string_view /*unit*/) {
  return "allowed is 0 to " + mask_text(mask);
}

// A field of which the bits of `mask` exist: all below its highest one.
template <auto field, std::uint8_t mask>
constexpr OptionValue bits{.apply = set<field, masked<mask>>,
                           .read = read_number<as_mask, mask_limits<mask>>,
                           .as_read = mask_as_read<field>,
                           .allowed = allowed_mask<mask>};

// ---- Words -----------------------------------------------------------------

// What the text means in the table; nothing when it is none of the words.
template <typename Value, std::size_t count>
std::optional<Value> look_up(const std::array<Word<Value>, count>& words,
                             const std::string& value) {
  const std::string text = lower_ascii(value);
  for (const Word<Value>& word : words) {
    if (!text.empty() && std::ranges::find(word.spellings, text) != word.spellings.end()) {
      return std::make_optional(word.value);
    }
  }
  return std::nullopt;
}

template <const auto& words, auto otherwise>
constexpr auto word_or =
    [](const std::string& value) { return look_up(words, value).value_or(otherwise); };

template <const auto& words>
Reading read_word(const std::string& value) {
  return {.length = value.size(), .kept = look_up(words, value).has_value()};
}

// The chief spelling of a value that stands in the table.
template <typename Value, std::size_t count>
std::string spelling_of(const std::array<Word<Value>, count>& words,
                        std::type_identity_t<Value> value) {
  return std::string(std::ranges::find(words, value, &Word<Value>::value)->spellings[0]);
}

template <auto field, const auto& words>
std::string word_as_read(const Config& config, std::string_view /*unit*/) {
  return spelling_of(words, config.*field);
}

// "allowed are raw64, delta32 and packed_delta": the first `count` words.
template <const auto& words, std::size_t count = words.size()>
std::string allowed_words(std::string_view /*unit*/) {
  std::string text(count > 1 ? "allowed are " : "allowed is ");
  for (std::size_t i = 0; i < count; ++i) {
    text += i == 0 ? "" : i + 1 < count ? ", " : " and ";
    text += chief_word<words>(i);
  }
  return text;
}

template <auto field, const auto& words, auto otherwise>
constexpr OptionValue one_of{.apply = set<field, word_or<words, otherwise>>,
                             .read = read_word<words>,
                             .as_read = word_as_read<field, words>,
                             .allowed = allowed_words<words>,
                             .word = chief_word<words>,
                             .spellings = spellings<words>};

// Every text but the four that mean false means true.
template <auto field>
constexpr OptionValue boolean = one_of<field, bool_words, true>;

// ---- Texts -----------------------------------------------------------------

template <auto field>
constexpr OptionValue text{
    .apply = [](Config& config, const std::string& value) { config.*field = value; }};

template <auto field>
constexpr OptionValue file_name{.apply = text<field>.apply, .is_file_name = true};

// A text that joins those given before.
template <auto field>
constexpr OptionValue one_more_text{
    .apply = [](Config& config, const std::string& value) { (config.*field).push_back(value); }};

template <auto field>
constexpr OptionValue one_more_file_name{.apply = one_more_text<field>.apply, .is_file_name = true};

}  // namespace option_values
