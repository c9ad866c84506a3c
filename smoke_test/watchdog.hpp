// Ends the program when the device library does not come back from a call, so
// that a test station never waits for ever.
#pragma once

#include <chrono>

// Once kicked, the watchdog wants to be kicked again, or put to rest, within
// the time given. Otherwise it writes "the device library does not answer" to
// standard error and ends the process with status 2, closing nothing: a library
// that hangs can't be asked to. At most one exists, on the main thread.
class Watchdog {
 public:
  // Loading a calibration may keep a unit busy for a while.
  static constexpr std::chrono::seconds set_up_limit{60};
  // Reading, stopping and closing are short, also on a slow link.
  static constexpr std::chrono::seconds streaming_limit{5};

  Watchdog();
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  void kick(std::chrono::milliseconds limit);
  void rest();
};
