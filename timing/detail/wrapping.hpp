// Signed 64-bit arithmetic that wraps around instead of overflowing. Stream
// bytes and command-line values can drive every time to the ends of its range;
// these functions give each such result a meaning.
#pragma once

#include <cstdint>

namespace zelk::timing::detail {

constexpr std::int64_t wrap_add(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

constexpr std::int64_t wrap_sub(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

constexpr std::int64_t wrap_mul(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

// The distance from 0, which for the most negative value only an unsigned
// number holds.
constexpr std::uint64_t magnitude(std::int64_t a) {
  return a < 0 ? 0 - static_cast<std::uint64_t>(a) : static_cast<std::uint64_t>(a);
}

}  // namespace zelk::timing::detail
