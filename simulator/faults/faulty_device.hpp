// A device on which things go wrong as planned. Stands in front of the healthy
// device, which it owns, and is used by the same one thread at a time. A fault
// takes hold with the first call after its moment; a call that is under way is
// not touched.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "simulator/device_model.hpp"
#include "simulator/faults/stream_damage.hpp"
#include "simulator/ports/fault_plan.hpp"
#include "simulator/waiting_bytes.hpp"

namespace zelk::simulator {

// `device` itself when nothing is to go wrong with it. Throws Failure when its
// opening is to fail.
std::unique_ptr<DeviceModel> with_faults(std::unique_ptr<DeviceModel> device, const FaultPlan& plan,
                                         std::uint32_t seed);

class FaultyDevice final : public DeviceModel {
 public:
  FaultyDevice(std::unique_ptr<DeviceModel> device, FaultPlan plan, std::uint32_t seed);

  qx_identity identity() override;
  void load_calibration(int flag) override;
  qx_reference_clock reference_clock() override;
  qx_reference_clock set_reference_clock(std::uint32_t source, std::uint32_t signal) override;
  void set_delay_line_masks(std::span<const std::uint8_t, timing::channel_count> masks) override;
  DelayLineMasks delay_line_masks() override;
  void set_threshold_codes(std::span<const std::uint16_t, timing::channel_count> codes) override;
  std::int64_t set_dead_time(std::int64_t requested_ps) override;
  PackedDeltaSettings set_packed_delta(std::uint8_t bits, std::uint16_t quantum_ps) override;
  void set_stream_interface(std::uint32_t transport, std::uint32_t format) override;
  void set_channel_mask(std::uint8_t mask) override;
  std::uint32_t set_calibration_frequency(double frequency_hz) override;
  void enable_calibration_source(bool enabled) override;
  void start_stream(std::uint32_t mode, std::uint32_t flags) override;
  void stop_stream(bool flag) override;
  std::size_t read_stream(std::span<std::uint8_t> buffer,
                          std::chrono::milliseconds timeout) override;

 private:
  using Clock = std::chrono::steady_clock;

  void enter(CallKind call);
  void enter_reference_call(CallKind call);
  [[nodiscard]] qx_reference_clock with_losses(const qx_reference_clock& status) const;
  [[nodiscard]] bool is_due(const std::optional<double>& at_s) const;
  [[nodiscard]] bool is_in(const FaultWindow& window) const;
  [[nodiscard]] Clock::time_point end_of(const FaultWindow& window) const;
  void wait_while_silent(Clock::time_point deadline) const;
  std::size_t read_damaged(std::span<std::uint8_t> buffer, Clock::time_point deadline);
  void begin_due_damage();

  std::unique_ptr<DeviceModel> device_;
  FaultPlan plan_;
  std::uint32_t seed_;
  std::array<std::int64_t, call_shapes.size()> calls_made_{};
  std::optional<Clock::time_point> started_;  // the last start of a stream
  bool streaming_ = false;

  // Of the stream that runs.
  std::optional<StreamDamage> damage_;     // none: its bytes are left alone
  std::optional<double> remove_bit_at_s_;  // still to come
  std::optional<double> insert_bit_at_s_;
  std::vector<std::uint8_t> healthy_;
  WaitingBytes damaged_;
};

}  // namespace zelk::simulator
