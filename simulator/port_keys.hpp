// Every key that a port string may hold behind its "?", one row each: what it
// means, its unit, range and default, and the ports that take it. The page of
// the simulated unit shows the same rows, and the statuses of failed opens are
// made from them: each key has a status of its own for a value that is out of
// range, and one for standing behind a port that does not take it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/failure.hpp"
#include "simulator/port_query.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

enum class KeyKind : std::uint8_t {
  whole,   // a whole number
  number,  // any number, in plain decimal or scientific notation
  words,   // anything else
};

// The kinds of ports, one bit each.
namespace ports {
inline constexpr std::uint32_t unit = 1U << 0;  // ftdi://, the default unit
inline constexpr std::uint32_t tags = 1U << 1;
inline constexpr std::uint32_t every_unit = unit | tags;
inline constexpr std::uint32_t tap = 1U << 30;
inline constexpr std::uint32_t replay = 1U << 31;
}  // namespace ports

struct PortKey {
  std::string_view name;
  std::uint32_t ports;
  KeyKind kind;
  bool per_channel = false;  // takes one value for all channels, or four joined by commas
  std::int64_t lowest = 0;   // of a number
  std::int64_t highest = 0;
  std::string_view unit{};      // of a number; of words: what they may be
  std::string_view standard{};  // what holds without the key; empty: nothing does
  std::string_view meaning;     // one line
};

// The most bits that can be missing at the front of a stream.
inline constexpr std::int64_t max_start_bits = 1'000'000;

// The latest moment of a fault.
inline constexpr std::int64_t max_fault_s = 1'000'000;

inline constexpr auto port_keys = std::to_array<PortKey>({
    // Signals.
    {.name = "file",
     .ports = ports::tags,
     .kind = KeyKind::words,
     .unit = "a path",
     .meaning = "the tag file to play"},
    {.name = "pace",
     .ports = ports::tags | ports::replay,
     .kind = KeyKind::words,
     .unit = "real or max",
     .standard = "real",
     .meaning = "in real time, or as fast as the host reads"},
    {.name = "seed",
     .ports = ports::every_unit,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 4294967295,
     .standard = "1",
     .meaning = "of everything that is random; the same seed gives the same stream"},

    // Tap and replay.
    {.name = "library",
     .ports = ports::tap,
     .kind = KeyKind::words,
     .unit = "a path",
     .meaning = "the real device library"},
    {.name = "port",
     .ports = ports::tap,
     .kind = KeyKind::words,
     .unit = "a port string",
     .meaning = "the real device, as its own library names it"},
    {.name = "cut_short",
     .ports = ports::replay,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 1,
     .standard = "0",
     .meaning = "1 also plays a recording that was never closed, up to its last whole record"},

    // Link.
    {.name = "start_bits",
     .ports = ports::every_unit,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = max_start_bits,
     .unit = "bits",
     .standard = "0",
     .meaning = "missing at the front of each packed_delta stream"},

    // Faults.
    {.name = "fail",
     .ports = ports::every_unit,
     .kind = KeyKind::words,
     .unit = "CALL[#N|@SECONDS]:STATUS[:TEXT], or several of these joined by commas",
     .meaning = "calls that fail, always, the Nth time or from a moment of the stream on"},
    {.name = "silent_at_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = max_fault_s,
     .unit = "s",
     .meaning = "from when on reads wait for their time-out and get nothing"},
    {.name = "silent_for_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = max_fault_s,
     .unit = "s",
     .meaning = "for how long; without it, for ever"},
    {.name = "empty_at_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = max_fault_s,
     .unit = "s",
     .meaning = "from when on reads succeed with no bytes"},
    {.name = "empty_for_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = max_fault_s,
     .unit = "s",
     .meaning = "for how long; without it, for ever"},
    {.name = "hang_at_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = max_fault_s,
     .unit = "s",
     .meaning = "from when on a read never comes back"},
    {.name = "vanish_at_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = max_fault_s,
     .unit = "s",
     .meaning = "from when on every call fails"},
    {.name = "flip_bits",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 1,
     .standard = "0",
     .meaning = "probability of each bit to be flipped"},
    {.name = "lose_bytes",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 1,
     .standard = "0",
     .meaning = "probability of each byte to be lost"},
    {.name = "insert_bytes",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 1,
     .standard = "0",
     .meaning = "probability of a random byte before each byte"},
    {.name = "remove_bits",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 1,
     .standard = "0",
     .meaning = "probability of each bit to be lost"},
    {.name = "insert_bits",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 1,
     .standard = "0",
     .meaning = "probability of a random bit before each bit"},
    {.name = "remove_bit_at_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = max_fault_s,
     .unit = "s",
     .meaning = "when one bit is lost"},
    {.name = "insert_bit_at_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = max_fault_s,
     .unit = "s",
     .meaning = "when one random bit comes in"},
    {.name = "zeros_at_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = max_fault_s,
     .unit = "s",
     .meaning = "from when on every byte is 0x00"},
    {.name = "ones_at_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = max_fault_s,
     .unit = "s",
     .meaning = "from when on every byte is 0xFF"},
    {.name = "reference_unavailable",
     .ports = ports::every_unit,
     .kind = KeyKind::words,
     .unit = "-3, -4 or -7",
     .meaning = "the status of both reference clock calls"},
    {.name = "external_reference",
     .ports = ports::every_unit,
     .kind = KeyKind::words,
     .unit = "none, unlocked or locked",
     .standard = "none",
     .meaning = "what is connected to the external reference input"},
    {.name = "reference_lost_at_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = max_fault_s,
     .unit = "s",
     .meaning = "from when on nothing is connected to it any more"},
});

// The row of `name`. Does not compile for a name that is not in the table.
consteval std::size_t key_row(std::string_view name) {
  for (std::size_t row = 0; row < port_keys.size(); ++row) {
    if (port_keys[row].name == name) {
      return row;
    }
  }
  throw "no such key";
}

// The failure of an open because of the value of a key.
Failure bad_value(std::size_t row, std::string_view value);

// The text of a status that belongs to a key; null for any other status.
const char* key_status_text(std::int32_t status) noexcept;

// Takes keys from `query` as their rows say; a key that is not there has its
// default. Throws Failure for a value outside the key's range.
std::optional<std::string> take_words(PortQuery& query, std::size_t row);
std::int64_t take_whole(PortQuery& query, std::size_t row);
double take_number(PortQuery& query, std::size_t row);
std::optional<double> take_optional_number(PortQuery& query, std::size_t row);  // of no default
std::array<double, timing::channel_count> take_channel_numbers(PortQuery& query, std::size_t row);

// To be called after the last key was taken: throws Failure for one that is
// left, which is either unknown or not for the port.
void expect_all_taken(const PortQuery& query);

}  // namespace zelk::simulator
