#include "simulator/unit/unit.hpp"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/call_records.hpp"
#include "simulator/failure.hpp"
#include "simulator/random_numbers.hpp"
#include "simulator/signals/calibration_source.hpp"
#include "simulator/signals/merged_source.hpp"
#include "simulator/unit/prepared_stream.hpp"
#include "simulator/unit/stream_session.hpp"

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

std::uint32_t low_word(std::uint64_t word) {
  return static_cast<std::uint32_t>(word);
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
      reference_clock_(port_.external_reference),
      calibration_divider_(calibration_divider(default_calibration_hz)) {
  front_end_.bin_nonuniformity = port_.bin_nonuniformity;
  front_end_.seed = port_.seed;
}

// Settings are not taken while a stream runs, and neither is another start.
void Unit::expect_idle(CallKind request) const {
  const CallShape& shape = shape_of(request);
  if (stream_ && (shape.is_setting || request == CallKind::start_stream_mode)) {
    throw Failure(Status::busy, std::string(shape.name) + ": stop the stream first");
  }
}

// One case per function of the C interface.
qx_status Unit::call(DeviceCall& call) {
  const auto& in = call.arguments;
  auto& out = call.results;
  expect_idle(call.kind);
  switch (call.kind) {
    case CallKind::identify:
      identity_to_words(unit_identity(port_), out);
      return 0;
    case CallKind::load_calibration:
      return 0;  // the unit is always calibrated
    case CallKind::get_reference_clock_status:
      clock_to_words(reference_clock_.status(), out);
      return 0;
    case CallKind::set_reference_clock:
      reference_clock_.request(low_word(in[0]), low_word(in[1]));
      clock_to_words(reference_clock_.status(), out);
      return 0;
    case CallKind::set_tdl_active_masks:
      from_words(in, timing::channel_count, front_end_.delay_line_masks.data());
      for (std::uint8_t& mask : front_end_.delay_line_masks) {
        mask = static_cast<std::uint8_t>(mask & all_delay_lines_mask);
      }
      return 0;
    case CallKind::get_tdl_active_masks:
      to_words(front_end_.delay_line_masks.data(), timing::channel_count, out);
      return 0;
    case CallKind::set_dac_codes:
      from_words(in, timing::channel_count, front_end_.threshold_codes.data());
      return 0;
    case CallKind::set_input_dead_time:
      front_end_.dead_time_ps = applied_dead_time_ps(static_cast<std::int64_t>(in[0]));
      out[0] = static_cast<std::uint64_t>(front_end_.dead_time_ps);
      return 0;
    case CallKind::set_packed_delta_config:
      packed_delta_ = accepted_packed_delta(static_cast<std::uint8_t>(in[0]),
                                            static_cast<std::uint16_t>(in[1]));
      out[0] = packed_delta_.bits;
      out[1] = packed_delta_.quantum_ps;
      return 0;
    case CallKind::set_stream_interface:
      set_stream_interface(low_word(in[0]), low_word(in[1]));
      return 0;
    case CallKind::set_stream_channel_mask:
      set_channel_mask(static_cast<std::uint8_t>(in[0]));
      return 0;
    case CallKind::set_calibration_freq:
      calibration_divider_ = calibration_divider(std::bit_cast<double>(in[0]));
      out[0] = calibration_divider_;
      return 0;
    case CallKind::enable_calibration_source:
    case CallKind::disable_calibration_source:
      calibration_enabled_ = call.kind == CallKind::enable_calibration_source;
      return 0;
    case CallKind::start_stream_mode:
      start_stream(low_word(in[0]), low_word(in[1]));
      return 0;
    case CallKind::stop_stream_mode:
      stream_.reset();
      return 0;
    case CallKind::open:
    case CallKind::read_stream_bytes:
      break;
  }
  throw Failure(Status::internal_error, "no such call");
}

void Unit::set_channel_mask(std::uint8_t mask) {
  if ((mask & ~timing::all_channels_mask) != 0) {
    throw Failure(Status::out_of_range,
                  "channel mask " + number(mask) + ": only bits 0 to 3 are channels");
  }
  front_end_.channel_mask = mask;
}

void Unit::set_stream_interface(std::uint32_t transport, std::uint32_t format) {
  if (transport == transport_uart) {
    throw Failure(Status::not_supported, "transport 0 (uart): this unit streams over usb only");
  }
  if (transport != transport_usb) {
    throw Failure(Status::out_of_range,
                  "transport " + number(transport) + ": only 1 (usb) is known");
  }
  format_ = format_numbered(format);
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
  if (mode > static_cast<std::uint32_t>(timing::StreamMode::external)) {
    throw Failure(Status::out_of_range,
                  "stream mode " + number(mode) + ": 0 internal or 1 external");
  }
  if (flags != 0) {
    throw Failure(Status::out_of_range, "stream flags " + number(flags) + ": only 0 is known");
  }
  const auto stream_mode = static_cast<timing::StreamMode>(mode);
  std::unique_ptr<StreamEncoder> encoder =
      encoder_for(format_, stream_mode, packed_delta_, port_.start_bits);
  const std::uint64_t read_seed = stream_seed(port_.seed, RandomPurpose::read_sizes);
  if (port_.prepared_ps > 0) {
    stream_ =
        std::make_unique<PreparedStream>(signal_for(stream_mode), front_end_, std::move(encoder),
                                         port_.prepared_ps, port_.link, read_seed);
  } else {
    stream_ = std::make_unique<StreamSession>(signal_for(stream_mode), front_end_,
                                              std::move(encoder), port_.link, read_seed);
  }
}

qx_status Unit::read(std::span<std::uint8_t> buffer, std::size_t& received, int timeout_ms) {
  received = 0;
  if (!stream_) {
    throw not_streaming();
  }
  received = stream_->read(buffer, std::chrono::milliseconds(std::max(timeout_ms, 0)));
  if (received == 0 && !buffer.empty()) {
    throw nothing_arrived();
  }
  return 0;
}

}  // namespace zelk::simulator
