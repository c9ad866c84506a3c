// Bit layouts and constants of the three wire formats. Nothing but constants
// and pure functions of one field: a decoder and an encoder built on this page
// agree on where the bits are and on nothing else.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "timing/time_tag.hpp"

namespace zelk::timing::wire {

// raw64: one big-endian 64-bit word per record.
//
//   layout "ps"       63 | 62..61  | 60..44     | 43..0
//                     0  | channel | 0          | timestamp, ps
//   layout "raw_cf"   63 | 62..61  | 60..45     | 44..13 | 12..0
//                     0  | channel | 0xA5C3     | coarse | fine code
namespace raw64 {
inline constexpr std::size_t record_bytes = 8;
inline constexpr int channel_shift = 61;
inline constexpr std::uint64_t channel_mask = 3;

inline constexpr std::uint64_t ps_fixed_mask = 0x9FFFF00000000000;
inline constexpr std::uint64_t ps_fixed_value = 0;
inline constexpr std::uint64_t ps_timestamp_mask = (std::uint64_t{1} << 44) - 1;

inline constexpr std::uint64_t cf_fixed_mask = 0x9FFFE00000000000;
inline constexpr std::uint64_t cf_fixed_value = 0x14B8600000000000;  // 0xA5C3 in bits 60..45
inline constexpr int cf_coarse_shift = 13;
inline constexpr std::uint64_t cf_coarse_mask = 0xFFFFFFFF;
inline constexpr std::uint64_t cf_fine_mask = 0x1FFF;
}  // namespace raw64

// Fine codes of the "raw_cf" layout: each tap of the delay line is 18.5 ps and
// the correction never leaves the clock period.
inline constexpr std::size_t fine_code_count = 8192;

// Picoseconds to subtract from the coarse time for fine code `code`: 18.5 ps a
// tap, to the nearest picosecond with halves up, at most 3332.
constexpr std::int64_t default_fine_correction_ps(std::size_t code) {
  const auto doubled = 1 + 37 * static_cast<std::int64_t>(code);
  return std::min<std::int64_t>(doubled >> 1, clock_period_ps - 1);
}

// The whole table of these corrections, one entry per fine code.
inline std::vector<std::int64_t> default_fine_correction_table() {
  std::vector<std::int64_t> table(fine_code_count);
  for (std::size_t code = 0; code < table.size(); ++code) {
    table[code] = default_fine_correction_ps(code);
  }
  return table;
}

// delta32: one big-endian 32-bit word.
//
//   31      | 30..29                | 28..25                  | 24..0
//   control | channel, or sub-type  | kind: 10 tag, 5 control | payload
//
// Control sub-types: 0 overflow (16-bit payload, units of 2^25 ps), 1 time
// base bits 24..0, 2 time base bits 40..25 (16-bit payload), 3 sync word (one
// fixed payload).
namespace delta32 {
inline constexpr std::size_t word_bytes = 4;
inline constexpr std::uint32_t control_bit = std::uint32_t{1} << 31;
inline constexpr int channel_shift = 29;  // also of the sub-type
inline constexpr std::uint32_t channel_mask = 3;
inline constexpr int kind_shift = 25;
inline constexpr std::uint32_t kind_mask = 0xF;
inline constexpr std::uint32_t tag_kind = 10;
inline constexpr std::uint32_t control_kind = 5;
inline constexpr int payload_bits = 25;
inline constexpr std::uint32_t payload_mask = (std::uint32_t{1} << payload_bits) - 1;
// Overflow words and the high part of a time base use the low 16 payload bits.
inline constexpr std::uint32_t short_payload_mask = 0xFFFF;

inline constexpr std::uint32_t overflow_subtype = 0;
inline constexpr std::uint32_t base_low_subtype = 1;
inline constexpr std::uint32_t base_high_subtype = 2;
inline constexpr std::uint32_t sync_subtype = 3;
inline constexpr std::uint32_t sync_payload = 0x15A55AA;
inline constexpr std::uint32_t sync_word = 0xEB5A55AA;

inline constexpr int base_bits = 41;
inline constexpr std::uint64_t base_mask = (std::uint64_t{1} << base_bits) - 1;
}  // namespace delta32

// packed_delta: a bit string, most significant bit of each byte first, of
// records of B + 3 bits without padding.
//
//   B+2..B+1 | B    | B-1..0
//   channel  | flag | payload
//
// Flag 0: a tag, or inside a sync one chunk of the sync value. Flag 1: a sync
// start when the payload is all ones, an overflow otherwise.
namespace packed_delta {
inline constexpr int header_bits = 3;
inline constexpr int min_payload_bits = 1;
inline constexpr int max_payload_bits = 31;
inline constexpr int sync_value_bits = 41;
inline constexpr std::uint64_t sync_value_mask = (std::uint64_t{1} << sync_value_bits) - 1;
inline constexpr std::uint8_t default_bits = 16;
inline constexpr std::uint16_t default_quantum_ps = 8;

// Records that carry one sync value, least significant chunk first.
constexpr int sync_chunks(int payload_bits) {
  return (payload_bits + sync_value_bits - 1) / payload_bits;
}

// The shift that turns ticks of `quantum_ps` into picoseconds: a quantum that
// is no power of two counts as its largest power-of-two factor.
constexpr int quantum_shift(std::uint16_t quantum_ps) {
  return std::countr_zero(quantum_ps);
}
}  // namespace packed_delta

}  // namespace zelk::timing::wire
