// From tags to the bytes of a stream: one encoder class per wire format, the
// mirror image of the host's decoder. An encoder serves one stream from start
// to end and belongs to the thread that reads it.
#pragma once

#include <cstdint>
#include <vector>

#include "timing/time_tag.hpp"

namespace zelk::simulator {

class StreamEncoder {
 public:
  StreamEncoder() = default;
  StreamEncoder(const StreamEncoder&) = delete;
  StreamEncoder& operator=(const StreamEncoder&) = delete;
  virtual ~StreamEncoder() = default;

  // Appends the bytes that say `tag`. A channel's times rise from call to
  // call; all times lie in [0, 2^62).
  virtual void append(const timing::TimeTag& tag, std::vector<std::uint8_t>& bytes) = 0;

  // Called when no further tag is at hand: completes the last byte, so that the
  // last tag need not wait for the next.
  virtual void flush(std::vector<std::uint8_t>& /*bytes*/) {}
};

// Appends `word`, most significant byte first.
template <typename Word>
void append_big_endian(Word word, std::vector<std::uint8_t>& bytes) {
  std::uint8_t parts[sizeof word];
  for (std::size_t i = 0; i < sizeof word; ++i) {
    parts[i] = static_cast<std::uint8_t>(word >> (8 * (sizeof word - 1 - i)));
  }
  bytes.insert(bytes.end(), parts, parts + sizeof word);
}

}  // namespace zelk::simulator
