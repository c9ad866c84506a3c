#include "simulator/stream_session.hpp"

#include <algorithm>
#include <cstring>
#include <thread>
#include <utility>

namespace zelk::simulator {
namespace {

// At most this much is made for one read, however large the host's buffer.
constexpr std::size_t max_read_bytes = std::size_t{1} << 18;

// Events between two looks at the clock, so that a signal that makes no tags
// cannot hold a read beyond its time-out.
constexpr unsigned events_per_look = 4096;

}  // namespace

StreamSession::StreamSession(Signal signal, const FrontEndSettings& front_end,
                             std::unique_ptr<StreamEncoder> encoder)
    : source_(std::move(signal.source)),
      clock_(signal.pace, signal.origin_ps, Clock::now()),
      front_end_(front_end),
      encoder_(std::move(encoder)) {}

// One pass per event, with three calls through a table: peek, append and pop.
void StreamSession::fill(std::size_t wanted_bytes, Clock::time_point deadline) {
  if (encoder_ == nullptr) {
    return;
  }
  const std::int64_t visible_before_ps = clock_.visible_before_ps(Clock::now());
  timing::TimeTag tag;
  unsigned events = 0;
  while (bytes_.size() < wanted_bytes) {
    const Event* const event = source_->peek();
    if (event == nullptr || event->time_ps >= visible_before_ps) {
      encoder_->flush(bytes_);
      return;
    }
    if (front_end_.detect(*event, tag)) {
      encoder_->append(tag, bytes_);
    }
    source_->pop();
    if (++events % events_per_look == 0 && Clock::now() >= deadline) {
      return;
    }
  }
}

std::size_t StreamSession::hand_over(std::span<std::uint8_t> buffer) {
  const std::size_t count = std::min(buffer.size(), bytes_.size() - handed_over_);
  if (count != 0) {
    std::memcpy(buffer.data(), bytes_.data() + handed_over_, count);
  }
  handed_over_ += count;
  if (handed_over_ == bytes_.size()) {
    bytes_.clear();
    handed_over_ = 0;
  }
  return count;
}

StreamSession::Clock::time_point StreamSession::next_arrival(Clock::time_point deadline) {
  const Event* const event = encoder_ != nullptr ? source_->peek() : nullptr;
  return event == nullptr ? deadline : std::min(deadline, clock_.visible_at(event->time_ps));
}

std::size_t StreamSession::read(std::span<std::uint8_t> buffer, std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  for (;;) {
    if (bytes_.empty()) {
      fill(std::min(buffer.size(), max_read_bytes), deadline);
    }
    const std::size_t count = hand_over(buffer);
    if (count != 0 || buffer.empty() || Clock::now() >= deadline) {
      return count;
    }
    std::this_thread::sleep_until(next_arrival(deadline));
  }
}

}  // namespace zelk::simulator
