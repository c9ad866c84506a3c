// Which encoder a stream gets.
#pragma once

#include <cstdint>
#include <memory>

#include "simulator/encoders/stream_encoder.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

// Parameters of the packed_delta format.
struct PackedDeltaSettings {
  std::uint8_t bits = 16;
  std::uint16_t quantum_ps = 8;
};

// The format with this number. Throws Failure when there is none.
timing::Format format_numbered(std::uint32_t number);

// A fresh encoder for a stream of `format` in `mode`: raw64 has its coarse and
// fine layout in the internal mode. `packed_delta` and `start_bits`, the number
// of bits that are missing at the front of the stream, count for that format
// alone. Null for a format that does not exist.
std::unique_ptr<StreamEncoder> encoder_for(timing::Format format, timing::StreamMode mode,
                                           const PackedDeltaSettings& packed_delta = {},
                                           std::uint32_t start_bits = 0);

// Bits that a tag takes in `format` when it comes soon after the one before it
// on its channel.
int bits_per_tag(timing::Format format, const PackedDeltaSettings& packed_delta);

}  // namespace zelk::simulator
