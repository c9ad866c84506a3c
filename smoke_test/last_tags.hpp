// When the last tag of each channel came, by the host's clock.
#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "smoke_test/capture_statistics.hpp"
#include "timing/time_tag.hpp"

class LastTags {
 public:
  using Times = std::array<std::optional<double>, zelk::timing::channel_count>;

  // Call it after each batch, with the time since the capture began.
  void update(const CaptureStatistics& statistics, double now_s) {
    const auto times_ps = statistics.times_ps();
    for (std::size_t channel = 0; channel < times_ps.size(); ++channel) {
      if (times_ps[channel].size() > counts_[channel]) {
        counts_[channel] = times_ps[channel].size();
        last_s_[channel] = now_s;
      }
    }
  }

  // For how long each channel has been silent; none: it never had a tag.
  [[nodiscard]] Times silent_tails_s(double now_s) const {
    Times tails_s;
    for (std::size_t channel = 0; channel < tails_s.size(); ++channel) {
      if (last_s_[channel]) {
        tails_s[channel] = now_s - *last_s_[channel];
      }
    }
    return tails_s;
  }

 private:
  std::array<std::size_t, zelk::timing::channel_count> counts_{};
  Times last_s_{};
};
