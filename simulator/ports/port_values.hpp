// The values of the keys in a port string, and the statuses of failed opens
// that come of them: each key has a status of its own for a value that is out
// of range, and one for standing behind a port that does not take it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "simulator/failure.hpp"
#include "simulator/ports/port_keys.hpp"
#include "simulator/ports/port_query.hpp"
#include "simulator/settings.hpp"

namespace zelk::simulator {

// The failure of an open because of the value of a key.
Failure bad_value(std::size_t row, std::string_view value);

// The text of a status that belongs to a key; null for any other status.
const char* key_status_text(std::int32_t status) noexcept;

// Takes keys from `query` as their rows say; a key that is not there has its
// default. Throws Failure for a value outside the key's range.
std::optional<std::string> take_words(PortQuery& query, std::size_t row);
std::int64_t take_whole(PortQuery& query, std::size_t row);
double take_number(PortQuery& query, std::size_t row);
std::optional<double> take_optional_number(PortQuery& query, std::size_t row);  // no default
ChannelNumbers take_channel_numbers(PortQuery& query, std::size_t row);

Pace take_pace(PortQuery& query);
std::uint32_t take_seed(PortQuery& query);

// The value that the key's word stands for; none when the key is not there and
// has no default.
template <typename Value>
std::optional<Value> take_choice(
    PortQuery& query, std::size_t row,
    std::initializer_list<std::pair<std::string_view, Value>> choices) {
  const std::optional<std::string> word = take_words(query, row);
  if (!word) {
    return std::nullopt;
  }
  for (const auto& [name, value] : choices) {
    if (*word == name) {
      return value;
    }
  }
  throw bad_value(row, *word);
}

// To be called after the last key was taken from a port of this kind: throws
// Failure for one that is left, which is either unknown or not for the port.
void expect_all_taken(const PortQuery& query, std::uint32_t kind);

// The failure of an open because a key is missing that a port or another key
// needs, with such a value.
Failure missing_key(std::size_t row, std::string_view who_needs_it, std::string_view value);

}  // namespace zelk::simulator
