// Describes the stream that a decoder is to decode. A plain value, filled before
// the stream is decoded; the decoder takes from it what it needs.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "timing/time_tag.hpp"
#include "timing/transport.hpp"

namespace zelk::timing {

struct StreamFileHeader {
  Format format = Format::raw64;
  StreamMode mode = StreamMode::internal;
  Transport transport = Transport::uart;
  std::uint8_t channel_mask = 0;  // bit n: channel n is in the stream
  std::uint8_t reserved = 0;      // travels with the mask; always 0
  std::uint8_t packed_bits = 0;
  std::uint16_t packed_quantum_ps = 0;
  // "raw_cf" or "ps", for whoever reads the description. A decoder does not read
  // it but works the layout out again, as timestamp_layout_for() does.
  std::string timestamp_layout;
  std::array<std::string, 5> notes;  // free text, which may be empty
};

// The raw64 record layout of a stream: coarse and fine counts for the internal
// source, picoseconds for everything else.
inline const char* timestamp_layout_for(Format format, StreamMode mode) {
  return format == Format::raw64 && mode == StreamMode::internal ? "raw_cf" : "ps";
}

}  // namespace zelk::timing
