// What a capture brings. For every tag that is counted the work is constant;
// used by the main thread only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "timing/time_tag.hpp"

// Tags per channel per time bin, counted from the first tag of the run.
class TimeBins {
 public:
  using Row = std::array<std::uint64_t, zelk::timing::channel_count>;
  static constexpr std::int64_t max_rows = 4096;
  static constexpr double min_width_s = 0.001;

  // `width_s` below min_width_s, or not a number, counts as min_width_s. A
  // width that does not fit into 64-bit picoseconds switches binning off.
  explicit TimeBins(double width_s);

  // `elapsed_ps` since the first tag; a negative one counts in bin 0.
  void add(int channel, std::int64_t elapsed_ps);

  [[nodiscard]] double width_s() const { return width_s_; }
  [[nodiscard]] std::int64_t width_ps() const { return width_ps_; }  // below 1: switched off
  [[nodiscard]] const std::vector<Row>& rows() const { return rows_; }
  [[nodiscard]] std::uint64_t overflow() const { return overflow_; }  // tags beyond the last row

 private:
  double width_s_;
  std::int64_t width_ps_;
  std::vector<Row> rows_;
  std::uint64_t overflow_ = 0;
};

class CaptureStatistics {
 public:
  template <typename T>
  using PerChannel = std::array<T, zelk::timing::channel_count>;

  explicit CaptureStatistics(double bin_s) : bins_(bin_s) {}

  // Tags with a channel above 3 are ignored.
  void add(const zelk::timing::TimeTag& tag);

  [[nodiscard]] std::uint64_t total() const;  // tags accepted
  // The accepted tags' times in arrival order, ps.
  [[nodiscard]] const PerChannel<std::vector<std::int64_t>>& times_ps() const { return times_ps_; }
  // Tags earlier than their channel's previous one.
  [[nodiscard]] const PerChannel<std::uint64_t>& monotonic_violations() const {
    return monotonic_violations_;
  }
  // Largest non-negative step between consecutive tags of a channel.
  [[nodiscard]] const PerChannel<std::int64_t>& max_gap_ps() const { return max_gap_ps_; }
  [[nodiscard]] const TimeBins& bins() const { return bins_; }

 private:
  PerChannel<std::vector<std::int64_t>> times_ps_;
  PerChannel<std::uint64_t> monotonic_violations_{};
  PerChannel<std::int64_t> max_gap_ps_{};
  std::optional<std::int64_t> base_time_ps_;  // the first accepted tag, any channel
  TimeBins bins_;
};

struct Capture {
  CaptureStatistics statistics;
  std::uint64_t reader_dropped = 0;  // tags discarded by the reader's queue limit
  int interrupting_signal = 0;       // that ended the capture early, or 0
};
