// Encodes tags with the simulated unit and decodes them with the host's
// decoder: two sides that share nothing but the page of bit layouts.
#pragma once

#include <cstdint>
#include <vector>

#include "simulator/encoders/encoder_for.hpp"
#include "timing/stream_decoder.hpp"

namespace zelk::simulator {

inline std::vector<std::uint8_t> encoded(const std::vector<timing::TimeTag>& tags,
                                         timing::Format format, timing::StreamMode mode) {
  const auto encoder = encoder_for(format, mode);
  std::vector<std::uint8_t> bytes;
  for (const timing::TimeTag& tag : tags) {
    encoder->append(tag, bytes);
  }
  return bytes;
}

inline std::vector<timing::TimeTag> decoded(const std::vector<std::uint8_t>& bytes,
                                            timing::Format format, timing::StreamMode mode) {
  timing::StreamFileHeader header;
  header.format = format;
  header.mode = mode;
  return timing::StreamDecoder(header).feed(bytes.data(), bytes.size());
}

inline std::vector<timing::TimeTag> round_trip(const std::vector<timing::TimeTag>& tags,
                                               timing::Format format, timing::StreamMode mode) {
  return decoded(encoded(tags, format, mode), format, mode);
}

}  // namespace zelk::simulator
