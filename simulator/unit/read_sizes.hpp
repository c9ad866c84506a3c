// How many bytes a read brings. A plain value inside the running stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "simulator/random_numbers.hpp"

namespace zelk::simulator {

// The link carries whole packets, and what has come together at each tick of
// its latency timer.
inline constexpr std::size_t usb_packet_bytes = 512;

class ReadSizes {
 public:
  // With `short_reads` reads have awkward sizes, which `seed` decides.
  ReadSizes(bool short_reads, std::uint64_t seed) : short_reads_(short_reads), random_(seed) {}

  // The part of the host's buffer that one read can fill: whole packets, unless
  // it is smaller than one.
  [[nodiscard]] static std::span<std::uint8_t> room_in(std::span<std::uint8_t> buffer);

  // What the next read brings of `count` bytes that are there and fit.
  std::size_t next(std::size_t count);

 private:
  bool short_reads_;
  RandomNumbers random_;
};

}  // namespace zelk::simulator
