// A recording behind a device handle: the host gets the answers and the stream
// that the recorded host got, as long as it asks for the same. Used by one
// thread at a time.
//
// The recording's successful starts divide it. A call is answered by the next
// recorded call of its kind with the same arguments, up to and including the
// next start; a call that was answered may be repeated. A start needs every
// setting that was in effect in the recording. Identity, queries and stops may
// be left out, and a stop always succeeds unless the recorded one failed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "simulator/device_backend.hpp"
#include "simulator/ports/recording_ports.hpp"
#include "simulator/recordings/recorded_stream.hpp"
#include "simulator/recordings/recording_file.hpp"

namespace zelk::simulator {

class ReplayDevice final : public DeviceBackend {
 public:
  // Throws Failure when the file is no whole recording.
  explicit ReplayDevice(const ReplayPort& port);

  qx_status call(DeviceCall& call) override;
  qx_status read(std::span<std::uint8_t> buffer, std::size_t& received, int timeout_ms) override;
  [[nodiscard]] const char* last_error() const noexcept override { return last_error_; }

 private:
  using Index = std::size_t;  // of a recorded call
  using IndexPerKind = std::array<std::optional<Index>, device_call_kinds>;

  [[nodiscard]] Index next_start(Index from) const;
  [[nodiscard]] std::optional<Index> find(const DeviceCall& call) const;
  [[noreturn]] void refuse(const DeviceCall& call) const;
  void expect_settings(const DeviceCall& start, Index recorded_start) const;
  qx_status stop(DeviceCall& call);
  qx_status answer(const RecordedAnswer& answer);

  RecordingFile recording_;
  Pace pace_;
  Index part_begin_ = 0;                  // the calls since the last start ...
  Index part_end_;                        // ... and before the next one
  IndexPerKind answered_;                 // the recorded call that last answered one of its kind
  IndexPerKind settings_;                 // in effect here, by kind of setting
  std::optional<RecordedStream> stream_;  // while streaming
  const char* last_error_ = "";           // into recording_ or stream_; may be null
};

}  // namespace zelk::simulator
