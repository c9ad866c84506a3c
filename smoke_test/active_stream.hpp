// A stream that has been started and must be stopped again.
#pragma once

#include <utility>

#include "timing/device.hpp"

// Stops the device's stream exactly once: in stop(), or, when a failure takes
// the run past that, in the destructor, which keeps quiet about a stop that
// fails too. Borrows the device; made after start_stream() and destroyed
// before the device, with no reader running.
class ActiveStream {
 public:
  explicit ActiveStream(zelk::timing::Device& device) : device_(&device) {}
  ~ActiveStream() {
    if (device_ != nullptr) {
      device_->stop_stream_quietly(true);
    }
  }
  ActiveStream(const ActiveStream&) = delete;
  ActiveStream& operator=(const ActiveStream&) = delete;

  // Throws zelk::timing::Error.
  void stop() {
    if (zelk::timing::Device* device = std::exchange(device_, nullptr)) {
      device->stop_stream_any(true);
    }
  }

 private:
  zelk::timing::Device* device_;  // null once stopped
};
