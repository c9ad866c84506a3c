#include "simulator/model_backend.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstdint>

#include "simulator/call_records.hpp"
#include "simulator/failure.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {
namespace {

template <typename T>
using PerChannel = std::array<T, timing::channel_count>;

template <typename T>
PerChannel<T> channel_arguments(const DeviceCall& call) {
  PerChannel<T> values{};
  from_words(call.arguments, values.size(), values.data());
  return values;
}

}  // namespace

// One case per function of the C interface.
qx_status ModelBackend::call(DeviceCall& call) {
  DeviceModel& model = *model_;
  const auto& in = call.arguments;
  auto& out = call.results;
  switch (call.kind) {
    case CallKind::identify:
      identity_to_words(model.identity(), out);
      break;
    case CallKind::load_calibration:
      model.load_calibration(static_cast<int>(in[0]));
      break;
    case CallKind::get_reference_clock_status:
      clock_to_words(model.reference_clock(), out);
      break;
    case CallKind::set_reference_clock:
      clock_to_words(model.set_reference_clock(static_cast<std::uint32_t>(in[0]),
                                               static_cast<std::uint32_t>(in[1])),
                     out);
      break;
    case CallKind::set_tdl_active_masks:
      model.set_delay_line_masks(channel_arguments<std::uint8_t>(call));
      break;
    case CallKind::get_tdl_active_masks: {
      const DeviceModel::DelayLineMasks masks = model.delay_line_masks();
      to_words(masks.data(), masks.size(), out);
      break;
    }
    case CallKind::set_dac_codes:
      model.set_threshold_codes(channel_arguments<std::uint16_t>(call));
      break;
    case CallKind::set_input_dead_time:
      out[0] = static_cast<std::uint64_t>(model.set_dead_time(static_cast<std::int64_t>(in[0])));
      break;
    case CallKind::set_packed_delta_config: {
      const PackedDeltaSettings accepted = model.set_packed_delta(
          static_cast<std::uint8_t>(in[0]), static_cast<std::uint16_t>(in[1]));
      out[0] = accepted.bits;
      out[1] = accepted.quantum_ps;
      break;
    }
    case CallKind::set_stream_interface:
      model.set_stream_interface(static_cast<std::uint32_t>(in[0]),
                                 static_cast<std::uint32_t>(in[1]));
      break;
    case CallKind::set_stream_channel_mask:
      model.set_channel_mask(static_cast<std::uint8_t>(in[0]));
      break;
    case CallKind::set_calibration_freq:
      out[0] = model.set_calibration_frequency(std::bit_cast<double>(in[0]));
      break;
    case CallKind::enable_calibration_source:
    case CallKind::disable_calibration_source:
      model.enable_calibration_source(call.kind == CallKind::enable_calibration_source);
      break;
    case CallKind::start_stream_mode:
      model.start_stream(static_cast<std::uint32_t>(in[0]), static_cast<std::uint32_t>(in[1]));
      break;
    case CallKind::stop_stream_mode:
      model.stop_stream(in[0] != 0);
      break;
    case CallKind::open:
    case CallKind::read_stream_bytes:
      throw Failure(Status::internal_error, "no such call");
  }
  return 0;
}

qx_status ModelBackend::read(std::span<std::uint8_t> buffer, std::size_t& received,
                             int timeout_ms) {
  received = 0;
  received = model_->read_stream(buffer, std::chrono::milliseconds(std::max(timeout_ms, 0)));
  return 0;
}

}  // namespace zelk::simulator
