#include "simulator/recordings/tap_device.hpp"

#include <algorithm>
#include <bit>
#include <new>
#include <utility>

#include "simulator/call_records.hpp"
#include "simulator/failure.hpp"
#include "simulator/status_texts.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {
namespace {

// No device library should, but one that gives no text must not bring the
// host down either. What this library means by the status is not the answer:
// the other numbers its failures as it likes.
const char* text_of(const LoadedLibrary& library, qx_status status) {
  const char* const text = library.status_string(status);
  return text != nullptr ? text : unknown_status_text;
}

}  // namespace

TapDevice::TapDevice(const TapPort& port, std::optional<int> rate)
    : library_(port.library),
      device_(open(port, rate)),
      writer_(port.recording,
              {.library = port.library, .port = port.port, .rate = rate.value_or(0)}) {}

TapDevice::~TapDevice() {
  write_quiet_reads();
  writer_.finish(now_ns());
}

TapDevice::Handle TapDevice::open(const TapPort& port, std::optional<int> rate) const {
  qx_device* device = nullptr;
  const qx_status status = rate ? library_.open(&device, port.port.c_str(), *rate)
                                : library_.open_serial(&device, port.port.c_str());
  if (status != 0) {
    throw ForwardedFailure(status, text_of(library_, status));
  }
  if (device == nullptr) {
    throw Failure(Status::internal_error, "the tapped library opened no device");
  }
  return {device, library_.close};
}

// One case per function of the C interface.
qx_status TapDevice::forward(DeviceCall& call) const {
  qx_device* const device = device_.get();
  const auto& in = call.arguments;
  auto& out = call.results;
  switch (call.kind) {
    case CallKind::identify: {
      qx_identity identity = identity_from_words(out);
      const qx_status status = library_.identify(device, &identity);
      identity_to_words(identity, out);
      return status;
    }
    case CallKind::load_calibration:
      return library_.load_calibration(device, static_cast<int>(in[0]));
    case CallKind::get_reference_clock_status:
    case CallKind::set_reference_clock: {
      qx_reference_clock clock = clock_from_words(out);
      const qx_status status =
          call.kind == CallKind::set_reference_clock
              ? library_.set_reference_clock(device, static_cast<std::uint32_t>(in[0]),
                                             static_cast<std::uint32_t>(in[1]), &clock)
              : library_.get_reference_clock_status(device, &clock);
      clock_to_words(clock, out);
      return status;
    }
    case CallKind::set_tdl_active_masks: {
      std::uint8_t masks[timing::channel_count];
      from_words(in, timing::channel_count, masks);
      return library_.set_tdl_active_masks(device, masks);
    }
    case CallKind::get_tdl_active_masks: {
      std::uint8_t masks[timing::channel_count];
      from_words(out, timing::channel_count, masks);
      const qx_status status = library_.get_tdl_active_masks(device, masks);
      to_words(masks, timing::channel_count, out);
      return status;
    }
    case CallKind::set_dac_codes: {
      std::uint16_t codes[timing::channel_count];
      from_words(in, timing::channel_count, codes);
      return library_.set_dac_codes(device, codes);
    }
    case CallKind::set_input_dead_time: {
      auto applied_ps = static_cast<std::int64_t>(out[0]);
      const qx_status status =
          library_.set_input_dead_time(device, static_cast<std::int64_t>(in[0]), &applied_ps);
      out[0] = static_cast<std::uint64_t>(applied_ps);
      return status;
    }
    case CallKind::set_packed_delta_config: {
      auto bits = static_cast<std::uint8_t>(out[0]);
      auto quantum_ps = static_cast<std::uint16_t>(out[1]);
      const qx_status status =
          library_.set_packed_delta_config(device, static_cast<std::uint8_t>(in[0]),
                                           static_cast<std::uint16_t>(in[1]), &bits, &quantum_ps);
      out[0] = bits;
      out[1] = quantum_ps;
      return status;
    }
    case CallKind::set_stream_interface:
      return library_.set_stream_interface(device, static_cast<std::uint32_t>(in[0]),
                                           static_cast<std::uint32_t>(in[1]));
    case CallKind::set_stream_channel_mask:
      return library_.set_stream_channel_mask(device, static_cast<std::uint8_t>(in[0]));
    case CallKind::set_calibration_freq: {
      auto divider = static_cast<std::uint32_t>(out[0]);
      const qx_status status =
          library_.set_calibration_freq(device, std::bit_cast<double>(in[0]), &divider);
      out[0] = divider;
      return status;
    }
    case CallKind::enable_calibration_source:
      return library_.enable_calibration_source(device);
    case CallKind::disable_calibration_source:
      return library_.disable_calibration_source(device);
    case CallKind::start_stream_mode:
      return library_.start_stream_mode(device, static_cast<std::uint32_t>(in[0]),
                                        static_cast<std::uint32_t>(in[1]));
    case CallKind::stop_stream_mode:
      return library_.stop_stream_mode(device, in[0] != 0);
    case CallKind::open:
    case CallKind::read_stream_bytes:
      break;
  }
  throw Failure(Status::internal_error, "no such call");
}

std::uint64_t TapDevice::now_ns() const {
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - opened_).count());
}

RecordedAnswer TapDevice::answer_for(qx_status status) const {
  RecordedAnswer answer{.status = status};
  if (status != 0) {
    answer.status_text = text_of(library_, status);
    if (const char* const error = library_.last_error(device_.get()); error != nullptr) {
      answer.last_error = error;
    }
    StatusTexts::instance().answered_elsewhere(status, *answer.status_text);
  }
  return answer;
}

void TapDevice::expect_recording() const {
  if (!writer_.error().empty()) {
    throw Failure(Status::cannot_write_recording, writer_.error());
  }
}

qx_status TapDevice::call(DeviceCall& call) {
  const bool stops = call.kind == CallKind::stop_stream_mode;
  if (!stops) {
    expect_recording();
  }
  const qx_status status = forward(call);
  const std::uint64_t time_ns = now_ns();
  try {
    write_quiet_reads();
    writer_.add(RecordedCall{.time_ns = time_ns, .call = call, .answer = answer_for(status)});
  } catch (const std::bad_alloc&) {
    writer_.fail("out of memory");
  }
  // Perhaps nothing but the closing follows, which cannot say it.
  if (stops && status == 0) {
    expect_recording();
  }
  return status;
}

qx_status TapDevice::read(std::span<std::uint8_t> buffer, std::size_t& received, int timeout_ms) {
  if (!writer_.error().empty()) {
    received = 0;
    expect_recording();
  }
  const qx_status status = library_.read_stream_bytes(device_.get(), buffer.data(), buffer.size(),
                                                      &received, timeout_ms);
  const std::uint64_t time_ns = now_ns();
  try {
    write_read(time_ns, status, buffer.first(std::min(received, buffer.size())));
  } catch (const std::bad_alloc&) {
    writer_.fail("out of memory");
  }
  return status;
}

// Time-outs come many in a row; they are written in one record when something
// else follows.
void TapDevice::write_read(std::uint64_t time_ns, qx_status status,
                           std::span<const std::uint8_t> bytes) {
  RecordedAnswer answer = answer_for(status);
  if (status == 0 && !bytes.empty()) {
    write_quiet_reads();
    writer_.add_chunk(time_ns, bytes);
  } else if (status != 0 && status != static_cast<qx_status>(Status::timed_out)) {
    write_quiet_reads();
    writer_.add(RecordedFailedRead{.time_ns = time_ns, .answer = std::move(answer)});
  } else if (quiet_ && quiet_->answer == answer) {
    quiet_->last_ns = time_ns;
    ++quiet_->count;
  } else {
    write_quiet_reads();
    quiet_ = {.first_ns = time_ns, .last_ns = time_ns, .count = 1, .answer = std::move(answer)};
  }
}

void TapDevice::write_quiet_reads() noexcept {
  if (quiet_) {
    writer_.add(*quiet_);
    quiet_.reset();
  }
}

const char* TapDevice::last_error() const noexcept {
  return library_.last_error(device_.get());
}

}  // namespace zelk::simulator
