// The two records of the C interface as the words of a DeviceCall.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "simulator/device_call.hpp"
#include "timing/c_api/zelk_timing.h"

namespace zelk::simulator {

using ResultWords = std::span<std::uint64_t, DeviceCall::max_results>;

inline void identity_to_words(const qx_identity& identity, ResultWords words) {
  unsigned char bytes[sizeof identity];
  std::memcpy(bytes, &identity, sizeof identity);
  for (std::size_t i = 0; i < words.size(); ++i) {
    words[i] = 0;
    for (std::size_t k = 0; k < 8; ++k) {
      words[i] |= std::uint64_t{bytes[8 * i + k]} << (8 * k);
    }
  }
}

inline qx_identity identity_from_words(ResultWords words) {
  qx_identity identity;
  unsigned char bytes[sizeof identity];
  static_assert(sizeof identity == 8 * DeviceCall::max_results);
  for (std::size_t i = 0; i < sizeof identity; ++i) {
    bytes[i] = static_cast<unsigned char>(words[i / 8] >> (8 * (i % 8)));
  }
  std::memcpy(&identity, bytes, sizeof identity);
  return identity;
}

// Each field is 32 bits wide; a signed one is extended.
inline void clock_to_words(const qx_reference_clock& clock, ResultWords words) {
  const std::int32_t fields[] = {clock.requested, clock.active, clock.signal};
  const std::uint32_t flags[] = {clock.external_present, clock.external_locked, clock.reserved_flag,
                                 clock.fallback,         clock.missing_warning, clock.raw};
  to_words(fields, 3, words.first(3));
  to_words(flags, 6, words.subspan(3));
}

inline qx_reference_clock clock_from_words(ResultWords words) {
  return {.requested = static_cast<std::int32_t>(words[0]),
          .active = static_cast<std::int32_t>(words[1]),
          .signal = static_cast<std::int32_t>(words[2]),
          .external_present = static_cast<std::uint32_t>(words[3]),
          .external_locked = static_cast<std::uint32_t>(words[4]),
          .reserved_flag = static_cast<std::uint32_t>(words[5]),
          .fallback = static_cast<std::uint32_t>(words[6]),
          .missing_warning = static_cast<std::uint32_t>(words[7]),
          .raw = static_cast<std::uint32_t>(words[8])};
}

}  // namespace zelk::simulator
