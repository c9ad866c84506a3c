// The reference clock: what can be asked for and what the device reports.
#pragma once

#include <cstdint>

#include "timing/c_api/zelk_timing.h"

namespace zelk::timing {

enum class ReferenceClockSource : std::uint32_t { automatic = 0, internal = 1, external = 2 };

enum class ReferenceSignal : std::uint32_t { ten_mhz = 0, one_pps = 1 };

struct ReferenceClockStatus {
  ReferenceClockSource requested{};
  ReferenceClockSource active{};
  ReferenceSignal signal{};
  bool external_present = false;
  bool external_locked = false;
  bool reserved_flag = false;  // without a known meaning, so nothing prints it
  bool fallback = false;       // running on the internal clock instead
  bool missing_warning = false;
  std::uint32_t raw = 0;  // the library's status word, unchanged

  static ReferenceClockStatus from_c(const qx_reference_clock& c) {
    return {
        .requested = static_cast<ReferenceClockSource>(c.requested),
        .active = static_cast<ReferenceClockSource>(c.active),
        .signal = static_cast<ReferenceSignal>(c.signal),
        .external_present = c.external_present != 0,
        .external_locked = c.external_locked != 0,
        .reserved_flag = c.reserved_flag != 0,
        .fallback = c.fallback != 0,
        .missing_warning = c.missing_warning != 0,
        .raw = c.raw,
    };
  }
};

}  // namespace zelk::timing
