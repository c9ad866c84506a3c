// The kinds of link between host and device, as the device library numbers
// them.
#pragma once

#include <cstdint>

namespace zelk::timing {

enum class Transport : std::uint32_t {
  uart = 0,
  usb = 1,
  usb_async = 2,  // retired; kept so that its number is never given to another
};

}  // namespace zelk::timing
