// Every key that a port string may hold behind its "?", one row each: what it
// means, its unit, range and default, and the ports that take it. The page of
// the simulated unit shows the same rows.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

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
inline constexpr std::uint32_t pulses = 1U << 2;
inline constexpr std::uint32_t random = 1U << 3;
inline constexpr std::uint32_t pairs = 1U << 4;
inline constexpr std::uint32_t burst = 1U << 5;
inline constexpr std::uint32_t silent = 1U << 6;
inline constexpr std::uint32_t every_unit = unit | tags | pulses | random | pairs | burst | silent;
inline constexpr std::uint32_t tap = 1U << 7;
inline constexpr std::uint32_t replay = 1U << 8;
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

// Seconds from the start of the stream, or for how many of them.
constexpr PortKey fault_time(std::string_view name, std::string_view meaning) {
  return {.name = name,
          .ports = ports::every_unit,
          .kind = KeyKind::number,
          .highest = max_fault_s,
          .unit = "s",
          .meaning = meaning};
}

constexpr PortKey fault_probability(std::string_view name, std::string_view meaning) {
  return {.name = name,
          .ports = ports::every_unit,
          .kind = KeyKind::number,
          .highest = 1,
          .standard = "0",
          .meaning = meaning};
}

inline constexpr auto port_keys = std::to_array<PortKey>({
    // Signals.
    {.name = "file",
     .ports = ports::tags,
     .kind = KeyKind::words,
     .unit = "a path",
     .meaning = "the tag file to play"},
    {.name = "loop",
     .ports = ports::tags,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 1,
     .standard = "0",
     .meaning = "1: the file starts again after its end"},
    {.name = "loop_gap_ps",
     .ports = ports::tags,
     .kind = KeyKind::whole,
     .lowest = 1,
     .highest = 1000000000000,
     .unit = "ps",
     .standard = "1000000000",
     .meaning = "from the last tag of a round to the first of the next"},
    {.name = "frequency_hz",
     .ports = ports::pulses,
     .kind = KeyKind::number,
     .lowest = 1,
     .highest = 50000000,
     .unit = "Hz",
     .standard = "100000",
     .meaning = "of the pulses on every channel"},
    {.name = "delay_ps",
     .ports = ports::pulses,
     .kind = KeyKind::number,
     .per_channel = true,
     .lowest = 0,
     .highest = 1000000000,
     .unit = "ps",
     .standard = "0",
     .meaning = "of a channel's pulses"},
    {.name = "jitter_ps",
     .ports = ports::pulses | ports::pairs,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 1000000,
     .unit = "ps rms",
     .standard = "40",
     .meaning = "of each pulse and of each event of a pair, at most 3.5 times this"},
    {.name = "rate_hz",
     .ports = ports::random,
     .kind = KeyKind::number,
     .per_channel = true,
     .lowest = 0,
     .highest = 20000000,
     .unit = "Hz",
     .standard = "10000",
     .meaning = "mean rate of random events"},
    {.name = "pair_rate_hz",
     .ports = ports::pairs,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 20000000,
     .unit = "Hz",
     .standard = "20000",
     .meaning = "mean rate of pairs, which come at random times"},
    {.name = "pair_delay_ps",
     .ports = ports::pairs,
     .kind = KeyKind::number,
     .lowest = -1000000000,
     .highest = 1000000000,
     .unit = "ps",
     .standard = "120",
     .meaning = "of a pair's event on channel_b after the one on channel_a"},
    {.name = "channel_a",
     .ports = ports::pairs,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 3,
     .standard = "0",
     .meaning = "of the first event of a pair"},
    {.name = "channel_b",
     .ports = ports::pairs,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 3,
     .standard = "1",
     .meaning = "of the second event, and may be the same"},
    {.name = "burst_us",
     .ports = ports::burst,
     .kind = KeyKind::whole,
     .lowest = 1,
     .highest = 10000000,
     .unit = "us",
     .standard = "1000",
     .meaning =
         "length of a train at the highest rate of the link, on the enabled channels in turn"},
    {.name = "pause_us",
     .ports = ports::burst,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 10000000,
     .unit = "us",
     .standard = "9000",
     .meaning = "silence between two trains"},
    {.name = "pace",
     .ports = ports::every_unit | ports::replay,
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
    {.name = "background_hz",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .per_channel = true,
     .lowest = 0,
     .highest = 20000000,
     .unit = "Hz",
     .standard = "0",
     .meaning = "mean rate of random events on top of the signal, before the efficiency"},
    {.name = "amplitude_v",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .per_channel = true,
     .lowest = 0,
     .highest = 10,
     .unit = "V",
     .standard = "2.5",
     .meaning = "height of a channel's pulses against its threshold; 0: the channel is dead"},
    {.name = "efficiency",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .per_channel = true,
     .lowest = 0,
     .highest = 1,
     .standard = "1",
     .meaning = "chance that a detector detects an event"},
    {.name = "detector_dead_time_ps",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 1000000000,
     .unit = "ps",
     .standard = "0",
     .meaning = "after each detected event, the detector detects nothing"},
    {.name = "afterpulse_percent",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 50,
     .unit = "%",
     .standard = "0",
     .meaning = "chance that a detected event has an afterpulse, which the dead time may hide"},
    {.name = "afterpulse_tau_ps",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 1,
     .highest = 1000000000,
     .unit = "ps",
     .standard = "50000",
     .meaning = "mean time, exponentially distributed, from an event to its afterpulse"},
    {.name = "drift_ppm",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = -1000,
     .highest = 1000,
     .unit = "ppm",
     .standard = "0",
     .meaning =
         "by which the unit's clock is fast; not for the calibration source, which it drives"},
    {.name = "start_epoch",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 14315,
     .unit = "ms",
     .standard = "0",
     .meaning = "before a wrap of the coarse counter, where streams begin; 0: they begin at its 0"},
    {.name = "bin_nonuniformity_percent",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 100,
     .unit = "%",
     .standard = "0",
     .meaning =
         "by which widths of delay-line bins differ from the mean at most; 0: times are exact"},

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
    {.name = "fifo_bytes",
     .ports = ports::every_unit,
     .kind = KeyKind::whole,
     .lowest = 512,
     .highest = 16777216,
     .unit = "bytes",
     .standard = "65536",
     .meaning = "size of the unit's FIFO; tags that find it full are lost"},
    {.name = "link_bytes_per_s",
     .ports = ports::every_unit,
     .kind = KeyKind::whole,
     .lowest = 1000,
     .highest = 1000000000,
     .unit = "bytes/s",
     .standard = "40000000",
     .meaning = "rate of the link from the FIFO to the host"},
    {.name = "host_buffer_bytes",
     .ports = ports::every_unit,
     .kind = KeyKind::whole,
     .lowest = 4096,
     .highest = 1073741824,
     .unit = "bytes",
     .standard = "4194304",
     .meaning = "that the host takes in ahead of its reads; the link stops while it is full"},
    {.name = "short_reads",
     .ports = ports::every_unit,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 1,
     .standard = "0",
     .meaning = "1: reads have awkward sizes from 1 byte up, not whole packets"},
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
    fault_time("silent_at_s", "from when on reads wait for their time-out and get nothing"),
    fault_time("silent_for_s", "for how long; without it, for ever"),
    fault_time("empty_at_s", "from when on reads succeed with no bytes"),
    fault_time("empty_for_s", "for how long; without it, for ever"),
    fault_time("hang_at_s", "from when on a read never comes back"),
    fault_time("vanish_at_s", "from when on every call fails"),
    fault_probability("flip_bits", "probability of each bit to be flipped"),
    fault_probability("lose_bytes", "probability of each byte to be lost"),
    fault_probability("insert_bytes", "probability of a random byte before each byte"),
    fault_probability("remove_bits", "probability of each bit to be lost"),
    fault_probability("insert_bits", "probability of a random bit before each bit"),
    fault_time("remove_bit_at_s", "when one bit is lost"),
    fault_time("insert_bit_at_s", "when one random bit comes in"),
    fault_time("zeros_at_s", "from when on every byte is 0x00"),
    fault_time("ones_at_s", "from when on every byte is 0xFF"),
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
    fault_time("reference_lost_at_s", "from when on nothing is connected to it any more"),
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

}  // namespace zelk::simulator
