// A device on which things go wrong as planned. Stands in front of the healthy
// device, whichever it is, owns it, and is used by the same one thread at a
// time. A fault takes hold with the first call after its moment; a call that is
// under way is not touched.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "simulator/device_backend.hpp"
#include "simulator/faults/stream_damage.hpp"
#include "simulator/ports/fault_plan.hpp"
#include "simulator/waiting_bytes.hpp"

namespace zelk::simulator {

// Throws Failure when the opening of a device is to fail.
void expect_opening(const FaultPlan& plan);

// `device` itself when nothing is to go wrong with it. Throws Failure when its
// opening is to fail.
std::unique_ptr<DeviceBackend> with_faults(std::unique_ptr<DeviceBackend> device,
                                           const FaultPlan& plan, std::uint32_t seed);

class FaultyDevice final : public DeviceBackend {
 public:
  FaultyDevice(std::unique_ptr<DeviceBackend> device, FaultPlan plan, std::uint32_t seed);

  qx_status call(DeviceCall& call) override;
  qx_status read(std::span<std::uint8_t> buffer, std::size_t& received, int timeout_ms) override;
  [[nodiscard]] const char* last_error() const noexcept override;

 private:
  using Clock = std::chrono::steady_clock;

  void enter(CallKind call);
  void begin_stream();
  [[nodiscard]] bool is_due(const std::optional<double>& at_s) const;
  [[nodiscard]] bool is_in(const FaultWindow& window) const;
  [[nodiscard]] Clock::time_point end_of(const FaultWindow& window) const;
  void sit_out_silence(Clock::time_point deadline) const;
  qx_status read_damaged(std::span<std::uint8_t> buffer, std::size_t& received, int timeout_ms,
                         Clock::time_point deadline);
  void begin_due_damage();

  std::unique_ptr<DeviceBackend> device_;
  FaultPlan plan_;
  std::uint32_t seed_;
  std::array<std::int64_t, call_shapes.size()> calls_made_{};
  std::optional<Clock::time_point> started_;  // the last start of a stream
  bool streaming_ = false;
  bool answered_itself_ = false;  // the device had no part in the last answer

  // Of the stream that runs.
  std::optional<StreamDamage> damage_;     // none: its bytes are left alone
  std::optional<double> remove_bit_at_s_;  // still to come
  std::optional<double> insert_bit_at_s_;
  std::vector<std::uint8_t> healthy_;
  WaitingBytes damaged_;
};

}  // namespace zelk::simulator
