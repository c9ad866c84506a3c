#include "simulator/open_device_model.hpp"

#include "simulator/failure.hpp"
#include "simulator/faults/faulty_device.hpp"
#include "simulator/ports/device_port.hpp"
#include "simulator/unit/unit.hpp"

namespace zelk::simulator {

std::unique_ptr<DeviceModel> open_device_model(std::string_view port, std::optional<int> rate) {
  if (rate && *rate <= 0) {
    throw Failure(Status::invalid_argument, "the line rate must be above 0");
  }
  const DevicePort parsed = parse_device_port(port);
  return with_faults(std::make_unique<Unit>(parsed), parsed.faults, parsed.seed);
}

}  // namespace zelk::simulator
