// The end of a span of time on the steady clock.
#pragma once

#include <chrono>

// Compared as floating point numbers, so that no length, however long, leaves
// the clock's range; one that is no number is over at once.
class Deadline {
 public:
  explicit Deadline(double seconds) : end_ns_(nanoseconds(start_) + seconds * 1e9) {}

  [[nodiscard]] bool is_ahead() const {
    return nanoseconds(std::chrono::steady_clock::now()) < end_ns_;
  }
  [[nodiscard]] std::chrono::steady_clock::duration elapsed() const {
    return std::chrono::steady_clock::now() - start_;
  }

 private:
  static double nanoseconds(std::chrono::steady_clock::time_point time) {
    return std::chrono::duration<double, std::nano>(time.time_since_epoch()).count();
  }

  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  double end_ns_;
};
