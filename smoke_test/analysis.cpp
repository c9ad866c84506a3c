#include "smoke_test/analysis.hpp"

#include <cstddef>
#include <span>
#include <vector>

Analysis analyse(const Capture& capture, std::int32_t channel_a, std::int32_t channel_b,
                 std::int64_t window_ps) {
  const CaptureStatistics& statistics = capture.statistics;
  Analysis analysis;
  analysis.tags_total = statistics.total();
  for (std::size_t channel = 0; channel < analysis.channels.size(); ++channel) {
    analysis.channels[channel] = analyse_channel(statistics, channel);
  }
  const auto times_of = [times_ps = statistics.times_ps()](std::int32_t channel) {
    const std::span<const std::int64_t> times = times_ps[static_cast<std::size_t>(channel)];
    return std::vector(times.begin(), times.end());
  };
  analysis.pair = analyse_pair(times_of(channel_a), times_of(channel_b), window_ps);
  analysis.reader_dropped = capture.reader_dropped;
  analysis.bins = statistics.bins();
  return analysis;
}
