// The stream decoder against the literal decoders: after every call the tags, the
// bytes left and the state must be the same.
//
// The input: format, mode, channel mask, packed bits, quantum (u16), whether a
// scene follows, the number of chunk sizes and these, the scene if any, and the
// stream. A scene is a state in the middle of some stream, with sums that are
// about to leave their range perhaps.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "fuzz/input.hpp"
#include "tests/reference/literal_delta32.hpp"
#include "tests/reference/literal_packed_delta.hpp"
#include "tests/reference/literal_raw64.hpp"
#include "timing/stream_decoder.hpp"

namespace zelk::fuzz {
namespace {

using reference::LiteralDelta32;
using reference::LiteralPackedDecoder;
using reference::LiteralRaw64;
using timing::Format;
using timing::StreamDecoder;
using timing::StreamMode;
using Tags = std::vector<timing::TimeTag>;

constexpr std::size_t channels = 4;
constexpr int max_calls = 500;

// What the literal search may read for one input: it reads every bit thousands
// of times.
constexpr std::uint64_t max_bits_searched = 1'000'000;

timing::StreamFileHeader take_header(Input& input) {
  timing::StreamFileHeader header;
  header.format = static_cast<Format>(input.below(4));  // 3 is no format
  header.mode = input.flag() ? StreamMode::external : StreamMode::internal;
  header.channel_mask = input.byte();
  const std::size_t bits = input.below(40);
  header.packed_bits = static_cast<std::uint8_t>(bits == 39 ? 255 : bits);
  header.packed_quantum_ps = input.number<std::uint16_t>();
  return header;
}

// The sizes of the chunks, in turns; without any the stream is one chunk.
class ChunkSizes {
 public:
  explicit ChunkSizes(Input& input) {
    for (std::size_t n = input.below(9); n > 0; --n) {
      const std::size_t size = input.byte();
      sizes_.push_back(size < 192 ? size : (size - 191) * 64);
    }
  }

  std::size_t next() {
    return sizes_.empty() ? std::numeric_limits<std::size_t>::max()
                          : sizes_[next_++ % sizes_.size()];
  }

 private:
  std::vector<std::size_t> sizes_;
  std::size_t next_ = 0;
};

void expect_same_tags(const Tags& expected, const Tags& actual) {
  for (std::size_t i = 0; i < std::min(expected.size(), actual.size()); ++i) {
    if (!(expected[i] == actual[i])) {
      const std::string tag = "tag " + std::to_string(i);
      expect_equal(tag + ", channel", expected[i].channel, actual[i].channel);
      expect_equal(tag + ", time", expected[i].timestamp_ps, actual[i].timestamp_ps);
    }
  }
  expect_equal("tags in number", expected.size(), actual.size());
}

// ---- raw64 -----------------------------------------------------------------

LiteralRaw64 literal_raw64(const timing::StreamFileHeader& header) {
  static const LiteralRaw64 filled = [] {
    LiteralRaw64 literal;
    literal.fill_fine_corrections();
    return literal;
  }();
  LiteralRaw64 literal = filled;
  literal.timestamp_layout = header.mode == StreamMode::internal ? "raw_cf" : "ps";
  return literal;
}

void set_scene(LiteralRaw64& literal, StreamDecoder& decoder, Input& input) {
  constexpr std::array layouts{"ps", "raw_cf", "RAW_CF", "Raw_cF", "raw_cf ", ""};
  literal.timestamp_layout = layouts[input.below(layouts.size())];
  decoder.timestamp_layout = literal.timestamp_layout;
  if (input.flag()) {
    literal.fine_correction_ps = {input.number<std::int64_t>(), input.number<std::int64_t>(), -1};
    decoder.fine_correction_ps = literal.fine_correction_ps;
  }
  for (std::size_t ch = 0; ch < channels; ++ch) {
    literal.epoch_offset_ps[ch] = input.number<std::int64_t>();
  }
  decoder.epoch_offset_ps = literal.epoch_offset_ps;
}

void expect_same_state(const LiteralRaw64& a, const StreamDecoder& b) {
  for (std::size_t ch = 0; ch < channels; ++ch) {
    expect_equal("last_raw", a.last_raw[ch], b.raw64[ch].last_raw);
    expect_equal("has_last", a.has_last[ch], b.raw64[ch].has_last);
  }
  expect_equal_lists("epoch_offset_ps", a.epoch_offset_ps, b.epoch_offset_ps);
}

// ---- delta32 ---------------------------------------------------------------

void set_scene(LiteralDelta32& literal, StreamDecoder& decoder, Input& input) {
  const std::size_t flags = input.byte();
  for (std::size_t ch = 0; ch < channels; ++ch) {
    literal.has_time[ch] = (flags >> ch & 1) != 0;
    literal.last_ps[ch] = input.number<std::int64_t>();
  }
  literal.d32_locked = (flags & 0x10) != 0;
  literal.d32_base_valid = (flags & 0x20) != 0;
  literal.d32_base = input.number<std::uint64_t>();
  literal.d32_overflow = input.number<std::uint64_t>();
  decoder.has_time = literal.has_time;
  decoder.last_ps = literal.last_ps;
  decoder.d32_locked = literal.d32_locked;
  decoder.d32_base_valid = literal.d32_base_valid;
  decoder.d32_base = literal.d32_base;
  decoder.d32_overflow = literal.d32_overflow;
}

void expect_same_state(const LiteralDelta32& a, const StreamDecoder& b) {
  expect_equal_lists("last_ps", a.last_ps, b.last_ps);
  expect_equal_lists("has_time", a.has_time, b.has_time);
  expect_equal("d32_locked", a.d32_locked, b.d32_locked);
  expect_equal("d32_state", a.d32_state, b.d32_state);
  expect_equal("d32_base_low", a.d32_base_low, b.d32_base_low);
  expect_equal("d32_base", a.d32_base, b.d32_base);
  expect_equal("d32_base_valid", a.d32_base_valid, b.d32_base_valid);
  expect_equal("d32_overflow", a.d32_overflow, b.d32_overflow);
}

// ---- packed_delta ----------------------------------------------------------

void set_scene(LiteralPackedDecoder& literal, StreamDecoder& decoder, Input& input) {
  const std::size_t flags = input.byte();
  literal.packed_locked = true;
  // A record that does not begin a byte has the bits before it pending.
  literal.bit_offset = input.below(8);
  literal.pending = {input.byte()};
  for (std::size_t ch = 0; ch < channels; ++ch) {
    literal.packed_has_time[ch] = (flags >> ch & 1) != 0;
    literal.packed_emitted[ch] = (flags >> (ch + 4) & 1) != 0;
    literal.packed_last_ps[ch] = input.number<std::int64_t>();
    literal.packed_last_emitted_ps[ch] = literal.packed_last_ps[ch];
    literal.packed_overflow[ch] = input.number<std::uint32_t>();
    literal.packed_overflow[ch] <<= input.below(64);
  }
  literal.pending_sync_channel = static_cast<std::int32_t>(input.below(5)) - 1;
  literal.pending_sync_base_ps = input.number<std::uint64_t>();
  decoder.packed_locked = literal.packed_locked;
  decoder.bit_offset = literal.bit_offset;
  decoder.pending = literal.pending;
  decoder.packed_has_time = literal.packed_has_time;
  decoder.packed_emitted = literal.packed_emitted;
  decoder.packed_last_ps = literal.packed_last_ps;
  decoder.packed_last_emitted_ps = literal.packed_last_emitted_ps;
  decoder.packed_overflow = literal.packed_overflow;
  decoder.pending_sync_channel = literal.pending_sync_channel;
  decoder.pending_sync_base_ps = literal.pending_sync_base_ps;
}

void expect_same_state(const LiteralPackedDecoder& a, const StreamDecoder& b) {
  expect_equal("packed_locked", a.packed_locked, b.packed_locked);
  expect_equal("bit_offset", a.bit_offset, b.bit_offset);
  expect_equal_lists("packed_last_ps", a.packed_last_ps, b.packed_last_ps);
  expect_equal_lists("packed_has_time", a.packed_has_time, b.packed_has_time);
  expect_equal_lists("packed_overflow", a.packed_overflow, b.packed_overflow);
  expect_equal_lists("packed_last_delta", a.packed_last_delta, b.packed_last_delta);
  expect_equal_lists("packed_last_emitted_ps", a.packed_last_emitted_ps, b.packed_last_emitted_ps);
  expect_equal_lists("packed_emitted", a.packed_emitted, b.packed_emitted);
  expect_equal("packed_shift", a.packed_shift, b.packed_shift);
  expect_equal("sync_chunks_left", a.sync_chunks_left, b.sync_chunks_left);
  expect_equal("sync_channel", a.sync_channel, b.sync_channel);
  expect_equal("sync_value", a.sync_value, b.sync_value);
  expect_equal("sync_value_bits", a.sync_value_bits, b.sync_value_bits);
  expect_equal("pending_sync_channel", a.pending_sync_channel, b.pending_sync_channel);
  expect_equal("pending_sync_base_ps", a.pending_sync_base_ps, b.pending_sync_base_ps);
}

// The bits that the literal search reads in `bytes` pending bytes.
std::uint64_t bits_searched(const LiteralPackedDecoder& literal, std::size_t bytes) {
  const std::uint64_t candidates =
      std::min<std::uint64_t>(bytes, 65) * (std::uint64_t{literal.packed_bits} + 3);
  return literal.packed_locked ? 0 : candidates * 8 * bytes;
}

template <typename Literal>
std::uint64_t bits_searched(const Literal& /*literal*/, std::size_t /*bytes*/) {
  return 0;
}

// ---- Any of them -----------------------------------------------------------

// A format that does not exist: the bytes are kept and nothing comes of them.
struct LiteralNothing {
  Tags feed(const std::uint8_t* data, std::size_t size) {
    pending.insert(pending.end(), data, data + size);
    return {};
  }
  Bytes pending;
};

void set_scene(LiteralNothing& /*literal*/, StreamDecoder& /*decoder*/, Input& /*input*/) {}
void expect_same_state(const LiteralNothing& /*a*/, const StreamDecoder& /*b*/) {}

template <typename Literal>
void compare(Literal literal, StreamDecoder decoder, Input& input) {
  const bool has_scene = input.flag();
  ChunkSizes sizes(input);
  if (has_scene) {
    set_scene(literal, decoder, input);
  }
  std::uint64_t bits_left = max_bits_searched;
  Tags tags;
  for (int call = 0; call < max_calls && !input.empty(); ++call) {
    std::size_t size = std::min(sizes.next(), input.size());
    while (bits_searched(literal, literal.pending.size() + size) > bits_left) {
      if (size == 0) {
        return;
      }
      size /= 2;
    }
    bits_left -= bits_searched(literal, literal.pending.size() + size);
    const auto chunk = input.bytes(size);
    const Tags expected = literal.feed(chunk.data(), chunk.size());
    if (call % 2 == 0) {
      tags = decoder.feed(chunk.data(), chunk.size());
    } else {
      decoder.feed(chunk.data(), chunk.size(), tags);
    }
    expect_same_tags(expected, tags);
    expect_equal_lists("pending", literal.pending, decoder.pending);
    expect_same_state(literal, decoder);
  }
}

void run(Input input) {
  const timing::StreamFileHeader header = take_header(input);
  const StreamDecoder decoder(header);
  switch (header.format) {
    case Format::raw64:
      return compare(literal_raw64(header), decoder, input);
    case Format::delta32:
      return compare(LiteralDelta32(), decoder, input);
    case Format::packed_delta:
      return compare(LiteralPackedDecoder(header), decoder, input);
  }
  compare(LiteralNothing(), decoder, input);
}

}  // namespace
}  // namespace zelk::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zelk::fuzz::run({data, size});
  return 0;
}
