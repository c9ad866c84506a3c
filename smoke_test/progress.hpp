// The line of progress that a person watching a longer capture sees: rewritten
// in place on standard error, only when that is a terminal. While the terminal
// takes nothing, because it was stopped, the line is left out.
#pragma once

#include <chrono>
#include <cstdint>

class Progress {
 public:
  static constexpr double shortest_capture_s = 2.0;

  explicit Progress(double capture_s);

  // Clears the line.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Rewrites the line, a few times a second at most.
  void update(std::chrono::steady_clock::duration elapsed, std::uint64_t tags);

 private:
  double capture_s_;
  bool enabled_;
  bool shown_ = false;
  std::chrono::steady_clock::duration next_update_{};
};
