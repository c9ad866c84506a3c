// What a capture brings. For every tag that is counted the work is constant;
// used by the main thread only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "smoke_test/time_list.hpp"
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

  // A range of elapsed times that all count in the same place. Elapsed times
  // are unsigned here: those before the first tag are the upper half of them.
  struct Stretch {
    std::uint64_t first_ps;
    std::uint64_t length_ps;  // to the last time, which still belongs to it
    Row* counts;              // valid until the next call of stretch_at()

    [[nodiscard]] bool contains(std::uint64_t elapsed_ps) const {
      return elapsed_ps - first_ps <= length_ps;
    }
  };

  // The stretch around `elapsed_ps` since the first tag; what is before the
  // first tag counts in bin 0. To be called for times that are then counted: it
  // makes the rows up to theirs.
  Stretch stretch_at(std::uint64_t elapsed_ps);

  [[nodiscard]] double width_s() const { return width_s_; }
  [[nodiscard]] std::int64_t width_ps() const { return width_ps_; }  // below 1: switched off
  [[nodiscard]] const std::vector<Row>& rows() const { return rows_; }
  [[nodiscard]] std::uint64_t overflow() const;  // tags beyond the last row

 private:
  Row& row(std::size_t index);

  double width_s_;
  std::int64_t width_ps_;
  std::vector<Row> rows_;
  Row beyond_last_row_{};
  Row switched_off_{};  // counts what nobody asks for
};

class CaptureStatistics {
 public:
  template <typename T>
  using PerChannel = std::array<T, zelk::timing::channel_count>;

  explicit CaptureStatistics(double bin_s) : bins_(bin_s) {}

  // Counts the tags in their order; those with a channel above 3 are ignored.
  // Throws std::bad_alloc when memory does not suffice for their times.
  void add(std::span<const zelk::timing::TimeTag> tags);
  void add(const zelk::timing::TimeTag& tag) { add(std::span(&tag, 1)); }

  [[nodiscard]] std::uint64_t total() const;  // tags accepted
  // The accepted tags' times in arrival order, ps. Valid until the next add().
  [[nodiscard]] PerChannel<std::span<const std::int64_t>> times_ps() const;
  // Tags earlier than their channel's previous one.
  [[nodiscard]] const PerChannel<std::uint64_t>& monotonic_violations() const {
    return monotonic_violations_;
  }
  // Largest non-negative step between consecutive tags of a channel.
  [[nodiscard]] const PerChannel<std::int64_t>& max_gap_ps() const { return max_gap_ps_; }
  [[nodiscard]] const TimeBins& bins() const { return bins_; }

 private:
  class Batch;

  PerChannel<TimeList> times_ps_;
  PerChannel<std::uint64_t> monotonic_violations_{};
  PerChannel<std::int64_t> max_gap_ps_{};
  std::optional<std::int64_t> base_time_ps_;  // the first accepted tag, any channel
  TimeBins bins_;
};

struct Capture {
  CaptureStatistics statistics;
  std::uint64_t reader_dropped = 0;  // tags discarded by the reader's queue limit
  int interrupting_signal = 0;       // that ended the capture early, or 0

  // By the host's clock, in seconds.
  double elapsed_s = 0.0;     // length of the capture
  double host_pause_s = 0.0;  // the longest between two reads of the stream
  // From a channel's last tag to the end of the capture; none: it has no tag.
  std::array<std::optional<double>, zelk::timing::channel_count> silent_tail_s{};
};
