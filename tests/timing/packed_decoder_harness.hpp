// What the packed_delta tests share: making a decoder of either kind, feeding
// it, and collecting the debug lines that it writes meanwhile.
//
// The same test cases run against the product's decoder and the literal one:
// a case whose expected value is wrong fails on both.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "tests/reference/literal_packed_delta.hpp"
#include "tests/timing/packed_stream_builder.hpp"
#include "timing/stream_decoder.hpp"
#include "timing/stream_header.hpp"
#include "timing/time_tag.hpp"

namespace zelk {

// The two decoders under names that are short enough to stand in the name of a test.
class LiteralDecoder : public reference::LiteralPackedDecoder {
  using LiteralPackedDecoder::LiteralPackedDecoder;
};
class ProductDecoder : public timing::StreamDecoder {
  using StreamDecoder::StreamDecoder;
};

}  // namespace zelk

namespace zelk::test_support {

using BothPackedDecoders = ::testing::Types<LiteralDecoder, ProductDecoder>;

inline constexpr const char* packed_debug_variable = "ZELK_PACKED_DEBUG";
inline constexpr auto internal_mode = timing::StreamMode::internal;
inline constexpr auto external_mode = timing::StreamMode::external;

// Sets the debug switch for its own lifetime; the switch is off afterwards.
class PackedDebugSwitch {
 public:
  explicit PackedDebugSwitch(const char* value = "1") { setenv(packed_debug_variable, value, 1); }
  ~PackedDebugSwitch() { unsetenv(packed_debug_variable); }
  PackedDebugSwitch(const PackedDebugSwitch&) = delete;
  PackedDebugSwitch& operator=(const PackedDebugSwitch&) = delete;
};

struct PackedStream {
  timing::StreamMode mode = external_mode;
  unsigned mask = 0;
  unsigned bits = 16;
  unsigned quantum_ps = 8;
};

template <typename Decoder>
Decoder make_packed_decoder(const PackedStream& stream) {
  timing::StreamFileHeader header;
  header.format = timing::Format::packed_delta;
  header.mode = stream.mode;
  header.channel_mask = static_cast<std::uint8_t>(stream.mask);
  header.packed_bits = static_cast<std::uint8_t>(stream.bits);
  header.packed_quantum_ps = static_cast<std::uint16_t>(stream.quantum_ps);
  header.timestamp_layout = std::string("ps");
  return Decoder(header);
}

// A decoder that takes its first bit for the start of a record.
template <typename Decoder>
Decoder make_locked_decoder(const PackedStream& stream) {
  Decoder decoder = make_packed_decoder<Decoder>(stream);
  decoder.packed_locked = true;
  return decoder;
}

inline std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  if (start < text.size()) {
    lines.push_back(text.substr(start) + "<no line feed>");
  }
  return lines;
}

// The debug lines that `action` makes the decoder write: to standard error, or
// into the list that the literal decoder keeps.
template <typename Decoder, typename Action>
std::vector<std::string> lines_written(const Decoder& decoder, Action action) {
  if constexpr (requires { decoder.written_lines; }) {
    decoder.written_lines.clear();
    action();
    return decoder.written_lines;
  } else {
    ::testing::internal::CaptureStderr();
    action();
    return split_lines(::testing::internal::GetCapturedStderr());
  }
}

struct Fed {
  std::vector<timing::TimeTag> tags;
  std::vector<std::string> lines;
};

// Feeds the bytes without looking at the debug switch.
template <typename Decoder>
Fed feed_quietly(Decoder& decoder, const std::vector<std::uint8_t>& bytes) {
  Fed fed;
  fed.lines = lines_written(decoder, [&] { fed.tags = decoder.feed(bytes.data(), bytes.size()); });
  return fed;
}

// Feeds the bytes with the debug switch on.
template <typename Decoder>
Fed feed(Decoder& decoder, const std::vector<std::uint8_t>& bytes) {
  const PackedDebugSwitch debug;
  return feed_quietly(decoder, bytes);
}

using Lines = std::vector<std::string>;
using Tags = std::vector<timing::TimeTag>;

// Everything that a lock has learnt is gone.
template <typename Decoder>
void expect_unlocked_state(const Decoder& decoder) {
  EXPECT_FALSE(decoder.packed_locked);
  EXPECT_EQ(decoder.bit_offset, 0U);
  for (std::size_t ch = 0; ch < 4; ++ch) {
    EXPECT_EQ(decoder.packed_last_ps[ch], 0);
    EXPECT_FALSE(decoder.packed_has_time[ch]);
    EXPECT_EQ(decoder.packed_overflow[ch], 0U);
    EXPECT_EQ(decoder.packed_last_delta[ch], 0U);
    EXPECT_EQ(decoder.packed_last_emitted_ps[ch], 0);
    EXPECT_FALSE(decoder.packed_emitted[ch]);
  }
  EXPECT_EQ(decoder.sync_chunks_left, 0);
  EXPECT_EQ(decoder.sync_channel, 0);
  EXPECT_EQ(decoder.sync_value, 0U);
  EXPECT_EQ(decoder.sync_value_bits, 0);
  EXPECT_EQ(decoder.pending_sync_channel, -1);
  EXPECT_EQ(decoder.pending_sync_base_ps, 0U);
}

}  // namespace zelk::test_support
