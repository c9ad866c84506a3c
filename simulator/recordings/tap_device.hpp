// A real device behind a recorder: every call goes to the device unchanged, its
// answer comes back unchanged, and what passed is written to a recording.
//
// The recording never changes what a call brings. When something could not be
// written, the calls that follow are refused with Status::cannot_write_recording
// and no longer reach the device, so that nobody takes a recording with a hole
// for a whole one; stopping the stream and closing always reach it.
//
// Owns the library, the device and the recording; used by one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "simulator/device_backend.hpp"
#include "simulator/ports/recording_ports.hpp"
#include "simulator/recordings/loaded_library.hpp"
#include "simulator/recordings/recording_writer.hpp"

namespace zelk::simulator {

class TapDevice final : public DeviceBackend {
 public:
  // Loads the library, opens the device there, at the line rate that the host
  // asked for if it did, and creates the recording. Throws ForwardedFailure
  // when the device cannot be opened, and Failure for everything else.
  TapDevice(const TapPort& port, std::optional<int> rate);
  ~TapDevice() override;

  qx_status call(DeviceCall& call) override;
  qx_status read(std::span<std::uint8_t> buffer, std::size_t& received, int timeout_ms) override;
  [[nodiscard]] const char* last_error() const noexcept override;

 private:
  using Clock = std::chrono::steady_clock;
  using Handle = std::unique_ptr<qx_device, decltype(&qx_close)>;

  [[nodiscard]] Handle open(const TapPort& port, std::optional<int> rate) const;
  [[nodiscard]] qx_status forward(DeviceCall& call) const;
  [[nodiscard]] std::uint64_t now_ns() const;
  [[nodiscard]] RecordedAnswer answer_for(qx_status status) const;
  void expect_recording() const;
  void write_read(std::uint64_t time_ns, qx_status status, std::span<const std::uint8_t> bytes);
  void write_quiet_reads() noexcept;

  LoadedLibrary library_;
  Handle device_;
  RecordingWriter writer_;
  Clock::time_point opened_ = Clock::now();
  std::optional<RecordedQuiet> quiet_;  // not written yet: it may go on
};

}  // namespace zelk::simulator
