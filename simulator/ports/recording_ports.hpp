// What the ports of taps and replays ask for: "tap://FILE?library=PATH&port=PORT"
// and "replay://FILE", both with keys of faults if need be.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/ports/fault_plan.hpp"
#include "simulator/settings.hpp"

namespace zelk::simulator {

struct TapPort {
  std::string recording;   // path of the file to write
  std::string library;     // path of the real device library
  std::string port;        // the real device's
  std::uint32_t seed = 1;  // of the faults, which stand in front of the tap
  FaultPlan faults{};
};

struct ReplayPort {
  std::string recording;  // path of the file to play
  Pace pace = Pace::real_time;
  bool cut_short_allowed = false;
  std::uint32_t seed = 1;
  FaultPlan faults{};
};

// None when `port` is not a tap's, or not a replay's. Throw Failure when it is,
// but asks for nothing sensible.
std::optional<TapPort> parse_tap_port(std::string_view port);
std::optional<ReplayPort> parse_replay_port(std::string_view port);

}  // namespace zelk::simulator
