#include "simulator/recordings/replay_device.hpp"

#include <algorithm>
#include <chrono>

#include "simulator/failure.hpp"
#include "simulator/status_texts.hpp"

namespace zelk::simulator {
namespace {

std::size_t number(CallKind kind) {
  return static_cast<std::size_t>(kind);
}

// Switching the calibration source on and off is one setting with two calls.
std::size_t setting_of(CallKind kind) {
  return number(kind == CallKind::disable_calibration_source ? CallKind::enable_calibration_source
                                                             : kind);
}

bool is_same(const DeviceCall& a, const DeviceCall& b) {
  return a.kind == b.kind && a.arguments == b.arguments;
}

bool begins_stream(const RecordedCall& call) {
  return call.call.kind == CallKind::start_stream_mode && call.answer.status == 0;
}

[[noreturn]] void contradict(const std::string& text) {
  throw Failure(Status::contradicts_recording, text);
}

}  // namespace

ReplayDevice::ReplayDevice(const ReplayPort& port)
    : recording_(port.recording, port.cut_short_allowed),
      pace_(port.pace),
      part_end_(next_start(0)) {}

// The number of calls when there is none.
ReplayDevice::Index ReplayDevice::next_start(Index from) const {
  const auto& calls = recording_.calls();
  const auto begin = calls.begin() + static_cast<std::ptrdiff_t>(from);
  return static_cast<Index>(std::find_if(begin, calls.end(), begins_stream) - calls.begin());
}

// The recorded call that answers this one: with the same arguments, the first
// after the last of its kind; otherwise that one again. The flag of a stop
// makes no difference.
std::optional<ReplayDevice::Index> ReplayDevice::find(const DeviceCall& call) const {
  const auto& calls = recording_.calls();
  const std::optional<Index> last = answered_[number(call.kind)];
  const bool any_arguments = call.kind == CallKind::stop_stream_mode;
  const Index begin = last ? std::max(part_begin_, *last + 1) : part_begin_;
  for (Index i = begin; i < std::min(part_end_ + 1, calls.size()); ++i) {
    if (any_arguments ? calls[i].call.kind == call.kind : is_same(calls[i].call, call)) {
      return i;
    }
  }
  if (last && is_same(calls[*last].call, call) && !begins_stream(calls[*last])) {
    return last;
  }
  return std::nullopt;
}

// Names what the recording has instead: the next call of the kind, or the one
// before it.
void ReplayDevice::refuse(const DeviceCall& call) const {
  const auto& calls = recording_.calls();
  std::optional<Index> instead = answered_[number(call.kind)];
  const Index begin = instead ? std::max(part_begin_, *instead + 1) : part_begin_;
  for (Index i = begin; i < std::min(part_end_ + 1, calls.size()); ++i) {
    if (calls[i].call.kind == call.kind) {
      instead = i;
      break;
    }
  }
  if (call.kind == CallKind::start_stream_mode && (!instead || *instead < part_begin_)) {
    contradict(call_text(call) + ": the recording holds no further stream");
  }
  contradict(call_text(call) + ": the recording has " +
             (instead ? call_text(calls[*instead].call) : std::string("no such call here")));
}

void ReplayDevice::expect_settings(const DeviceCall& start, Index recorded_start) const {
  IndexPerKind recorded;
  const auto& calls = recording_.calls();
  for (Index i = 0; i < recorded_start; ++i) {
    const CallKind kind = calls[i].call.kind;
    if (shape_of(kind).is_setting && calls[i].answer.status == 0) {
      recorded[setting_of(kind)] = i;
    }
  }
  for (std::size_t setting = 0; setting < recorded.size(); ++setting) {
    if (!recorded[setting]) {
      continue;
    }
    const DeviceCall& theirs = calls[*recorded[setting]].call;
    const std::optional<Index> ours = settings_[setting];
    if (!ours || !is_same(calls[*ours].call, theirs)) {
      contradict(call_text(start) + ": the recording was made after " + call_text(theirs) +
                 ", this stream would start " +
                 (ours ? "after " + call_text(calls[*ours].call) : "without"));
    }
  }
}

qx_status ReplayDevice::call(DeviceCall& call) {
  if (call.kind == CallKind::stop_stream_mode) {
    return stop(call);
  }
  const std::optional<Index> found = find(call);
  if (!found) {
    refuse(call);
  }
  const RecordingFile::IndexedCall& recorded = recording_.calls()[*found];
  if (begins_stream(recorded)) {
    expect_settings(call, *found);
    stream_.emplace(recording_, recorded, pace_);
    part_begin_ = *found + 1;
    part_end_ = next_start(part_begin_);
  } else if (shape_of(call.kind).is_setting && recorded.answer.status == 0) {
    settings_[setting_of(call.kind)] = *found;
  }
  answered_[number(call.kind)] = *found;
  call.results = recorded.call.results;
  return answer(recorded.answer);
}

qx_status ReplayDevice::stop(DeviceCall& call) {
  const std::optional<Index> found = find(call);
  if (found) {
    answered_[number(call.kind)] = *found;
  }
  const RecordedAnswer success;
  const RecordedAnswer& recorded = found ? recording_.calls()[*found].answer : success;
  if (recorded.status == 0) {
    stream_.reset();
  }
  return answer(recorded);
}

qx_status ReplayDevice::read(std::span<std::uint8_t> buffer, std::size_t& received,
                             int timeout_ms) {
  received = 0;
  if (!stream_) {
    throw not_streaming();
  }
  return answer(
      stream_->read(buffer, received, std::chrono::milliseconds(std::max(timeout_ms, 0))));
}

qx_status ReplayDevice::answer(const RecordedAnswer& answer) {
  if (answer.status == 0) {
    last_error_ = "";
    return 0;
  }
  if (answer.status_text) {
    StatusTexts::instance().answered_elsewhere(answer.status, *answer.status_text);
  } else {
    StatusTexts::instance().answered_here(answer.status);
  }
  last_error_ = answer.last_error ? answer.last_error->c_str() : nullptr;
  return answer.status;
}

}  // namespace zelk::simulator
