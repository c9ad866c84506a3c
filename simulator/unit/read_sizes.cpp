#include "simulator/unit/read_sizes.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace zelk::simulator {
namespace {

// At most this much is made for one read, however large the host's buffer.
constexpr std::size_t max_read_bytes = std::size_t{1} << 18;

// Sizes of short reads: around packets and records, and across both.
constexpr std::array<std::size_t, 12> short_read_bytes{1,  2,   3,   5,   7,    13,
                                                       63, 257, 511, 513, 1021, 4099};

}  // namespace

std::span<std::uint8_t> ReadSizes::room_in(std::span<std::uint8_t> buffer) {
  const std::size_t bytes = std::min(buffer.size(), max_read_bytes);
  return buffer.first(bytes < usb_packet_bytes ? bytes : bytes - bytes % usb_packet_bytes);
}

std::size_t ReadSizes::next(std::size_t count) {
  if (!short_reads_ || count == 0) {
    return count;
  }
  const double place = random_.uniform() * static_cast<double>(short_read_bytes.size());
  return std::min(count, short_read_bytes[static_cast<std::size_t>(std::ceil(place)) - 1]);
}

}  // namespace zelk::simulator
