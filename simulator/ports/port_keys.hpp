// Every key that a port string may hold behind its "?", one row per key: what it
// means, its unit, range and default, and the ports that take it.
// docs/port-keys.md shows the same rows.
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
inline constexpr std::uint32_t every_device = every_unit | tap | replay;
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
  std::string_view meaning;     // one line that can be read alone
};

// The most bits that can be missing at the front of a stream.
inline constexpr std::int64_t max_start_bits = 1'000'000;

// The most memory that the bytes of a prepared stream may take.
inline constexpr std::int64_t max_prepared_bytes = std::int64_t{1} << 30;

// The latest moment of a fault.
inline constexpr std::int64_t max_fault_s = 1'000'000;

// The row of a fault's moment, in seconds from the start of the stream, or of its
// length.
constexpr PortKey fault_time(std::string_view name, std::string_view meaning) {
  return {.name = name,
          .ports = ports::every_device,
          .kind = KeyKind::number,
          .highest = max_fault_s,
          .unit = "s",
          .meaning = meaning};
}

// The row of a probability of damage.
constexpr PortKey fault_probability(std::string_view name, std::string_view meaning) {
  return {.name = name,
          .ports = ports::every_device,
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
     .meaning = "1: the file starts again after its last tag; 0: it is played once"},
    {.name = "loop_gap_ps",
     .ports = ports::tags,
     .kind = KeyKind::whole,
     .lowest = 1,
     .highest = 1000000000000,
     .unit = "ps",
     .standard = "1000000000",
     .meaning = "time from the last tag of a round to the first tag of the next"},
    {.name = "frequency_hz",
     .ports = ports::pulses,
     .kind = KeyKind::number,
     .lowest = 1,
     .highest = 50000000,
     .unit = "Hz",
     .standard = "100000",
     .meaning = "rate of the pulses on every channel"},
    {.name = "delay_ps",
     .ports = ports::pulses,
     .kind = KeyKind::number,
     .per_channel = true,
     .lowest = 0,
     .highest = 1000000000,
     .unit = "ps",
     .standard = "0",
     .meaning = "delay of all pulses on a channel"},
    {.name = "jitter_ps",
     .ports = ports::pulses | ports::pairs,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 1000000,
     .unit = "ps rms",
     .standard = "40",
     .meaning = "jitter of each pulse, or of each event of a pair; never more than 3.5 times this"},
    {.name = "rate_hz",
     .ports = ports::random,
     .kind = KeyKind::number,
     .per_channel = true,
     .lowest = 0,
     .highest = 20000000,
     .unit = "Hz",
     .standard = "10000",
     .meaning = "mean rate of the random events on a channel"},
    {.name = "pair_rate_hz",
     .ports = ports::pairs,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 20000000,
     .unit = "Hz",
     .standard = "20000",
     .meaning = "mean rate of the pairs, which come at random times"},
    {.name = "pair_delay_ps",
     .ports = ports::pairs,
     .kind = KeyKind::number,
     .lowest = -1000000000,
     .highest = 1000000000,
     .unit = "ps",
     .standard = "120",
     .meaning = "delay of a pair's event on channel_b after its event on channel_a"},
    {.name = "channel_a",
     .ports = ports::pairs,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 3,
     .standard = "0",
     .meaning = "channel that sees the first event of each pair"},
    {.name = "channel_b",
     .ports = ports::pairs,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 3,
     .standard = "1",
     .meaning = "channel that sees the second event of each pair; it may be channel_a again"},
    {.name = "burst_us",
     .ports = ports::burst,
     .kind = KeyKind::whole,
     .lowest = 1,
     .highest = 10000000,
     .unit = "us",
     .standard = "1000",
     .meaning = "length of a train, in which the enabled channels pulse in turn at the highest "
                "rate of the link"},
    {.name = "pause_us",
     .ports = ports::burst,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 10000000,
     .unit = "us",
     .standard = "9000",
     .meaning = "length of the silence between two trains; 0: the train never ends"},

    // Every unit.
    {.name = "pace",
     .ports = ports::every_unit | ports::replay,
     .kind = KeyKind::words,
     .unit = "real or max",
     .standard = "real",
     .meaning = "real: the stream comes in real time; max: as fast as the host reads"},
    {.name = "seed",
     .ports = ports::every_device,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 4294967295,
     .standard = "1",
     .meaning = "seed of all random numbers; the same seed gives the same stream"},
    {.name = "background_hz",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .per_channel = true,
     .lowest = 0,
     .highest = 20000000,
     .unit = "Hz",
     .standard = "0",
     .meaning =
         "mean rate of random events on top of the signal, before the efficiency takes some away"},
    {.name = "amplitude_v",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .per_channel = true,
     .lowest = 0,
     .highest = 10,
     .unit = "V",
     .standard = "2.5",
     .meaning = "height of a channel's pulses, which must reach its threshold; 0: no pulses"},
    {.name = "efficiency",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .per_channel = true,
     .lowest = 0,
     .highest = 1,
     .standard = "1",
     .meaning = "chance that a channel's detector detects an event"},
    {.name = "detector_dead_time_ps",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 1000000000,
     .unit = "ps",
     .standard = "0",
     .meaning = "time after each detected event in which the detector detects nothing"},
    {.name = "afterpulse_percent",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 50,
     .unit = "%",
     .standard = "0",
     .meaning = "chance that an afterpulse follows a detected event; the dead time may hide it"},
    {.name = "afterpulse_tau_ps",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 1,
     .highest = 1000000000,
     .unit = "ps",
     .standard = "50000",
     .meaning =
         "mean time from an event to its afterpulse; the times are exponentially distributed"},
    {.name = "drift_ppm",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = -1000,
     .highest = 1000,
     .unit = "ppm",
     .standard = "0",
     .meaning = "how much faster than true time the unit's clock runs; no effect on the "
                "calibration pulses, which it drives"},
    {.name = "start_epoch",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 14315,
     .unit = "ms",
     .standard = "0",
     .meaning = "time from the start of a stream to the wrap of the coarse counter; 0: the counter "
                "starts at 0"},
    {.name = "bin_nonuniformity_percent",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 100,
     .unit = "%",
     .standard = "0",
     .meaning = "largest deviation of a delay-line bin's width from the mean; 0: times are exact"},

    // Tap and replay.
    {.name = "library",
     .ports = ports::tap,
     .kind = KeyKind::words,
     .unit = "a path",
     .meaning = "the device library that opens the real device"},
    {.name = "port",
     .ports = ports::tap,
     .kind = KeyKind::words,
     .unit = "a port string",
     .meaning = "the real device's port, as its own library names it"},
    {.name = "cut_short",
     .ports = ports::replay,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 1,
     .standard = "0",
     .meaning = "1: a recording that was never closed is played up to its last whole record; 0: it "
                "is refused"},

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
     .meaning = "size of the host's buffer, which fills ahead of its reads; the link stops while "
                "it is full"},
    {.name = "short_reads",
     .ports = ports::every_unit,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = 1,
     .standard = "0",
     .meaning = "1: reads have awkward sizes from 1 byte up instead of whole packets"},
    {.name = "start_bits",
     .ports = ports::every_unit,
     .kind = KeyKind::whole,
     .lowest = 0,
     .highest = max_start_bits,
     .unit = "bits",
     .standard = "0",
     .meaning = "number of bits that are missing at the front of each packed_delta stream"},
    {.name = "prepared_s",
     .ports = ports::every_unit,
     .kind = KeyKind::number,
     .lowest = 0,
     .highest = 3600,
     .unit = "s",
     .standard = "0",
     .meaning = "length of the stream, all of which is made when it starts and takes at most "
                "1073741824 bytes; 0: bytes are made as they are read, without an end"},

    // Faults.
    {.name = "fail",
     .ports = ports::every_device,
     .kind = KeyKind::words,
     .unit = "CALL[#N|@SECONDS]:STATUS[:TEXT], or several of these joined by commas",
     .meaning = "calls that fail: always, the Nth time, or from a moment of the stream on"},
    fault_time("silent_at_s", "moment from which reads wait for their time-out and get nothing"),
    fault_time("silent_for_s",
               "length of the silence from silent_at_s on; without this key it never ends"),
    fault_time("empty_at_s", "moment from which reads succeed with no bytes"),
    fault_time("empty_for_s",
               "how long reads bring no bytes from empty_at_s on; without this key for ever"),
    fault_time("hang_at_s", "moment from which a read never comes back"),
    fault_time("vanish_at_s", "moment from which every call fails"),
    fault_probability("flip_bits", "probability that a given bit is flipped"),
    fault_probability("lose_bytes", "probability that a given byte is lost"),
    fault_probability("insert_bytes",
                      "probability that a random byte comes in before a given byte"),
    fault_probability("remove_bits", "probability that a given bit is lost"),
    fault_probability("insert_bits", "probability that a random bit comes in before a given bit"),
    fault_time("remove_bit_at_s", "moment at which one bit is lost"),
    fault_time("insert_bit_at_s", "moment at which one random bit comes in"),
    fault_time("zeros_at_s", "moment from which every byte is 0x00"),
    fault_time("ones_at_s", "moment from which every byte is 0xFF"),
    {.name = "reference_unavailable",
     .ports = ports::every_device,
     .kind = KeyKind::words,
     .unit = "-3, -4 or -7",
     .meaning = "status with which both reference clock calls fail; without this key they succeed"},
    {.name = "external_reference",
     .ports = ports::every_unit,
     .kind = KeyKind::words,
     .unit = "none, unlocked or locked",
     .standard = "none",
     .meaning = "what is connected to the external reference input"},
    fault_time("reference_lost_at_s",
               "moment from which nothing is connected to the external reference input"),
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
