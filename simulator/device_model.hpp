// What stands behind an open device handle, call by call as the C interface
// has it. The C functions check pointers and translate failures; everything
// else is a model's. Used by one thread at a time. Every function throws
// Failure when it refuses what is asked; the failure's text becomes the
// device's last error.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

#include "timing/c_api/zelk_timing.h"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

// Parameters of the packed_delta format.
struct PackedDeltaSettings {
  std::uint8_t bits = 16;
  std::uint16_t quantum_ps = 8;
};

class DeviceModel {
 public:
  using DelayLineMasks = std::array<std::uint8_t, timing::channel_count>;

  DeviceModel() = default;
  virtual ~DeviceModel() = default;
  DeviceModel(const DeviceModel&) = delete;
  DeviceModel& operator=(const DeviceModel&) = delete;

  virtual qx_identity identity() = 0;
  virtual void load_calibration(int flag) = 0;
  virtual qx_reference_clock reference_clock() = 0;
  virtual qx_reference_clock set_reference_clock(std::uint32_t source, std::uint32_t signal) = 0;
  virtual void set_delay_line_masks(std::span<const std::uint8_t, timing::channel_count> masks) = 0;
  virtual DelayLineMasks delay_line_masks() = 0;
  virtual void set_threshold_codes(std::span<const std::uint16_t, timing::channel_count> codes) = 0;
  virtual std::int64_t set_dead_time(std::int64_t requested_ps) = 0;  // returns the applied one
  virtual PackedDeltaSettings set_packed_delta(std::uint8_t bits, std::uint16_t quantum_ps) = 0;
  virtual void set_stream_interface(std::uint32_t transport, std::uint32_t format) = 0;
  virtual void set_channel_mask(std::uint8_t mask) = 0;
  virtual std::uint32_t set_calibration_frequency(double frequency_hz) = 0;  // returns the divider
  virtual void enable_calibration_source(bool enabled) = 0;

  virtual void start_stream(std::uint32_t mode, std::uint32_t flags) = 0;
  virtual void stop_stream(bool flag) = 0;

  // Waits at most `timeout` for stream bytes, copies what is there and fits
  // and returns its size. Throws Failure with Status::timed_out when nothing
  // arrived in time.
  virtual std::size_t read_stream(std::span<std::uint8_t> buffer,
                                  std::chrono::milliseconds timeout) = 0;
};

}  // namespace zelk::simulator
