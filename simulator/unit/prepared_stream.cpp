#include "simulator/unit/prepared_stream.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <utility>

#include "simulator/failure.hpp"

namespace zelk::simulator {
namespace {

constexpr std::size_t piece_bytes = std::size_t{1} << 22;

// Room in a piece for what is appended after it was found unfilled.
constexpr std::size_t spare_bytes = std::size_t{1} << 17;

LinkSettings with_endless_buffers(LinkSettings link) {
  link.fifo_bytes = std::numeric_limits<std::int64_t>::max();
  link.host_buffer_bytes = std::numeric_limits<std::int64_t>::max();
  return link;
}

}  // namespace

std::vector<std::uint8_t>& PreparedBytes::tail() {
  if (pieces_.empty() || pieces_.back().size() >= piece_bytes) {
    before_tail_ = size();
    pieces_.emplace_back().reserve(piece_bytes + spare_bytes);
  }
  return pieces_.back();
}

std::size_t PreparedBytes::size() const {
  return before_tail_ + (pieces_.empty() ? 0 : pieces_.back().size());
}

void PreparedBytes::hand_over(std::span<std::uint8_t> buffer) {
  handed_over_ += buffer.size();
  while (!buffer.empty()) {
    const std::vector<std::uint8_t>& piece = pieces_[piece_];
    const std::size_t count = std::min(buffer.size(), piece.size() - place_);
    std::memcpy(buffer.data(), piece.data() + place_, count);
    buffer = buffer.subspan(count);
    place_ += count;
    if (place_ == piece.size()) {
      ++piece_;
      place_ = 0;
    }
  }
}

// In real time the latency timer completes the last byte at every tick.
PreparedStream::PreparedStream(Signal signal, const FrontEndSettings& front_end,
                               std::unique_ptr<StreamEncoder> encoder, std::int64_t length_ps,
                               const LinkSettings& link, std::uint64_t read_seed,
                               std::int64_t max_bytes)
    : pace_(signal.pace),
      max_bytes_(max_bytes),
      link_(with_endless_buffers(link), 0),
      clock_(pace_, 0, Clock::now()),
      read_sizes_(link.short_reads, read_seed) {
  const std::int64_t origin_ps = signal.origin_ps;
  const std::int64_t step_ps = pace_ == Pace::as_read ? length_ps : StreamClock::tick_ps;
  StreamMaker maker(std::move(signal), front_end, std::move(encoder));
  for (std::int64_t begin_ps = 0; begin_ps < length_ps; begin_ps += step_ps) {
    const std::size_t before = bytes_.size();
    make_until(maker, origin_ps + std::min(begin_ps + step_ps, length_ps));
    bytes_of_tick_.push_back(static_cast<std::uint32_t>(bytes_.size() - before));
  }
  clock_ = StreamClock(pace_, 0, Clock::now());
}

void PreparedStream::make_until(StreamMaker& maker, std::int64_t before_ps) {
  while (maker.make(before_ps, bytes_.tail()) != 0) {
    if (bytes_.size() > static_cast<std::size_t>(max_bytes_)) {
      throw Failure(Status::out_of_range, "prepared_s: the stream would take more than " +
                                              std::to_string(max_bytes_) + " bytes");
    }
  }
  maker.flush(bytes_.tail());
}

// The bytes that have come by `now` and were not handed over. What comes in a tick
// is on the link from the tick's beginning on, and the host sees it at its end.
std::size_t PreparedStream::arrived(Clock::time_point now) {
  if (pace_ == Pace::as_read) {
    return bytes_.waiting();
  }
  const std::int64_t now_ps = clock_.visible_before_ps(now);
  const auto ticks = static_cast<std::size_t>(now_ps / StreamClock::tick_ps);
  for (; next_tick_ < std::min(ticks, bytes_of_tick_.size()); ++next_tick_) {
    link_.advance_to(static_cast<std::int64_t>(next_tick_) * StreamClock::tick_ps);
    link_.write(bytes_of_tick_[next_tick_]);
  }
  link_.advance_to(now_ps);
  return link_.readable() - bytes_.handed_over();
}

// Only called when nothing can be read.
PreparedStream::Clock::time_point PreparedStream::next_arrival(Clock::time_point deadline) const {
  if (!link_.is_empty()) {
    return std::min(deadline, clock_.visible_at(clock_.visible_before_ps(Clock::now())));
  }
  const auto tick =
      std::find_if(bytes_of_tick_.begin() + static_cast<std::ptrdiff_t>(next_tick_),
                   bytes_of_tick_.end(), [](std::uint32_t bytes) { return bytes != 0; });
  if (tick == bytes_of_tick_.end()) {
    return deadline;
  }
  return std::min(deadline,
                  clock_.visible_at((tick - bytes_of_tick_.begin()) * StreamClock::tick_ps));
}

std::size_t PreparedStream::read(std::span<std::uint8_t> buffer,
                                 std::chrono::milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  const std::span<std::uint8_t> room = ReadSizes::room_in(buffer);
  for (;;) {
    const Clock::time_point now = Clock::now();
    const std::size_t there = arrived(now);
    if (there != 0 || buffer.empty()) {
      const std::size_t count = read_sizes_.next(std::min(room.size(), there));
      bytes_.hand_over(room.first(count));
      return count;
    }
    if (now >= deadline) {
      return 0;
    }
    std::this_thread::sleep_until(next_arrival(deadline));
  }
}

}  // namespace zelk::simulator
