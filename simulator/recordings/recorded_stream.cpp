#include "simulator/recordings/recorded_stream.hpp"

#include <algorithm>
#include <thread>
#include <utility>
#include <variant>

#include "simulator/device_backend.hpp"

namespace zelk::simulator {
namespace {

// Success of these ends a stream, or begins the next one.
bool ends_stream(const RecordedCall& call) {
  return call.answer.status == 0 && (call.call.kind == CallKind::stop_stream_mode ||
                                     call.call.kind == CallKind::start_stream_mode);
}

RecordedAnswer own_time_out() {
  return {.status = static_cast<std::int32_t>(Status::timed_out), .last_error = no_data_text};
}

}  // namespace

RecordedStream::RecordedStream(const RecordingFile& recording,
                               const RecordingFile::IndexedCall& start, Pace pace)
    : recording_(recording),
      place_(start.after),
      start_ns_(start.time_ns),
      pace_(pace),
      quiet_(own_time_out()) {}

// Brings the next chunk or failure into due_, unless so many records stand
// before it that the deadline passes; those that take no time are looked at in
// any case. The answer of quiet reads holds from where they stand in the
// recording until others follow.
void RecordedStream::look_ahead(Clock::time_point deadline) {
  constexpr int quickly_looked_at = 1000;
  for (int looked_at = 0;
       !due_ && !over_ && (looked_at < quickly_looked_at || Clock::now() < deadline); ++looked_at) {
    std::optional<Record> record = recording_.next(place_);
    if (!record || std::holds_alternative<RecordedEnd>(*record)) {
      over_ = true;
    } else if (auto* chunk = std::get_if<RecordedChunk>(&*record)) {
      due_ = {.time_ns = chunk->time_ns, .bytes = std::move(chunk->bytes)};
    } else if (auto* failed = std::get_if<RecordedFailedRead>(&*record)) {
      due_ = {.time_ns = failed->time_ns, .failure = std::move(failed->answer)};
    } else if (auto* quiet = std::get_if<RecordedQuiet>(&*record)) {
      quiet_ = std::move(quiet->answer);
      failure_.reset();
    } else if (const auto* call = std::get_if<RecordedCall>(&*record)) {
      over_ = ends_stream(*call);
    }
  }
}

RecordedStream::Clock::time_point RecordedStream::arrival(std::uint64_t time_ns) const {
  return started_ + std::chrono::nanoseconds(time_ns - std::min(start_ns_, time_ns));
}

const RecordedAnswer& RecordedStream::read(std::span<std::uint8_t> buffer, std::size_t& received,
                                           std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  received = bytes_.hand_over(buffer);
  if (received != 0 || buffer.empty()) {
    return success_;
  }
  look_ahead(deadline);
  if (!due_ && over_ && failure_) {
    return *failure_;  // the recording ended with it
  }
  if (!due_ || (pace_ == Pace::real_time && arrival(due_->time_ns) > deadline)) {
    std::this_thread::sleep_until(deadline);
    return quiet_;
  }
  if (pace_ == Pace::real_time) {
    std::this_thread::sleep_until(arrival(due_->time_ns));
  }
  Due due = std::move(*due_);
  due_.reset();
  failure_ = std::move(due.failure);
  if (failure_) {
    return *failure_;
  }
  bytes_.replace(std::move(due.bytes));
  received = bytes_.hand_over(buffer);
  return success_;
}

}  // namespace zelk::simulator
