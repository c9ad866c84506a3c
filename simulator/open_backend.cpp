#include "simulator/open_backend.hpp"

#include "simulator/model_backend.hpp"
#include "simulator/open_device_model.hpp"
#include "simulator/ports/recording_ports.hpp"
#include "simulator/recordings/replay_device.hpp"
#include "simulator/recordings/tap_device.hpp"

namespace zelk::simulator {

std::unique_ptr<DeviceBackend> open_backend(std::string_view port, std::optional<int> rate) {
  if (const std::optional<TapPort> tap = parse_tap_port(port)) {
    return std::make_unique<TapDevice>(*tap, rate);
  }
  if (const std::optional<ReplayPort> replay = parse_replay_port(port)) {
    return std::make_unique<ReplayDevice>(*replay);
  }
  return std::make_unique<ModelBackend>(open_device_model(port, rate));
}

}  // namespace zelk::simulator
