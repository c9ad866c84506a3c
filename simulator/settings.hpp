// What can be chosen about a unit: plain values, which a port string fills and
// the parts of the unit take.
#pragma once

#include <array>
#include <cstdint>

#include "timing/time_tag.hpp"

namespace zelk::simulator {

using ChannelNumbers = std::array<double, timing::channel_count>;

// How fast a stream arrives: that of a simulated unit or of a recording.
enum class Pace {
  real_time,
  as_read,  // as fast as the host reads
};

struct PairSettings {
  std::uint8_t first_channel = 0;
  std::uint8_t second_channel = 1;  // may be the first one
  double rate_hz = 0;               // mean pairs per second, above 0
  std::int64_t delay_ps = 0;        // negative: the second channel's event comes first
  double jitter_rms_ps = 0;         // of each of the two events
};

// Amplitude of a pulse at the external inputs.
inline constexpr double input_pulse_v = 2.5;

struct DetectorSettings {
  // Per channel. A detector with an amplitude of 0 is dead.
  ChannelNumbers amplitude_v{input_pulse_v, input_pulse_v, input_pulse_v, input_pulse_v};
  ChannelNumbers efficiency{1, 1, 1, 1};  // 0 to 1

  // Of all of them.
  std::int64_t dead_time_ps = 0;
  double afterpulse_probability = 0;  // of each pulse, afterpulses included; below 1
  double afterpulse_tau_ps = 50e3;    // mean time of an afterpulse after its pulse

  friend bool operator==(const DetectorSettings&, const DetectorSettings&) = default;
};

struct LinkSettings {
  std::int64_t fifo_bytes = 65'536;
  std::int64_t rate_bytes_per_s = 40'000'000;  // at most 10^9
  std::int64_t host_buffer_bytes = 4'194'304;
  bool short_reads = false;  // reads of awkward sizes

  friend bool operator==(const LinkSettings&, const LinkSettings&) = default;
};

}  // namespace zelk::simulator
