// When events become visible to the host: in real time, at the ticks of the
// link's latency timer, or at once.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>

#include "simulator/settings.hpp"
#include "simulator/signals/signal_source.hpp"

namespace zelk::simulator {

class StreamClock {
 public:
  using Clock = std::chrono::steady_clock;

  // The link hands over what has come together once per tick, so a reader that
  // waits for data is not woken for every single record.
  static constexpr std::chrono::milliseconds tick{1};
  static constexpr std::int64_t tick_ps = 1'000'000'000;

  // Event time `origin_ps` is `start`.
  StreamClock(Pace pace, std::int64_t origin_ps, Clock::time_point start)
      : pace_(pace), origin_ps_(origin_ps), start_(start) {}

  // Events earlier than this have reached the host at `now`.
  [[nodiscard]] std::int64_t visible_before_ps(Clock::time_point now) const {
    if (pace_ == Pace::as_read) {
      return std::numeric_limits<std::int64_t>::max();
    }
    const std::int64_t ticks = std::max<std::int64_t>((now - start_) / tick, 0);
    return origin_ps_ + std::min(ticks, max_ticks) * tick_ps;
  }

  // The first tick after `time_ps`, which is not before origin_ps, in event
  // time.
  [[nodiscard]] std::int64_t tick_after_ps(std::int64_t time_ps) const {
    return origin_ps_ + ((time_ps - origin_ps_) / tick_ps + 1) * tick_ps;
  }

  // The moment at which an event at `time_ps`, not before origin_ps, reaches
  // the host.
  [[nodiscard]] Clock::time_point visible_at(std::int64_t time_ps) const {
    return pace_ == Pace::as_read ? start_ : start_ + ((time_ps - origin_ps_) / tick_ps + 1) * tick;
  }

 private:
  static constexpr std::int64_t max_ticks = end_of_time_ps / tick_ps + 1;

  Pace pace_;
  std::int64_t origin_ps_;
  Clock::time_point start_;
};

}  // namespace zelk::simulator
