// Ends the program when the device library does not come back from a call, so
// that a test station never waits for ever.
#pragma once

#include <chrono>

// While a call is under way, on whichever thread, its time is counted in ticks of
// a timer. Time in which the process does not run, because it was stopped or the
// machine stood still, makes one tick at most. The first half of the limit passes
// without a tick, so that no signal disturbs a library that answers in time: some
// calls of the system end early when one arrives. A call that exceeds its limit ends
// the process with status 2, after "the device library does not answer" on
// standard error if that takes it at once. Nothing is closed: a library that
// hangs can't be asked to. At most one watchdog exists, on the main thread.
class Watchdog {
 public:
  // Loading a calibration may keep a unit busy for a while.
  static constexpr std::chrono::seconds set_up_limit{60};
  // Reading, stopping and closing are short, also on a slow link.
  static constexpr std::chrono::seconds streaming_limit{5};
  static constexpr std::chrono::milliseconds tick{250};

  Watchdog();
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  // A call begins, which may take `limit` and up to one tick more, or ends. Calls
  // do not overlap. Any thread.
  void begin_call(std::chrono::milliseconds limit);
  void end_call();

  // The run has come to its end with this status, and has said so: a call that
  // hangs now ends the process with it, and without a line.
  void settle(int status);
};
