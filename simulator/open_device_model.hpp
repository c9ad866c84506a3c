// From a port string to the model behind the device handle.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "simulator/device_model.hpp"

namespace zelk::simulator {

// The model that `port` asks for. `rate` is the line rate that the host asked
// for, in bits per second, none when it left the choice to the library. Throws
// Failure when the port names no unit or the unit refuses.
std::unique_ptr<DeviceModel> open_device_model(std::string_view port, std::optional<int> rate);

}  // namespace zelk::simulator
