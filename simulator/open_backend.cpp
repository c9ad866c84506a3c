#include "simulator/open_backend.hpp"

#include <string>

#include "simulator/failure.hpp"
#include "simulator/faults/faulty_device.hpp"
#include "simulator/ports/device_port.hpp"
#include "simulator/ports/recording_ports.hpp"
#include "simulator/recordings/replay_device.hpp"
#include "simulator/recordings/tap_device.hpp"
#include "simulator/unit/unit.hpp"

namespace zelk::simulator {

std::unique_ptr<DeviceBackend> open_backend(std::string_view port, std::optional<int> rate) {
  if (const std::optional<TapPort> tap = parse_tap_port(port)) {
    expect_opening(tap->faults);  // or the tap would leave its file behind
    return with_faults(std::make_unique<TapDevice>(*tap, rate), tap->faults, tap->seed);
  }
  if (const std::optional<ReplayPort> replay = parse_replay_port(port)) {
    return with_faults(std::make_unique<ReplayDevice>(*replay), replay->faults, replay->seed);
  }
  if (rate && *rate <= 0) {
    throw Failure(Status::invalid_argument,
                  "the line rate must be above 0, not " + std::to_string(*rate));
  }
  const DevicePort unit = parse_device_port(port);
  return with_faults(std::make_unique<Unit>(unit), unit.faults, unit.seed);
}

}  // namespace zelk::simulator
