// The state of the unit's reference clock: what the host asked for, and what
// is connected to the external reference input.
#pragma once

#include <cstdint>

#include "timing/c_api/zelk_timing.h"

namespace zelk::simulator {

enum class ReferenceSource : std::uint32_t { automatic = 0, internal = 1, external = 2 };
enum class ReferenceSignal : std::uint32_t { sine_10mhz = 0, pulse_per_second = 1 };

enum class ExternalReference : std::uint8_t {
  none,
  unlocked,  // a signal that the unit cannot lock to
  locked,
};

// Bits of the record's raw word.
inline constexpr std::uint32_t raw_external_present = 1U << 0;
inline constexpr std::uint32_t raw_external_locked = 1U << 1;
inline constexpr std::uint32_t raw_fallback = 1U << 2;
inline constexpr std::uint32_t raw_missing_warning = 1U << 3;

class ReferenceClock {
 public:
  explicit ReferenceClock(ExternalReference external = ExternalReference::none)
      : external_(external) {}

  // Takes values of the enumerations above; throws Failure for any other.
  void request(std::uint32_t source, std::uint32_t signal);

  [[nodiscard]] qx_reference_clock status() const;

 private:
  ExternalReference external_;
  ReferenceSource source_ = ReferenceSource::internal;
  ReferenceSignal signal_ = ReferenceSignal::sine_10mhz;
};

// What `status` turns into when the external signal goes away: a unit that ran
// on it, or was told to, falls back to its internal clock and warns.
qx_reference_clock after_loss_of_external(qx_reference_clock status);

}  // namespace zelk::simulator
