// One simulated time-to-digital converter: its settings, and the stream while
// one runs. Made by opening a port; used by one thread at a time. Settings can
// be changed only while nothing streams, and last until the unit is closed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "simulator/device_backend.hpp"
#include "simulator/encoders/encoder_for.hpp"
#include "simulator/ports/device_port.hpp"
#include "simulator/reference_clock.hpp"
#include "simulator/unit/front_end.hpp"
#include "simulator/unit/running_stream.hpp"
#include "simulator/unit/scenario.hpp"
#include "timing/c_api/zelk_timing.h"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

// Identity of the unit at `port`.
qx_identity unit_identity(const DevicePort& port);

// What the unit makes of a request: bits limited to 4 to 24, and the largest
// power of two up to 1024 that does not exceed the quantum, at least 1.
PackedDeltaSettings accepted_packed_delta(std::uint8_t bits, std::uint16_t quantum_ps);

class Unit final : public DeviceBackend {
 public:
  explicit Unit(DevicePort port);

  // Both return 0 or throw Failure.
  qx_status call(DeviceCall& call) override;
  qx_status read(std::span<std::uint8_t> buffer, std::size_t& received, int timeout_ms) override;

 private:
  void expect_idle(CallKind request) const;
  void set_stream_interface(std::uint32_t transport, std::uint32_t format);
  void set_channel_mask(std::uint8_t mask);
  void start_stream(std::uint32_t mode, std::uint32_t flags);
  [[nodiscard]] Signal signal_for(timing::StreamMode mode) const;

  DevicePort port_;
  Scenario scenario_;
  ReferenceClock reference_clock_;
  FrontEndSettings front_end_;
  timing::Format format_ = timing::Format::raw64;
  PackedDeltaSettings packed_delta_;
  std::uint32_t calibration_divider_;
  bool calibration_enabled_ = false;
  std::unique_ptr<RunningStream> stream_;  // while streaming
};

}  // namespace zelk::simulator
