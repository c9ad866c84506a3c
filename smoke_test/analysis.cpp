#include "smoke_test/analysis.hpp"

#include <cstddef>

#include "timing/detail/sorted_times.hpp"

using zelk::timing::detail::SortedTimes;

namespace {

constexpr double ms_per_s = 1e3;

}  // namespace

Analysis analyse(const Capture& capture, std::int32_t channel_a, std::int32_t channel_b,
                 std::int64_t window_ps) {
  const CaptureStatistics& statistics = capture.statistics;
  Analysis analysis;
  analysis.tags_total = statistics.total();
  for (std::size_t channel = 0; channel < analysis.channels.size(); ++channel) {
    analysis.channels[channel] = analyse_channel(statistics, channel);
  }
  // The order of a list is known from its steps, which saves a read of it.
  const auto sorted_times = [&](std::int32_t channel) {
    const auto index = static_cast<std::size_t>(channel);
    return SortedTimes(statistics.times_ps()[index], analysis.channels[index].steps.in_order);
  };
  analysis.pair = analyse_pair(sorted_times(channel_a), sorted_times(channel_b), window_ps);
  analysis.reader_dropped = capture.reader_dropped;
  analysis.bins = statistics.bins();
  analysis.elapsed_s = capture.elapsed_s;
  analysis.host_pause_ms = capture.host_pause_s * ms_per_s;
  analysis.silent_tail_s = capture.silent_tail_s;
  return analysis;
}
