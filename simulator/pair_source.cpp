#include "simulator/pair_source.hpp"

#include <cmath>
#include <cstdlib>

namespace zelk::simulator {

PairSource::PairSource(const PairSettings& settings, std::uint64_t seed)
    : settings_(settings),
      mean_wait_ps_(1e12 / settings.rate_hz),
      span_ps_(std::abs(settings.delay_ps) + std::llround(std::ceil(8 * settings.jitter_rms_ps))),
      random_(seed) {}

void PairSource::next_group(EventGroup& group) {
  // Pairs keep a pair's extent apart: they never overlap, and the first one
  // cannot begin before the stream does.
  const double wait_ps = random_.exponential(mean_wait_ps_) + static_cast<double>(span_ps_);
  if (wait_ps >= static_cast<double>(end_of_time_ps - span_ps_ - pair_ps_)) {
    pair_ps_ = end_of_time_ps;
    return;
  }
  pair_ps_ += std::llround(wait_ps);
  const std::int64_t first_ps = pair_ps_ + random_.jitter_ps(settings_.jitter_rms_ps);
  const std::int64_t second_ps =
      pair_ps_ + settings_.delay_ps + random_.jitter_ps(settings_.jitter_rms_ps);
  group.add({first_ps, input_pulse_v, settings_.first_channel});
  group.add({second_ps, input_pulse_v, settings_.second_channel});
}

}  // namespace zelk::simulator
