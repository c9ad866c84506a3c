// A device as a host calls it, function by function. Calls that are refused
// throw what the device throws; any other answer must be a success.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <utility>

#include "simulator/call_records.hpp"
#include "simulator/device_backend.hpp"
#include "simulator/encoders/encoder_for.hpp"
#include "simulator/unit/unit.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

class DeviceClient {
 public:
  template <typename T>
  using PerChannel = std::array<T, timing::channel_count>;

  explicit DeviceClient(DeviceBackend& device) : device_(device) {}

  qx_identity identity() { return identity_from_words(made(CallKind::identify).results); }
  void load_calibration(int flag) { made(CallKind::load_calibration, {word(flag)}); }
  qx_reference_clock reference_clock() {
    return clock_from_words(made(CallKind::get_reference_clock_status).results);
  }
  qx_reference_clock set_reference_clock(std::uint32_t source, std::uint32_t signal) {
    return clock_from_words(made(CallKind::set_reference_clock, {source, signal}).results);
  }
  void set_delay_line_masks(const PerChannel<std::uint8_t>& masks) {
    made(CallKind::set_tdl_active_masks, {masks[0], masks[1], masks[2], masks[3]});
  }
  PerChannel<std::uint8_t> delay_line_masks() {
    PerChannel<std::uint8_t> masks{};
    from_words(made(CallKind::get_tdl_active_masks).results, masks.size(), masks.data());
    return masks;
  }
  void set_threshold_codes(const PerChannel<std::uint16_t>& codes) {
    made(CallKind::set_dac_codes, {codes[0], codes[1], codes[2], codes[3]});
  }
  std::int64_t set_dead_time(std::int64_t requested_ps) {
    return static_cast<std::int64_t>(
        made(CallKind::set_input_dead_time, {word(requested_ps)}).results[0]);
  }
  PackedDeltaSettings set_packed_delta(std::uint8_t bits, std::uint16_t quantum_ps) {
    const DeviceCall& call = made(CallKind::set_packed_delta_config, {bits, quantum_ps});
    return {static_cast<std::uint8_t>(call.results[0]),
            static_cast<std::uint16_t>(call.results[1])};
  }
  void set_stream_interface(std::uint32_t transport, std::uint32_t format) {
    made(CallKind::set_stream_interface, {transport, format});
  }
  void set_channel_mask(std::uint8_t mask) { made(CallKind::set_stream_channel_mask, {mask}); }
  std::uint32_t set_calibration_frequency(double frequency_hz) {
    return static_cast<std::uint32_t>(
        made(CallKind::set_calibration_freq, {std::bit_cast<std::uint64_t>(frequency_hz)})
            .results[0]);
  }
  void enable_calibration_source(bool enabled) {
    made(enabled ? CallKind::enable_calibration_source : CallKind::disable_calibration_source);
  }
  void start_stream(std::uint32_t mode, std::uint32_t flags) {
    made(CallKind::start_stream_mode, {mode, flags});
  }
  void stop_stream(bool flag) { made(CallKind::stop_stream_mode, {word(flag)}); }
  std::size_t read_stream(std::span<std::uint8_t> buffer, std::chrono::milliseconds timeout) {
    std::size_t received = 77;
    EXPECT_EQ(device_.read(buffer, received, static_cast<int>(timeout.count())), 0);
    return received;
  }

 private:
  template <typename T>
  static std::uint64_t word(T value) {
    return static_cast<std::uint64_t>(value);
  }

  DeviceCall& made(CallKind kind, std::initializer_list<std::uint64_t> arguments = {}) {
    call_ = {.kind = kind};
    std::copy(arguments.begin(), arguments.end(), call_.arguments.begin());
    EXPECT_EQ(device_.call(call_), 0);
    return call_;
  }

  DeviceBackend& device_;
  DeviceCall call_;  // the last one
};

struct OwnUnit {
  Unit unit;
};

// A simulated unit and its host. The unit is made first and destroyed last.
class UnitClient : private OwnUnit, public DeviceClient {
 public:
  explicit UnitClient(DevicePort port) : OwnUnit{Unit(std::move(port))}, DeviceClient(unit) {}
};

}  // namespace zelk::simulator
