// What the set-up learned from the device; the report prints most of it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "timing/device.hpp"
#include "timing/reference_clock.hpp"

struct DeviceSettings {
  zelk::timing::Identity identity;
  std::string calibration_path;  // where this unit's calibration belongs
  bool calibration_loaded = false;
  std::int32_t active_reference = -1;  // -1: the reference clock cannot be controlled
  std::optional<zelk::timing::ReferenceClockStatus> reference;        // none: likewise
  std::array<std::uint8_t, zelk::timing::channel_count> tdl_masks{};  // read back
  std::int64_t applied_dead_time_ps = 0;
  zelk::timing::PackedDeltaConfig packed;  // as accepted by the device
  std::uint32_t calibration_divider = 0;   // 0 in external mode
};
