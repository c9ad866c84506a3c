// Writes the records of the raw64 and delta32 formats, field by field, into a
// byte buffer. Every bit position is spelt out here and not taken from the
// product, so that a test built on it notices a wrong one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace zelk::test_support {

using Bytes = std::vector<std::uint8_t>;

inline void append_big_endian(Bytes& out, std::uint64_t value, int byte_count) {
  for (int k = byte_count - 1; k >= 0; --k) {
    out.push_back(static_cast<std::uint8_t>(value >> (8 * k)));
  }
}

inline Bytes big_endian_64(std::initializer_list<std::uint64_t> words) {
  Bytes out;
  for (const std::uint64_t w : words) {
    append_big_endian(out, w, 8);
  }
  return out;
}

inline Bytes big_endian_32(std::initializer_list<std::uint32_t> words) {
  Bytes out;
  for (const std::uint32_t v : words) {
    append_big_endian(out, v, 4);
  }
  return out;
}

inline Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& part : parts) {
    out.insert(out.end(), part.begin(), part.end());
  }
  return out;
}

// raw64 records. Arguments wider than their field are cut to it.
constexpr std::uint64_t ps_record(unsigned channel, std::uint64_t timestamp_ps) {
  return static_cast<std::uint64_t>(channel & 3) << 61 | (timestamp_ps & 0xFFFFFFFFFFF);
}

constexpr std::uint64_t cf_record(unsigned channel, std::uint64_t coarse, std::uint64_t fine) {
  return static_cast<std::uint64_t>(channel & 3) << 61 | std::uint64_t{0xA5C3} << 45 |
         (coarse & 0xFFFFFFFF) << 13 | (fine & 0x1FFF);
}

// delta32 words. Arguments wider than their field are cut to it.
constexpr std::uint32_t d32_word(unsigned class_bit, unsigned subtype, unsigned kind,
                                 std::uint32_t payload) {
  return (class_bit & 1U) << 31 | (subtype & 3U) << 29 | (kind & 15U) << 25 | (payload & 0x1FFFFFF);
}

constexpr std::uint32_t d32_tag(unsigned channel, std::uint32_t payload) {
  return d32_word(0, channel, 10, payload);
}

constexpr std::uint32_t d32_control(unsigned subtype, std::uint32_t payload) {
  return d32_word(1, subtype, 5, payload);
}

constexpr std::uint32_t d32_overflow(std::uint32_t units) {
  return d32_control(0, units);
}

constexpr std::uint32_t d32_sync = 0xEB5A55AA;

constexpr std::uint32_t d32_base_low(std::uint64_t base_ps) {
  return d32_control(1, static_cast<std::uint32_t>(base_ps & 0x1FFFFFF));
}

constexpr std::uint32_t d32_base_high(std::uint64_t base_ps) {
  return d32_control(2, static_cast<std::uint32_t>(base_ps >> 25 & 0xFFFF));
}

// A sync word and the time base that follows it.
inline Bytes d32_announce(std::uint64_t base_ps) {
  return big_endian_32({d32_sync, d32_base_low(base_ps), d32_base_high(base_ps)});
}

// The overflow words and the tag word of a delta of any size.
inline Bytes d32_step(unsigned channel, std::uint64_t delta_ps) {
  Bytes out;
  std::uint64_t units = delta_ps / 33554432;
  while (units > 0) {
    const std::uint64_t part = units < 65535 ? units : 65535;
    append_big_endian(out, d32_overflow(static_cast<std::uint32_t>(part)), 4);
    units -= part;
  }
  append_big_endian(out, d32_tag(channel, static_cast<std::uint32_t>(delta_ps % 33554432)), 4);
  return out;
}

}  // namespace zelk::test_support
