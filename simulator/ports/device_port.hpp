// What a port string asks for. "ftdi://" and the discovered port name the
// default unit; "sim://SCENARIO?key=value&key=value" names a unit with the
// signals of a scenario.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "simulator/ports/fault_plan.hpp"
#include "simulator/ports/named_ports.hpp"
#include "simulator/reference_clock.hpp"
#include "simulator/settings.hpp"

namespace zelk::simulator {

// The one unit that discovery lists.
inline constexpr std::string_view default_unit_serial = "ZK4-0001";

enum class ScenarioKind {
  default_unit,  // correlated pairs over random background
  tags,          // those of a file
  pulses,        // periodic pulses
  random,        // random events
  pairs,         // correlated pairs
  burst,         // trains at the highest rate that the link carries
  silent,        // nothing
};

// A unit as its keys describe it; the keys' rows say what the numbers mean.
struct DevicePort {
  ScenarioKind scenario = ScenarioKind::default_unit;
  Pace pace = Pace::real_time;
  std::uint32_t seed = 1;  // of everything that is random

  // Signals of the scenarios.
  std::string tag_file;
  bool loop = false;
  std::int64_t loop_gap_ps = 0;
  double pulse_frequency_hz = 0;
  ChannelNumbers pulse_delay_ps{};
  double jitter_rms_ps = 0;
  ChannelNumbers random_rate_hz{};
  PairSettings pairs;
  std::int64_t burst_ps = 0;
  std::int64_t pause_ps = 0;

  // Around every signal.
  ChannelNumbers background_hz{};
  DetectorSettings detector;
  double drift_ppm = 0;
  double start_epoch_ms = 0;
  double bin_nonuniformity = 0;

  LinkSettings link;
  std::int64_t prepared_ps = 0;  // length of a stream that is made at its start; 0: none is
  std::uint32_t start_bits = 0;  // missing at the front of each packed_delta stream
  ExternalReference external_reference = ExternalReference::none;
  FaultPlan faults{};
};

// Throws Failure when `port` names no unit, with a status of its own for every
// kind of mistake.
DevicePort parse_device_port(std::string_view port);

}  // namespace zelk::simulator
