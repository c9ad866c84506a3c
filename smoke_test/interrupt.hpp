// Ctrl-C, SIGTERM and the SIGHUP of a terminal that has gone: a polite request to end
// the run early.
#pragma once

#include <csignal>
#include <stdexcept>

// Thrown on the way out of a set-up that a signal ended.
class Interrupted : public std::runtime_error {
 public:
  static constexpr const char* text = "interrupted during set-up";

  Interrupted() : std::runtime_error(text) {}
};

// While an InterruptWatch exists, the first SIGINT, SIGTERM or SIGHUP is remembered
// instead of ending the program; the second one has its ordinary effect and
// ends it at once. A signal that was ignored before, as SIGHUP is under nohup, stays
// ignored. During the
// set-up a signal also ends what the main thread waits for in the system, where
// that can be. One watch at a time, on the main thread.
class InterruptWatch {
 public:
  InterruptWatch();
  ~InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

  // The number of the signal that arrived, or 0.
  [[nodiscard]] int signal_number() const;

  // Throws Interrupted when a signal has arrived.
  void check() const;

  // From here on the main thread's calls of the system go on after a signal.
  void end_set_up();

  // From here on the first signal ends the program, too: with status 128 plus its
  // number, as if the run had been ended by it.
  void end_at_once_from_now_on();
};

// The threads that begin while this exists handle no signals, so that those meant
// for the program reach its main thread. One at a time, on the main thread.
class SignalsForMainThread {
 public:
  SignalsForMainThread();
  ~SignalsForMainThread();
  SignalsForMainThread(const SignalsForMainThread&) = delete;
  SignalsForMainThread& operator=(const SignalsForMainThread&) = delete;

 private:
  sigset_t before_{};
};
