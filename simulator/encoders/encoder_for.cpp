#include "simulator/encoders/encoder_for.hpp"

#include <string>

#include "simulator/encoders/delta32_encoder.hpp"
#include "simulator/encoders/packed_delta_encoder.hpp"
#include "simulator/encoders/raw64_encoder.hpp"
#include "simulator/failure.hpp"
#include "timing/wire_format.hpp"

namespace zelk::simulator {

timing::Format format_numbered(std::uint32_t number) {
  if (number > static_cast<std::uint32_t>(timing::Format::packed_delta)) {
    throw Failure(Status::out_of_range,
                  "format " + std::to_string(number) + ": 0 raw64, 1 delta32 or 2 packed_delta");
  }
  return static_cast<timing::Format>(number);
}

std::unique_ptr<StreamEncoder> encoder_for(timing::Format format, timing::StreamMode mode,
                                           const PackedDeltaSettings& packed_delta,
                                           std::uint32_t start_bits) {
  switch (format) {
    case timing::Format::raw64:
      if (mode == timing::StreamMode::internal) {
        return std::make_unique<CoarseFineEncoder>();
      }
      return std::make_unique<Raw64Encoder>();
    case timing::Format::delta32:
      return std::make_unique<Delta32Encoder>();
    case timing::Format::packed_delta:
      return std::make_unique<PackedDeltaEncoder>(packed_delta.bits, packed_delta.quantum_ps,
                                                  start_bits);
  }
  return nullptr;
}

int bits_per_tag(timing::Format format, const PackedDeltaSettings& packed_delta) {
  namespace wire = timing::wire;
  switch (format) {
    case timing::Format::raw64:
      break;
    case timing::Format::delta32:
      return 8 * static_cast<int>(wire::delta32::word_bytes);
    case timing::Format::packed_delta:
      return packed_delta.bits + wire::packed_delta::header_bits;
  }
  return 8 * static_cast<int>(wire::raw64::record_bytes);
}

}  // namespace zelk::simulator
