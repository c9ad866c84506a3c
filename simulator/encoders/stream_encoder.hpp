// From tags to the bytes of a stream: one encoder class per wire format, the
// mirror image of the host's decoder. An encoder serves one stream from start
// to end and belongs to the thread that reads it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
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

  // Appends the bytes that say `tags`, the same as tag by tag.
  void append_all(std::span<const timing::TimeTag> tags, std::vector<std::uint8_t>& bytes) {
    while (!tags.empty()) {
      std::size_t done = append_near(tags, bytes);
      if (done == 0) {
        append(tags.front(), bytes);
        done = 1;
      }
      tags = tags.subspan(done);
    }
  }

  // Called when no further tag is at hand: completes the last byte, so that the
  // last tag need not wait for the next.
  virtual void flush(std::vector<std::uint8_t>& /*bytes*/) {}

 private:
  // Appends the first tags as far as the encoder has a shorter way for them, at
  // most tags_per_block. Returns their number.
  virtual std::size_t append_near(std::span<const timing::TimeTag> /*tags*/,
                                  std::vector<std::uint8_t>& /*bytes*/) {
    return 0;
  }
};

// Writes `word`, most significant byte first.
template <typename Word>
void put_big_endian(Word word, std::uint8_t* bytes) {
  for (std::size_t i = 0; i < sizeof word; ++i) {
    bytes[i] = static_cast<std::uint8_t>(word >> (8 * (sizeof word - 1 - i)));
  }
}

template <typename Word>
void append_big_endian(Word word, std::vector<std::uint8_t>& bytes) {
  std::uint8_t parts[sizeof word];
  put_big_endian(word, parts);
  bytes.insert(bytes.end(), parts, parts + sizeof word);
}

// Encoders write the words of this many tags into memory of their own, without a
// look at the vector, and append them together: a third of the time that they
// take one by one.
inline constexpr std::size_t tags_per_block = 256;

}  // namespace zelk::simulator
