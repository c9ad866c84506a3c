// What arrives at the unit's inputs: a time-ordered sequence of events. A
// source belongs to one running stream and is read by the thread that reads
// the stream; the same source made again yields the same events.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "simulator/settings.hpp"

namespace zelk::simulator {

// One pulse at an input. Times count from the start of the stream and lie in
// [0, end_of_time_ps).
struct Event {
  std::int64_t time_ps = 0;
  double amplitude_v = 0;
  std::uint8_t channel = 0;
};

// Streams end here, after some 26 days, far enough from the ends of the 64-bit
// range that sums of two times stay inside it.
inline constexpr std::int64_t end_of_time_ps = std::int64_t{1} << 61;

class SignalSource {
 public:
  SignalSource() = default;
  SignalSource(const SignalSource&) = delete;
  SignalSource& operator=(const SignalSource&) = delete;
  virtual ~SignalSource() = default;

  // The next event, null when there is none any more; the pointer is good
  // until pop(). Times never fall from one event to the next.
  virtual const Event* peek() = 0;

  // Goes on to the event after that; only after peek() found one.
  virtual void pop() = 0;

  // Copies the next events before `before_ps`, as many as fit, to the front of
  // `events` and goes on behind them. Returns their number; 0 only when there
  // are none. Sources of many events do this without a call per event.
  virtual std::size_t take(std::span<Event> events, std::int64_t before_ps) {
    return take_each(*this, events, before_ps);
  }

 protected:
  // take() by means of peek() and pop(), which are no virtual calls when
  // `Source` is a final class.
  template <typename Source>
  static std::size_t take_each(Source& source, std::span<Event> events, std::int64_t before_ps) {
    std::size_t taken = 0;
    for (; taken < events.size(); ++taken) {
      const Event* const event = source.peek();
      if (event == nullptr || event->time_ps >= before_ps) {
        break;
      }
      events[taken] = *event;
      source.pop();
    }
    return taken;
  }
};

}  // namespace zelk::simulator
