// From a Config to a streaming device: every set-up call in its fixed order.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "smoke_test/config.hpp"
#include "timing/device.hpp"
#include "timing/stream_header.hpp"

// What the set-up learned from the device; the report prints most of it.
struct DeviceSettings {
  zelk::timing::Identity identity;
  std::string calibration_path;  // where this unit's calibration belongs
  bool calibration_loaded = false;
  std::int32_t active_reference = -1;  // -1: the reference clock cannot be controlled
  std::array<std::uint8_t, zelk::timing::channel_count> tdl_masks{};  // read back
  std::int64_t applied_dead_time_ps = 0;
  zelk::timing::PackedDeltaConfig packed;  // as accepted by the device
  std::uint32_t calibration_divider = 0;   // 0 in external mode
};

// Opens config.port, or the first discovered device when it is empty.
zelk::timing::Device open_device(const Config& config);

// Identifies and sets up the device, printing the reference clock's line on
// the way. Throws zelk::timing::Error named after the step that failed; a
// calibration that does not load and a reference clock that cannot be
// controlled are no failures.
DeviceSettings set_up_device(zelk::timing::Device& device, const Config& config);

// Describes the stream that the device now sends.
zelk::timing::StreamFileHeader stream_header(const Config& config, const DeviceSettings& settings);

// The calibration file of the unit with this serial number: letters, digits,
// "-" and "_" are kept, every other byte becomes "_", none at all "unknown".
std::string calibration_path_for(std::string_view serial);

// The threshold code for a voltage: 0 V to 4 V span the 65536 codes from
// 0x8000 upward, wrapping; values outside are clamped. `threshold_v` is finite.
std::uint16_t threshold_code(double threshold_v);
