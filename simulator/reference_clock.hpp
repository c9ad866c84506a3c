// The state of the unit's reference clock. Nothing is connected to the
// external reference input of a simulated unit.
#pragma once

#include <cstdint>

#include "timing/c_api/zelk_timing.h"

namespace zelk::simulator {

enum class ReferenceSource : std::uint32_t { automatic = 0, internal = 1, external = 2 };
enum class ReferenceSignal : std::uint32_t { sine_10mhz = 0, pulse_per_second = 1 };

// Bits of the record's raw word.
inline constexpr std::uint32_t raw_external_present = 1U << 0;
inline constexpr std::uint32_t raw_external_locked = 1U << 1;
inline constexpr std::uint32_t raw_fallback = 1U << 2;
inline constexpr std::uint32_t raw_missing_warning = 1U << 3;

class ReferenceClock {
 public:
  // Takes values of the enumerations above; throws Failure for any other.
  void request(std::uint32_t source, std::uint32_t signal);

  [[nodiscard]] qx_reference_clock status() const;

 private:
  ReferenceSource source_ = ReferenceSource::internal;
  ReferenceSignal signal_ = ReferenceSignal::sine_10mhz;
};

}  // namespace zelk::simulator
