// One simulated time-to-digital converter: its settings, and the stream while
// one runs. Made by opening a port; used by one thread at a time. Settings can
// be changed only while nothing streams, and last until the unit is closed.
// Every function throws Failure when it refuses what is asked.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "simulator/device_model.hpp"
#include "simulator/ports/device_port.hpp"
#include "simulator/reference_clock.hpp"
#include "simulator/unit/front_end.hpp"
#include "simulator/unit/scenario.hpp"
#include "simulator/unit/stream_session.hpp"
#include "timing/c_api/zelk_timing.h"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

// Identity of the unit at `port`.
qx_identity unit_identity(const DevicePort& port);

// What the unit makes of a request: bits limited to 4 to 24, and the largest
// power of two up to 1024 that does not exceed the quantum, at least 1.
PackedDeltaSettings accepted_packed_delta(std::uint8_t bits, std::uint16_t quantum_ps);

class Unit final : public DeviceModel {
 public:
  explicit Unit(DevicePort port);

  qx_identity identity() override { return unit_identity(port_); }

  // The simulated unit is always calibrated: this succeeds and changes nothing.
  void load_calibration(int flag) override;

  qx_reference_clock reference_clock() override { return reference_clock_.status(); }
  qx_reference_clock set_reference_clock(std::uint32_t source, std::uint32_t signal) override;

  // Five bits per channel; the bits above them do not exist in the unit.
  void set_delay_line_masks(std::span<const std::uint8_t, timing::channel_count> masks) override;
  DelayLineMasks delay_line_masks() override { return front_end_.delay_line_masks; }

  void set_threshold_codes(std::span<const std::uint16_t, timing::channel_count> codes) override;
  std::int64_t set_dead_time(std::int64_t requested_ps) override;
  void set_channel_mask(std::uint8_t mask) override;
  void set_stream_interface(std::uint32_t transport, std::uint32_t format) override;
  PackedDeltaSettings set_packed_delta(std::uint8_t bits, std::uint16_t quantum_ps) override;
  std::uint32_t set_calibration_frequency(double frequency_hz) override;
  void enable_calibration_source(bool enabled) override;

  void start_stream(std::uint32_t mode, std::uint32_t flags) override;
  void stop_stream(bool /*flag*/) override { session_.reset(); }
  std::size_t read_stream(std::span<std::uint8_t> buffer,
                          std::chrono::milliseconds timeout) override;

 private:
  void expect_idle(const char* request) const;
  [[nodiscard]] Signal signal_for(timing::StreamMode mode) const;

  DevicePort port_;
  Scenario scenario_;
  ReferenceClock reference_clock_;
  FrontEndSettings front_end_;
  timing::Format format_ = timing::Format::raw64;
  PackedDeltaSettings packed_delta_;
  std::uint32_t calibration_divider_;
  bool calibration_enabled_ = false;
  std::optional<StreamSession> session_;  // while streaming
};

}  // namespace zelk::simulator
