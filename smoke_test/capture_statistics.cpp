#include "smoke_test/capture_statistics.hpp"

#include <algorithm>
#include <numeric>

#include "timing/detail/wrapping.hpp"

using zelk::timing::detail::wrap_sub;

namespace {

constexpr double ps_per_s = 1e12;

// Truncated toward zero; 0, which switches binning off, when 64 bits do not
// suffice.
std::int64_t bin_width_ps(double width_s) {
  constexpr double limit = 9223372036854775808.0;  // 2^63
  const double width = width_s * ps_per_s;
  return width < limit ? static_cast<std::int64_t>(width) : 0;
}

}  // namespace

TimeBins::TimeBins(double width_s)
    // The order of the arguments makes a value that is no number the minimum.
    : width_s_(std::max(min_width_s, width_s)), width_ps_(bin_width_ps(width_s_)) {}

void TimeBins::add(int channel, std::int64_t elapsed_ps) {
  if (width_ps_ < 1) {
    return;
  }
  const std::int64_t index = elapsed_ps < 0 ? 0 : elapsed_ps / width_ps_;
  if (index >= max_rows) {
    ++overflow_;
    return;
  }
  const auto row = static_cast<std::size_t>(index);
  if (rows_.size() <= row) {
    rows_.resize(row + 1);
  }
  ++rows_[row][static_cast<std::size_t>(channel)];
}

void CaptureStatistics::add(const zelk::timing::TimeTag& tag) {
  const std::size_t channel = tag.channel;
  if (channel >= times_ps_.size()) {
    return;
  }
  if (!base_time_ps_) {
    base_time_ps_ = tag.timestamp_ps;
  }
  std::vector<std::int64_t>& times = times_ps_[channel];
  if (!times.empty()) {
    const std::int64_t step = wrap_sub(tag.timestamp_ps, times.back());
    if (step < 0) {
      ++monotonic_violations_[channel];
    } else {
      max_gap_ps_[channel] = std::max(max_gap_ps_[channel], step);
    }
  }
  times.push_back(tag.timestamp_ps);
  bins_.add(tag.channel, wrap_sub(tag.timestamp_ps, *base_time_ps_));
}

std::uint64_t CaptureStatistics::total() const {
  return std::accumulate(
      times_ps_.begin(), times_ps_.end(), std::uint64_t{0},
      [](std::uint64_t sum, const std::vector<std::int64_t>& times) { return sum + times.size(); });
}
