// What a port string asks for. "ftdi://" and the discovered port name the
// default unit; "sim://SCENARIO?key=value&key=value" names a unit with the
// signals of a scenario.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "simulator/fault_plan.hpp"
#include "simulator/port_query.hpp"

namespace zelk::simulator {

// The one unit that discovery lists.
inline constexpr std::string_view default_unit_serial = "ZK4-0001";
inline constexpr std::string_view default_unit_port = "ftdi://ZK4-0001";

enum class ScenarioKind {
  default_unit,  // correlated pairs over random background
  tags,          // recorded tags
};

// How fast recorded tags arrive.
enum class Pace {
  real_time,
  as_read,  // as fast as the host reads
};

struct DevicePort {
  ScenarioKind scenario = ScenarioKind::default_unit;
  std::string tag_file;          // of ScenarioKind::tags
  Pace pace = Pace::real_time;   // of ScenarioKind::tags
  std::uint32_t seed = 1;        // of everything that is random
  std::uint32_t start_bits = 0;  // missing at the front of each packed_delta stream
  FaultPlan faults{};
};

// Throws Failure when `port` names no unit, with a status of its own for every
// kind of mistake.
DevicePort parse_device_port(std::string_view port);

// Takes the key "pace".
Pace take_pace(PortQuery& query);

}  // namespace zelk::simulator
