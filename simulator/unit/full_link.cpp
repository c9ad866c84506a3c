#include "simulator/unit/full_link.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <memory>
#include <vector>

#include "simulator/unit/stream_clock.hpp"

namespace zelk::simulator {
namespace {

// A channel gets a base or a sync in each 10 ms of its stream, so the tags of
// 10 ms are measured. Of very many tags a part shows all else.
constexpr double measured_ps = 10e9;
constexpr double min_measured_tags = 400;
constexpr double max_measured_tags = 20'000;

constexpr double tolerance = 0.001;

// Mean bytes per tag of a stream whose tags come `step_ps` apart, on `channels`
// channels in turn. What fills the last byte of each tick counts; the first tag
// of each channel, with which the stream begins, does not.
double bytes_per_tag(timing::Format format, const PackedDeltaSettings& packed_delta,
                     std::size_t channels, double step_ps) {
  const std::unique_ptr<StreamEncoder> encoder =
      encoder_for(format, timing::StreamMode::external, packed_delta);
  const auto tags = static_cast<std::size_t>(
      std::clamp(measured_ps / step_ps, min_measured_tags, max_measured_tags));
  std::vector<std::uint8_t> bytes;
  std::size_t first_bytes = 0;
  std::int64_t last_ps = 0;
  for (std::size_t tag = 0; tag < channels + tags; ++tag) {
    if (tag == channels) {
      first_bytes = bytes.size();
    }
    const std::int64_t time_ps = std::llround(static_cast<double>(tag) * step_ps);
    if (time_ps / StreamClock::tick_ps != last_ps / StreamClock::tick_ps) {
      encoder->flush(bytes);
    }
    encoder->append({static_cast<std::uint8_t>(tag % channels), time_ps}, bytes);
    last_ps = time_ps;
  }
  return static_cast<double>(bytes.size() - first_bytes) / static_cast<double>(tags);
}

}  // namespace

// A tag after a longer step may need more words, never fewer. So the step and the
// words have to be found together.
double shortest_step_ps(timing::Format format, const PackedDeltaSettings& packed_delta,
                        std::uint8_t channel_mask, double bytes_per_s) {
  const int channels =
      std::popcount(static_cast<unsigned>(channel_mask & timing::all_channels_mask));
  const double shortest_ps = 1e12 * bits_per_tag(format, packed_delta) / 8 / bytes_per_s;
  if (channels == 0) {
    return shortest_ps;
  }
  const auto is_carried = [&](double step_ps) {
    const double bytes =
        bytes_per_tag(format, packed_delta, static_cast<std::size_t>(channels), step_ps);
    return bytes * 1e12 <= step_ps * bytes_per_s * (1 + tolerance / 2);
  };
  double too_short_ps = shortest_ps;
  double carried_ps = shortest_ps;
  while (!is_carried(carried_ps)) {
    too_short_ps = carried_ps;
    carried_ps *= 2;
  }
  while (carried_ps - too_short_ps > carried_ps * tolerance / 2) {
    const double middle_ps = (too_short_ps + carried_ps) / 2;
    (is_carried(middle_ps) ? carried_ps : too_short_ps) = middle_ps;
  }
  return carried_ps;
}

}  // namespace zelk::simulator
