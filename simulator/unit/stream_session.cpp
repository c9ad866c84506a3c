#include "simulator/unit/stream_session.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <thread>
#include <utility>

namespace zelk::simulator {
namespace {

// At most this much is made for one read, however large the host's buffer.
constexpr std::size_t max_read_bytes = std::size_t{1} << 18;

// Events between two looks at the clock, so that a signal that makes no tags
// cannot hold a read beyond its time-out.
constexpr unsigned events_per_look = 4096;

// Sizes of short reads: around packets and records, and across both.
constexpr std::array<std::size_t, 12> short_read_bytes{1,  2,   3,   5,   7,    13,
                                                       63, 257, 511, 513, 1021, 4099};

std::size_t whole_packets(std::size_t bytes) {
  return bytes < usb_packet_bytes ? bytes : bytes - bytes % usb_packet_bytes;
}

}  // namespace

StreamSession::StreamSession(Signal signal, const FrontEndSettings& front_end,
                             std::unique_ptr<StreamEncoder> encoder, const LinkSettings& link,
                             std::uint64_t read_seed)
    : source_(std::move(signal.source)),
      clock_(signal.pace, signal.origin_ps, Clock::now()),
      time_base_(signal.time_base),
      front_end_(front_end),
      encoder_(std::move(encoder)),
      short_reads_(link.short_reads),
      read_sizes_(read_seed) {
  if (signal.pace == Pace::real_time) {
    link_.emplace(link, signal.origin_ps);
    next_tick_ps_ = clock_.tick_after_ps(signal.origin_ps);
  }
}

void StreamSession::write(const Event& event) {
  timing::TimeTag tag;
  if (!front_end_.detect(event, time_base_.shown_at(event.time_ps), tag) ||
      (link_ && !link_->has_room())) {
    return;
  }
  WaitingBytes::Bytes& bytes = bytes_.tail();
  const std::size_t before = bytes.size();
  encoder_->append(tag, bytes);
  if (link_) {
    link_->write(bytes.size() - before);
  }
}

void StreamSession::flush() {
  WaitingBytes::Bytes& bytes = bytes_.tail();
  const std::size_t before = bytes.size();
  encoder_->flush(bytes);
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
  unsigned events = 0;
  for (const Event* event = source_->peek(); event != nullptr && event->time_ps < before_ps;
       event = source_->peek()) {
    if (event->time_ps >= next_tick_ps_) {
      flush();
      next_tick_ps_ = clock_.tick_after_ps(event->time_ps);
    }
    link_->advance_to(event->time_ps);
    write(*event);
    source_->pop();
    if (++events % events_per_look == 0 && Clock::now() >= deadline) {
      return;
    }
  }
  flush();
  link_->advance_to(before_ps);
}

void StreamSession::fill_as_read(std::size_t wanted_bytes, Clock::time_point deadline) {
  unsigned events = 0;
  while (readable() < wanted_bytes) {
    const Event* const event = source_->peek();
    if (event == nullptr) {
      flush();
      return;
    }
    write(*event);
    source_->pop();
    if (++events % events_per_look == 0 && Clock::now() >= deadline) {
      return;
    }
  }
}

std::size_t StreamSession::readable() const {
  return link_ ? link_->readable() : bytes_.size();
}

std::size_t StreamSession::hand_over(std::span<std::uint8_t> buffer) {
  std::size_t count = std::min(buffer.size(), readable());
  if (count == 0) {
    return 0;
  }
  if (short_reads_) {
    const double place = read_sizes_.uniform() * static_cast<double>(short_read_bytes.size());
    count = std::min(count, short_read_bytes[static_cast<std::size_t>(std::ceil(place)) - 1]);
  }
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
  const Event* const event = source_->peek();
  return event == nullptr ? deadline : std::min(deadline, clock_.visible_at(event->time_ps));
}

std::size_t StreamSession::read(std::span<std::uint8_t> buffer, std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  const std::span<std::uint8_t> room =
      buffer.first(whole_packets(std::min(buffer.size(), max_read_bytes)));
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
