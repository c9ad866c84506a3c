// Runs a simulated unit and reads its stream with the host's decoder, as fast
// as it goes.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "simulator/encoders/encoder_for.hpp"
#include "simulator/failure.hpp"
#include "tests/simulator/device_client.hpp"
#include "timing/stream_decoder.hpp"

namespace zelk::simulator {

inline constexpr std::int64_t second_ps = 1'000'000'000'000;

// A stream that a host may ask for.
struct Wire {
  const char* name;
  timing::Format format = timing::Format::raw64;
  std::uint8_t bits = 24;
  std::uint16_t quantum_ps = 1;
  timing::StreamMode mode = timing::StreamMode::external;

  friend std::ostream& operator<<(std::ostream& out, const Wire& wire) { return out << wire.name; }
};

// packed_delta with its finest times, so that they can be compared in ps.
inline constexpr Wire raw64{.name = "raw64"};
inline constexpr Wire delta32{.name = "delta32", .format = timing::Format::delta32};
inline constexpr Wire packed_delta{.name = "packed_delta", .format = timing::Format::packed_delta};

inline std::string wire_name(const testing::TestParamInfo<Wire>& info) {
  return info.param.name;
}

inline void start(UnitClient& unit, const Wire& wire) {
  unit.set_stream_interface(1, static_cast<std::uint32_t>(wire.format));
  unit.set_packed_delta(wire.bits, wire.quantum_ps);
  if (wire.mode == timing::StreamMode::internal) {
    unit.set_calibration_frequency(100e3);
    unit.enable_calibration_source(true);
  }
  unit.start_stream(static_cast<std::uint32_t>(wire.mode), 0);
}

// One read; empty when nothing arrived in time.
inline std::vector<std::uint8_t> read_some(UnitClient& unit, std::size_t capacity,
                                           std::chrono::milliseconds timeout) {
  std::vector<std::uint8_t> bytes(capacity);
  try {
    bytes.resize(unit.read_stream(bytes, timeout));
  } catch (const Failure& failure) {
    if (failure.status() != Status::timed_out) {
      throw;
    }
    bytes.clear();
  }
  return bytes;
}

inline timing::StreamDecoder decoder_for(const Wire& wire) {
  timing::StreamFileHeader header;
  header.format = wire.format;
  header.mode = wire.mode;
  header.packed_bits = wire.bits;
  header.packed_quantum_ps = wire.quantum_ps;
  header.timestamp_layout = timing::timestamp_layout_for(wire.format, wire.mode);
  return timing::StreamDecoder(header);
}

// The tags of a unit with pace=max, in stream order, before `end_ps`.
inline std::vector<timing::TimeTag> tags_before(const std::string& port, const Wire& wire,
                                                std::int64_t end_ps) {
  UnitClient unit(parse_device_port(port));
  start(unit, wire);
  timing::StreamDecoder decoder = decoder_for(wire);
  std::vector<timing::TimeTag> tags;
  // Far more than any test wants: a stream that is never decoded ends too.
  for (int reads = 0; reads < 2000; ++reads) {
    const auto bytes = read_some(unit, 65536, std::chrono::milliseconds(1000));
    if (bytes.empty()) {
      return tags;
    }
    for (const timing::TimeTag& tag : decoder.feed(bytes.data(), bytes.size())) {
      if (tag.timestamp_ps >= end_ps) {
        return tags;
      }
      tags.push_back(tag);
    }
  }
  ADD_FAILURE() << "no tag at " << end_ps;
  return tags;
}

using ChannelTimes = std::array<std::vector<std::int64_t>, timing::channel_count>;

// The same by channel; times on a channel must rise.
inline ChannelTimes times_before(const std::string& port, const Wire& wire, std::int64_t end_ps) {
  ChannelTimes times;
  for (const timing::TimeTag& tag : tags_before(port, wire, end_ps)) {
    auto& channel = times[tag.channel];
    if (!channel.empty() && tag.timestamp_ps <= channel.back()) {
      ADD_FAILURE() << "time falls at " << tag.timestamp_ps;
    }
    channel.push_back(tag.timestamp_ps);
  }
  return times;
}

// The first `size` bytes of a unit with pace=max, or all that there are.
inline std::vector<std::uint8_t> first_bytes(const std::string& port, const Wire& wire,
                                             std::size_t size) {
  UnitClient unit(parse_device_port(port));
  start(unit, wire);
  std::vector<std::uint8_t> bytes;
  while (bytes.size() < size) {
    const auto part = read_some(unit, 4096, std::chrono::milliseconds(100));
    if (part.empty()) {
      return bytes;
    }
    bytes.insert(bytes.end(), part.begin(), part.end());
  }
  bytes.resize(size);
  return bytes;
}

}  // namespace zelk::simulator
