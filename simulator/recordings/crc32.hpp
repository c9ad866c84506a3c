// CRC-32 as Ethernet and zip have it: polynomial 0x04C11DB7, reflected, all
// ones before and after.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace zelk::simulator {

namespace detail {

constexpr std::array<std::uint32_t, 256> crc32_table() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < table.size(); ++i) {
    std::uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) {
      value = (value & 1U) != 0 ? 0xEDB88320U ^ (value >> 1) : value >> 1;
    }
    table[i] = value;
  }
  return table;
}

}  // namespace detail

inline std::uint32_t crc32(std::span<const std::uint8_t> bytes) {
  static constexpr std::array<std::uint32_t, 256> table = detail::crc32_table();
  std::uint32_t crc = 0xFFFFFFFFU;
  for (const std::uint8_t byte : bytes) {
    crc = table[(crc ^ byte) & 0xFFU] ^ (crc >> 8);
  }
  return ~crc;
}

}  // namespace zelk::simulator
