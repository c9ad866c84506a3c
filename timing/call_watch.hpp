// Somebody who wants to know how long the device library takes.
//
// A Device tells its watch of every call that it makes, on the thread that makes
// it. Two calls never overlap: while a TagStreamReader runs, only its thread
// calls.
#pragma once

namespace zelk::timing {

class CallWatch {
 public:
  enum class Kind {
    set_up,     // may take a while, as the loading of a calibration does
    streaming,  // reading, stopping, closing: short
  };

  CallWatch() = default;
  CallWatch(const CallWatch&) = delete;
  CallWatch& operator=(const CallWatch&) = delete;
  virtual ~CallWatch() = default;

  // Before a call. What it throws before a set-up call keeps that call from being
  // made; before any other it throws nothing.
  virtual void begin(Kind kind) = 0;

  // After the call, and after the question for its error text.
  virtual void end() noexcept = 0;
};

namespace detail {

// One call, as long as this object exists. No watch is null.
class WatchedCall {
 public:
  WatchedCall(CallWatch* watch, CallWatch::Kind kind) : watch_(watch) {
    if (watch_ != nullptr) {
      watch_->begin(kind);
    }
  }
  ~WatchedCall() {
    if (watch_ != nullptr) {
      watch_->end();
    }
  }
  WatchedCall(const WatchedCall&) = delete;
  WatchedCall& operator=(const WatchedCall&) = delete;

 private:
  CallWatch* watch_;
};

}  // namespace detail
}  // namespace zelk::timing
