// The line of progress that a person watching a longer capture sees: rewritten
// in place on standard error, only when that is a terminal that can do so. While
// the terminal takes nothing, because it was stopped, the line is left out.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "smoke_test/capture_statistics.hpp"

struct ChannelRate {
  std::size_t channel;
  double tags_per_s;
};

// "1.4 of 5.0 s, ch2 9998/s, ch3 10002/s", as much of it as leaves the last of
// `columns` free, where a terminal may begin a new line. Nothing is cut within a
// number.
std::string progress_line(double elapsed_s, double capture_s, std::span<const ChannelRate> rates,
                          std::size_t columns);

class Progress {
 public:
  static constexpr double shortest_capture_s = 2.0;

  // The rates of the mask's channels will be shown, bit n for channel n.
  Progress(double capture_s, std::uint8_t channel_mask);

  // Clears the line.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Rewrites the line, a few times a second at most; in between it costs one
  // comparison.
  void update(std::chrono::steady_clock::duration elapsed, const CaptureStatistics& statistics) {
    if (elapsed >= next_update_) {
      rewrite(elapsed, statistics);
    }
  }

 private:
  // The tags seen up to some time of the capture.
  struct Sample {
    double elapsed_s = 0.0;
    std::array<std::uint64_t, zelk::timing::channel_count> tags{};
  };

  void rewrite(std::chrono::steady_clock::duration elapsed, const CaptureStatistics& statistics);

  double capture_s_;
  unsigned channel_mask_;
  bool shown_ = false;
  std::chrono::steady_clock::duration next_update_;
  std::array<Sample, 5> samples_{};  // of the last second: rates are those since the oldest one
  std::size_t oldest_ = 0;
};
