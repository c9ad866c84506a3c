// From a port string to what stands behind the device handle.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "simulator/device_backend.hpp"

namespace zelk::simulator {

// "tap://FILE?library=PATH&port=PORT" taps a real device, "replay://FILE"
// plays a recording, every other port is a simulated unit's. The faults that
// the port asks for stand in front of any of them. `rate` is the
// line rate that the host asked for, in bits per second, none when it left the
// choice to the library; a recording ignores it. Throws Failure when that cannot be opened.
std::unique_ptr<DeviceBackend> open_backend(std::string_view port, std::optional<int> rate);

}  // namespace zelk::simulator
