// Big-endian loads from a byte stream. The compiler turns each into one load
// and a byte swap.
#pragma once

#include <cstdint>

namespace zelk::timing::detail {

constexpr std::uint32_t load_be32(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
         std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]};
}

constexpr std::uint64_t load_be64(const std::uint8_t* bytes) {
  return std::uint64_t{load_be32(bytes)} << 32 | load_be32(bytes + 4);
}

}  // namespace zelk::timing::detail
