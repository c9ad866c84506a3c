// packed_delta streams for the encoder's tests: written down bit by bit, made
// by the encoder, and read by the host's decoder.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/encoders/packed_delta_encoder.hpp"
#include "timing/stream_decoder.hpp"

namespace zelk::simulator {

using TagList = std::vector<timing::TimeTag>;
using ByteList = std::vector<std::uint8_t>;

struct PackedStream {
  int bits = 16;
  int quantum_ps = 8;
  std::uint8_t mask = 0xF;
  timing::StreamMode mode = timing::StreamMode::external;
};

// The low `width` bits of `value`, most significant first.
inline std::string binary(std::uint64_t value, int width) {
  std::string text;
  for (int i = width - 1; i >= 0; --i) {
    text += (value >> i & 1) != 0 ? '1' : '0';
  }
  return text;
}

// The bits of a record, of a sync (start and chunks, without the tag), and of
// a tag behind as many overflow records as its delta takes.
inline std::string record(int bits, unsigned channel, unsigned flag, std::uint64_t payload) {
  return binary(channel, 2) + binary(flag, 1) + binary(payload, bits);
}

inline std::string sync(int bits, unsigned channel, std::uint64_t value) {
  std::string text = record(bits, channel, 1, UINT64_MAX);
  for (int low = 0; low < 41; low += bits) {
    text += record(bits, channel, 0, value % (std::uint64_t{1} << 41) >> low);
  }
  return text;
}

inline std::string step(int bits, unsigned channel, std::uint64_t delta) {
  const std::uint64_t unit = std::uint64_t{1} << bits;
  std::string text;
  for (std::uint64_t units = delta / unit; units > 0;) {
    const std::uint64_t part = std::min(units, unit - 2);
    text += record(bits, channel, 1, part);
    units -= part;
  }
  return text + record(bits, channel, 0, delta % unit);
}

// The bits as bytes, the last one filled up with zeros; blanks do not count.
inline ByteList bytes_of(std::string_view text) {
  ByteList bytes;
  int count = 0;
  for (const char c : text) {
    if (c == ' ') {
      continue;
    }
    if (count++ % 8 == 0) {
      bytes.push_back(0);
    }
    bytes.back() = static_cast<std::uint8_t>(bytes.back() | (c - '0') << (8 - 1 - (count - 1) % 8));
  }
  return bytes;
}

inline std::string bits_of(const ByteList& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += binary(byte, 8);
  }
  return text;
}

// The whole bytes of a stream; the bits of a last byte that is not full stay
// in the encoder.
inline ByteList packed_bytes(const PackedStream& stream, const TagList& tags,
                             std::uint32_t start_bits = 0) {
  PackedDeltaEncoder encoder(stream.bits, stream.quantum_ps, start_bits);
  ByteList bytes;
  for (const timing::TimeTag& tag : tags) {
    encoder.append(tag, bytes);
  }
  return bytes;
}

// The same, flushed at the end.
inline ByteList flushed_bytes(const PackedStream& stream, const TagList& tags,
                              std::uint32_t start_bits = 0) {
  PackedDeltaEncoder encoder(stream.bits, stream.quantum_ps, start_bits);
  ByteList bytes;
  for (const timing::TimeTag& tag : tags) {
    encoder.append(tag, bytes);
  }
  encoder.flush(bytes);
  return bytes;
}

// All bits of a stream, and the first ones of a sync behind them, which a later
// tag makes and which fill the last byte.
inline ByteList filled_bytes(const PackedStream& stream, TagList tags,
                             std::uint32_t start_bits = 0) {
  const std::size_t whole = packed_bytes(stream, tags, start_bits).size();
  const timing::TimeTag last = tags.back();
  tags.push_back({last.channel, last.timestamp_ps + 20'000'000'000});
  ByteList bytes = packed_bytes(stream, tags, start_bits);
  bytes.resize(std::min(bytes.size(), whole + 1));
  return bytes;
}

// What a host sees that reads `read_bytes` at a time.
inline TagList host_tags(const PackedStream& stream, const ByteList& bytes,
                         std::size_t read_bytes = 262'144) {
  timing::StreamFileHeader header;
  header.format = timing::Format::packed_delta;
  header.mode = stream.mode;
  header.channel_mask = stream.mask;
  header.packed_bits = static_cast<std::uint8_t>(stream.bits);
  header.packed_quantum_ps = static_cast<std::uint16_t>(stream.quantum_ps);
  timing::StreamDecoder decoder(header);
  TagList tags;
  for (std::size_t first = 0; first < bytes.size(); first += read_bytes) {
    const TagList part = decoder.feed(&bytes[first], std::min(read_bytes, bytes.size() - first));
    tags.insert(tags.end(), part.begin(), part.end());
  }
  return tags;
}

inline TagList packed_round_trip(const PackedStream& stream, const TagList& tags,
                                 std::uint32_t start_bits = 0) {
  return host_tags(stream, filled_bytes(stream, tags, start_bits));
}

// Times rounded down to the quantum; without the tags that do not advance
// their channel's tick.
inline TagList quantised(const TagList& tags, int quantum_ps) {
  std::array<std::int64_t, timing::channel_count> last_ps{-1, -1, -1, -1};
  TagList kept;
  for (const timing::TimeTag& tag : tags) {
    const std::int64_t time_ps = tag.timestamp_ps - tag.timestamp_ps % quantum_ps;
    if (time_ps > last_ps[tag.channel]) {
      kept.push_back({tag.channel, time_ps});
      last_ps[tag.channel] = time_ps;
    }
  }
  return kept;
}

}  // namespace zelk::simulator
