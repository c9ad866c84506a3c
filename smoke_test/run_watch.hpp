// What the program does around each call of the device library.
#pragma once

#include <exception>
#include <functional>
#include <new>
#include <string>
#include <utility>

#include "smoke_test/interrupt.hpp"
#include "smoke_test/standard_streams.hpp"
#include "smoke_test/verdict.hpp"
#include "smoke_test/watchdog.hpp"
#include "timing/call_watch.hpp"

// A run that has failed, after its error was printed.
class FailedRun : public std::exception {
 public:
  explicit FailedRun(int exit_status) : status(exit_status) {}

  int status;
};

// Told what a run has come to before anything is torn down: its exit status, and
// its error if it failed. What it throws makes the run a failed one; with an error
// it throws nothing.
using ConcludeRun = std::function<void(int exit_status, const std::string& error)>;

// Told before each call of the set-up, so that a call that does not come back finds
// what is known by then. What it throws makes the run a failed one.
using PrepareForCall = std::function<void()>;

// Counts the time of each call, and makes no further call of the set-up once a
// signal has arrived. Made on the main thread, one at a time.
class RunWatch final : public zelk::timing::CallWatch {
 public:
  explicit RunWatch(ConcludeRun conclude, PrepareForCall prepare = nullptr)
      : conclude_(std::move(conclude)), prepare_(std::move(prepare)) {}

  void begin(Kind kind) override {
    if (kind == Kind::set_up) {
      interrupt.check();
      if (prepare_) {
        prepare_();
      }
    }
    watchdog.begin_call(kind == Kind::set_up ? Watchdog::set_up_limit : Watchdog::streaming_limit);
  }
  void end() noexcept override { watchdog.end_call(); }

  // Does a part of the run. Its error is printed at once, not after the device was
  // stopped and closed, since these calls may fail or hang, too: the first error
  // counts. Throws FailedRun after it. `purpose` is what the memory of this part is
  // for.
  template <typename Action>
  auto attempt(const char* purpose, Action&& action) {
    try {
      return std::forward<Action>(action)();
    } catch (const FailedRun&) {
      throw;
    } catch (const std::bad_alloc&) {
      fail("not enough memory for " + std::string(purpose));
    } catch (const std::exception& error) {
      fail(error.what());
    }
  }

  // The run has come to its end with this status: whatever the device library does
  // from here on, it holds.
  void conclude(int status) {
    conclude_(status, "");
    watchdog.settle(status);
  }

  // Throws Interrupted when a signal has arrived; one that arrives later ends the
  // capture.
  void end_set_up() {
    interrupt.end_set_up();
    interrupt.check();
    setting_up_ = false;
  }

  InterruptWatch interrupt;
  Watchdog watchdog;

 private:
  [[noreturn]] void fail(const std::string& text) {
    // A signal may be why a call of the set-up failed.
    const int signal = setting_up_ ? interrupt.signal_number() : 0;
    const int status = signal != 0 ? exit_signal_base + signal : exit_failure;
    const std::string error = signal != 0 ? Interrupted::text : text;
    watchdog.settle(status);
    print_error(error);
    conclude_(status, error);
    throw FailedRun(status);
  }

  ConcludeRun conclude_;
  PrepareForCall prepare_;
  bool setting_up_ = true;
};
