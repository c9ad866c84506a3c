// What arrives at the unit's inputs: a time-ordered sequence of events. A
// source belongs to one running stream and is read by the thread that reads
// the stream; the same source made again yields the same events.
#pragma once

#include <cstdint>

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
};

}  // namespace zelk::simulator
