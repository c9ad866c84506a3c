// What discovery finds: the default unit, or what the variable
// ZELK_SIM_DISCOVERY of the environment asks for. No port is known yet when a
// host discovers, so its faults cannot stand in one.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "timing/c_api/zelk_timing.h"

namespace zelk::simulator {

inline constexpr const char* discovery_variable = "ZELK_SIM_DISCOVERY";

struct DiscoveredUnit {
  std::optional<std::string> port;      // none: a null pointer for the host
  std::optional<qx_identity> identity;  // none: likewise
};

// `request` is the variable's value, null when it is not set:
//
//   fail:STATUS   discovery fails with this status
//   empty         there is no unit
//   null          one entry without port and identity
//   port:PORT     one entry with this port
//
// Throws Failure when it is to fail, and for any other value.
std::vector<DiscoveredUnit> discovered_units(const char* request);

}  // namespace zelk::simulator
