// From a Config to a streaming device: every set-up call in its fixed order.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "smoke_test/config.hpp"
#include "smoke_test/device_settings.hpp"
#include "timing/device.hpp"
#include "timing/stream_header.hpp"

// Puts the port of the attached unit with config.serial into config.port, if a
// serial number was given. Throws zelk::timing::Error "discover", and
// std::runtime_error unless exactly one attached unit has it.
void choose_unit(Config& config, zelk::timing::CallWatch* watch = nullptr);

// Opens config.port, or the first discovered device when it is empty. `watch`,
// if given, is told of every call of the device.
zelk::timing::Device open_device(const Config& config, zelk::timing::CallWatch* watch = nullptr);

// Identifies and sets up the device, printing the reference clock's line on
// the way. Throws zelk::timing::Error named after the step that failed; a
// calibration that does not load and a reference clock that cannot be
// controlled are no failures. `settings` is filled step by step: a set-up that
// fails leaves there what was known by then.
void set_up_device(zelk::timing::Device& device, const Config& config, DeviceSettings& settings);

// Describes the stream that the device now sends.
zelk::timing::StreamFileHeader stream_header(const Config& config, const DeviceSettings& settings);

// The calibration file of the unit with this serial number: letters, digits,
// "-" and "_" are kept, every other byte becomes "_", none at all "unknown".
std::string calibration_path_for(std::string_view serial);

inline constexpr double highest_threshold_v = 4.0;

// The threshold code for a voltage: 0 V to highest_threshold_v span the 65536 codes from
// 0x8000 upward, wrapping; values outside are clamped. `threshold_v` is finite.
std::uint16_t threshold_code(double threshold_v);
