// CRC-32 as Ethernet and zip have it: polynomial 0x04C11DB7, reflected, all
// ones before and after.
#pragma once

#include <cstdint>
#include <span>

namespace zelk::simulator {

std::uint32_t crc32(std::span<const std::uint8_t> bytes);

}  // namespace zelk::simulator
