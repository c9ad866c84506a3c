#include "simulator/unit/unit.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/encoders/encoder_for.hpp"
#include "simulator/failure.hpp"
#include "simulator/signals/calibration_source.hpp"
#include "simulator/signals/merged_source.hpp"
#include "simulator/signals/random_numbers.hpp"

namespace zelk::simulator {
namespace {

constexpr double default_calibration_hz = 10e3;
constexpr std::uint8_t min_packed_bits = 4;
constexpr std::uint8_t max_packed_bits = 24;
constexpr std::uint16_t max_packed_quantum_ps = 1024;

// Values of the C interface that time_tag.hpp does not name.
constexpr std::uint32_t transport_uart = 0;
constexpr std::uint32_t transport_usb = 1;

template <std::size_t size>
void put_text(char (&field)[size], std::string_view text) {
  std::memcpy(field, text.data(), std::min(size, text.size()));
}

std::string_view serial_of(ScenarioKind scenario) {
  switch (scenario) {
    case ScenarioKind::default_unit:
      break;
    case ScenarioKind::tags:
      return "SIM-TAGS";
    case ScenarioKind::pulses:
      return "SIM-PULSES";
    case ScenarioKind::random:
      return "SIM-RANDOM";
    case ScenarioKind::pairs:
      return "SIM-PAIRS";
    case ScenarioKind::burst:
      return "SIM-BURST";
    case ScenarioKind::silent:
      return "SIM-SILENT";
  }
  return default_unit_serial;
}

std::string number(std::uint32_t value) {
  return std::to_string(value);
}

}  // namespace

qx_identity unit_identity(const DevicePort& port) {
  qx_identity identity{};
  put_text(identity.text_a, "ZK4");
  put_text(identity.text_b, "simulated");
  put_text(identity.serial, serial_of(port.scenario));
  put_text(identity.device_text, "ZK4 four-channel TDC, simulated");
  return identity;
}

PackedDeltaSettings accepted_packed_delta(std::uint8_t bits, std::uint16_t quantum_ps) {
  const std::uint16_t quantum = std::clamp<std::uint16_t>(quantum_ps, 1, max_packed_quantum_ps);
  return {std::clamp(bits, min_packed_bits, max_packed_bits), std::bit_floor(quantum)};
}

Unit::Unit(DevicePort port)
    : port_(std::move(port)),
      scenario_(port_),
      reference_clock_(port_.faults.external_reference),
      calibration_divider_(calibration_divider(default_calibration_hz)) {
  front_end_.bin_nonuniformity = port_.bin_nonuniformity;
  front_end_.seed = port_.seed;
}

void Unit::expect_idle(const char* request) const {
  if (session_) {
    throw Failure(Status::busy, std::string(request) + ": stop the stream first");
  }
}

void Unit::load_calibration(int /*flag*/) {
  expect_idle("load_calibration");
}

qx_reference_clock Unit::set_reference_clock(std::uint32_t source, std::uint32_t signal) {
  expect_idle("set_reference_clock");
  reference_clock_.request(source, signal);
  return reference_clock_.status();
}

void Unit::set_delay_line_masks(std::span<const std::uint8_t, timing::channel_count> masks) {
  expect_idle("set_tdl_active_masks");
  std::transform(
      masks.begin(), masks.end(), front_end_.delay_line_masks.begin(),
      [](std::uint8_t mask) { return static_cast<std::uint8_t>(mask & all_delay_lines_mask); });
}

void Unit::set_threshold_codes(std::span<const std::uint16_t, timing::channel_count> codes) {
  expect_idle("set_dac_codes");
  std::copy(codes.begin(), codes.end(), front_end_.threshold_codes.begin());
}

std::int64_t Unit::set_dead_time(std::int64_t requested_ps) {
  expect_idle("set_input_dead_time");
  front_end_.dead_time_ps = applied_dead_time_ps(requested_ps);
  return front_end_.dead_time_ps;
}

void Unit::set_channel_mask(std::uint8_t mask) {
  expect_idle("set_stream_channel_mask");
  if ((mask & ~all_channels_mask) != 0) {
    throw Failure(Status::out_of_range,
                  "channel mask " + number(mask) + ": only bits 0 to 3 are channels");
  }
  front_end_.channel_mask = mask;
}

void Unit::set_stream_interface(std::uint32_t transport, std::uint32_t format) {
  expect_idle("set_stream_interface");
  if (transport == transport_uart) {
    throw Failure(Status::not_supported, "transport 0 (uart): this unit streams over usb only");
  }
  if (transport != transport_usb) {
    throw Failure(Status::out_of_range,
                  "transport " + number(transport) + ": only 1 (usb) is known");
  }
  if (format > static_cast<std::uint32_t>(timing::Format::packed_delta)) {
    throw Failure(Status::out_of_range,
                  "format " + number(format) + ": 0 raw64, 1 delta32 or 2 packed_delta");
  }
  format_ = static_cast<timing::Format>(format);
}

PackedDeltaSettings Unit::set_packed_delta(std::uint8_t bits, std::uint16_t quantum_ps) {
  expect_idle("set_packed_delta_config");
  packed_delta_ = accepted_packed_delta(bits, quantum_ps);
  return packed_delta_;
}

std::uint32_t Unit::set_calibration_frequency(double frequency_hz) {
  expect_idle("set_calibration_freq");
  calibration_divider_ = calibration_divider(frequency_hz);
  return calibration_divider_;
}

void Unit::enable_calibration_source(bool enabled) {
  expect_idle(enabled ? "enable_calibration_source" : "disable_calibration_source");
  calibration_enabled_ = enabled;
}

// The calibration pulses come from the unit's own clock, which gains nothing
// on itself.
Signal Unit::signal_for(timing::StreamMode mode) const {
  if (mode == timing::StreamMode::external) {
    return scenario_.start({.channel_mask = front_end_.channel_mask,
                            .format = format_,
                            .packed_delta = packed_delta_});
  }
  Signal signal{.source = nullptr,
                .pace = port_.pace,
                .time_base = TimeBase(0, first_shown_ps(port_.start_epoch_ms), 0)};
  if (calibration_enabled_) {
    signal.source = std::make_unique<CalibrationSource>(
        calibration_divider_, stream_seed(port_.seed, RandomPurpose::calibration));
  } else {
    signal.source = std::make_unique<MergedSource>(std::vector<std::unique_ptr<SignalSource>>{});
  }
  return signal;
}

void Unit::start_stream(std::uint32_t mode, std::uint32_t flags) {
  expect_idle("start_stream_mode");
  if (mode > static_cast<std::uint32_t>(timing::StreamMode::external)) {
    throw Failure(Status::out_of_range,
                  "stream mode " + number(mode) + ": 0 internal or 1 external");
  }
  if (flags != 0) {
    throw Failure(Status::out_of_range, "stream flags " + number(flags) + ": only 0 is known");
  }
  const auto stream_mode = static_cast<timing::StreamMode>(mode);
  session_.emplace(signal_for(stream_mode), front_end_,
                   encoder_for(format_, stream_mode, packed_delta_, port_.start_bits), port_.link,
                   stream_seed(port_.seed, RandomPurpose::read_sizes));
}

std::size_t Unit::read_stream(std::span<std::uint8_t> buffer, std::chrono::milliseconds timeout) {
  if (!session_) {
    throw Failure(Status::not_streaming, "read_stream_bytes: start a stream first");
  }
  const std::size_t received = session_->read(buffer, timeout);
  if (received == 0 && !buffer.empty()) {
    throw Failure(Status::timed_out, "read_stream_bytes: no data within the time-out");
  }
  return received;
}

}  // namespace zelk::simulator
