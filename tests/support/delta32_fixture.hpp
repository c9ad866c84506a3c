// Decoders in the situations that the delta32 tests start from, and short ways
// to feed them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "tests/support/stream_headers.hpp"
#include "tests/support/wire_words.hpp"
#include "timing/stream_decoder.hpp"

namespace zelk::test_support {

inline timing::StreamDecoder delta32_decoder() {
  return timing::StreamDecoder(
      stream_header(timing::Format::delta32, timing::StreamMode::external));
}

// A locked decoder, decoding data, whose channel last emitted `last_ps`.
inline timing::StreamDecoder delta32_decoder_at(std::size_t channel, std::int64_t last_ps) {
  timing::StreamDecoder decoder = delta32_decoder();
  decoder.d32_locked = true;
  decoder.has_time[channel] = true;
  decoder.last_ps[channel] = last_ps;
  return decoder;
}

inline std::vector<timing::TimeTag> feed(timing::StreamDecoder& decoder, const Bytes& bytes) {
  return decoder.feed(bytes.data(), bytes.size());
}

inline std::vector<timing::TimeTag> feed_words(timing::StreamDecoder& decoder,
                                               std::initializer_list<std::uint32_t> words) {
  return feed(decoder, big_endian_32(words));
}

}  // namespace zelk::test_support
