// What an open device handle stands for: a simulated unit, a real device behind
// a tap, or a recording. Used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "simulator/device_call.hpp"
#include "simulator/failure.hpp"
#include "timing/c_api/zelk_timing.h"

namespace zelk::simulator {

// The refusals of a read that all but a tap have in common.
inline constexpr const char* no_data_text = "read_stream_bytes: no data within the time-out";

inline Failure nothing_arrived() {
  return {Status::timed_out, no_data_text};
}

inline Failure not_streaming() {
  return {Status::not_streaming, "read_stream_bytes: start a stream first"};
}

class DeviceBackend {
 public:
  DeviceBackend() = default;
  virtual ~DeviceBackend() = default;
  DeviceBackend(const DeviceBackend&) = delete;
  DeviceBackend& operator=(const DeviceBackend&) = delete;

  // Carries out `call` and returns the status of the device that did; throws
  // Failure for a refusal of the backend's own, whose text then becomes the
  // handle's last error.
  virtual qx_status call(DeviceCall& call) = 0;

  // Reads stream bytes as qx_read_stream_bytes does, with statuses and
  // failures as in call(). `timeout_ms` is the host's, also when negative.
  virtual qx_status read(std::span<std::uint8_t> buffer, std::size_t& received, int timeout_ms) = 0;

  // The last error of the device that returned the last status; may be null.
  // Lives until the next call.
  [[nodiscard]] virtual const char* last_error() const noexcept { return ""; }
};

}  // namespace zelk::simulator
