#include "simulator/recordings/crc32.hpp"

#include <zlib.h>

namespace zelk::simulator {

// The library takes the address of no bytes for a question of its own.
std::uint32_t crc32(std::span<const std::uint8_t> bytes) {
  return bytes.empty() ? 0 : static_cast<std::uint32_t>(::crc32_z(0, bytes.data(), bytes.size()));
}

}  // namespace zelk::simulator
