// From the payload of a record to what it says. Checks everything; reads no
// byte outside the payload.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <variant>
#include <vector>

#include "simulator/recordings/recording_format.hpp"

namespace zelk::simulator {

struct RecordedChunk {
  std::uint64_t time_ns = 0;
  std::vector<std::uint8_t> bytes;
};

struct RecordedEnd {
  std::uint64_t time_ns = 0;
};

using Record = std::variant<RecordedOpening, RecordedCall, RecordedChunk, RecordedQuiet,
                            RecordedFailedRead, RecordedEnd>;

inline std::uint32_t load_le32(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
         std::uint32_t{bytes[3]} << 24;
}

// None when `payload` is no record of this type.
std::optional<Record> parse_record(std::uint32_t type, std::span<const std::uint8_t> payload);

}  // namespace zelk::simulator
