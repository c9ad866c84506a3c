#include "simulator/unit/stream_session.hpp"

#include <algorithm>
#include <limits>
#include <thread>
#include <utility>

namespace zelk::simulator {
namespace {

// Events between two looks at the clock, so that a signal that makes no tags
// cannot hold a read beyond its time-out.
constexpr std::size_t events_per_look = 4096;

}  // namespace

StreamSession::StreamSession(Signal signal, const FrontEndSettings& front_end,
                             std::unique_ptr<StreamEncoder> encoder, const LinkSettings& link,
                             std::uint64_t read_seed)
    : clock_(signal.pace, signal.origin_ps, Clock::now()),
      link_(signal.pace == Pace::real_time
                ? std::optional<Link>(std::in_place, link, signal.origin_ps)
                : std::nullopt),
      next_tick_ps_(clock_.tick_after_ps(signal.origin_ps)),
      maker_(std::move(signal), front_end, std::move(encoder)),
      read_sizes_(link.short_reads, read_seed) {}

void StreamSession::flush() {
  WaitingBytes::Bytes& bytes = bytes_.tail();
  const std::size_t before = bytes.size();
  maker_.flush(bytes);
  if (link_) {
    link_->write(bytes.size() - before);
  }
}

// Everything up to the present has to pass the link before the host takes
// anything: the room that this makes comes too late for earlier tags. The time
// that this takes is the machine's, not the host's: the stream waits for it.
void StreamSession::fill_real_time(Clock::time_point deadline) {
  const Clock::time_point begin = Clock::now();
  make_events(clock_.visible_before_ps(begin - behind_), deadline);
  behind_ += Clock::now() - begin;
}

// The latency timer completes the last byte at every tick, whether a read looks
// at it or not, so that the stream's bytes do not depend on the reads.
void StreamSession::make_events(std::int64_t before_ps, Clock::time_point deadline) {
  std::size_t events = 0;  // since the last look at the clock
  for (;;) {
    const std::size_t made = maker_.make(std::min(before_ps, next_tick_ps_), bytes_.tail(), *link_);
    if (made == 0 && !begin_tick(before_ps)) {
      break;
    }
    events += made;
    if (events >= events_per_look) {
      events = 0;
      if (Clock::now() >= deadline) {
        return;
      }
    }
  }
  flush();
  link_->advance_to(before_ps);
}

// Goes on to the tick of the next event, when that comes before `before_ps`.
bool StreamSession::begin_tick(std::int64_t before_ps) {
  const std::optional<std::int64_t> event_ps = maker_.next_event_ps();
  if (!event_ps || *event_ps >= before_ps) {
    return false;
  }
  flush();
  next_tick_ps_ = clock_.tick_after_ps(*event_ps);
  return true;
}

void StreamSession::fill_as_read(std::size_t wanted_bytes, Clock::time_point deadline) {
  constexpr std::int64_t endless_ps = std::numeric_limits<std::int64_t>::max();
  std::size_t events = 0;  // since the last look at the clock
  while (readable() < wanted_bytes) {
    const std::size_t made = maker_.make(endless_ps, bytes_.tail());
    if (made == 0) {
      flush();
      return;
    }
    events += made;
    if (events >= events_per_look) {
      events = 0;
      if (Clock::now() >= deadline) {
        return;
      }
    }
  }
}

std::size_t StreamSession::readable() const {
  return link_ ? link_->readable() : bytes_.size();
}

std::size_t StreamSession::hand_over(std::span<std::uint8_t> buffer) {
  const std::size_t count = read_sizes_.next(std::min(buffer.size(), readable()));
  if (link_) {
    link_->read(count);
  }
  return bytes_.hand_over(buffer.first(count));
}

// A host that waits takes what each tick brings. So while nothing can be read,
// a stream that fell behind makes up for one tick at a time, and no buffer
// fills up by that. Returns whether it may still be behind.
bool StreamSession::catch_up() {
  const bool more_than_a_tick = behind_ > StreamClock::tick;
  behind_ -= std::min<Clock::duration>(behind_, StreamClock::tick);
  return more_than_a_tick;
}

// Only called when nothing can be read.
StreamSession::Clock::time_point StreamSession::next_arrival(Clock::time_point deadline) {
  if (link_ && !link_->is_empty()) {
    return std::min(deadline, clock_.visible_at(clock_.visible_before_ps(Clock::now())));
  }
  const std::optional<std::int64_t> event_ps = maker_.next_event_ps();
  return event_ps ? std::min(deadline, clock_.visible_at(*event_ps)) : deadline;
}

std::size_t StreamSession::read(std::span<std::uint8_t> buffer, std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  const std::span<std::uint8_t> room = ReadSizes::room_in(buffer);
  for (;;) {
    if (link_) {
      fill_real_time(deadline);
    } else {
      fill_as_read(room.size(), deadline);
    }
    const std::size_t count = hand_over(room);
    if (count != 0 || buffer.empty()) {
      return count;
    }
    const bool is_behind = catch_up();
    if (Clock::now() >= deadline) {
      return 0;
    }
    if (!is_behind) {
      std::this_thread::sleep_until(next_arrival(deadline));
    }
  }
}

}  // namespace zelk::simulator
