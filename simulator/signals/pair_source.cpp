#include "simulator/signals/pair_source.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace zelk::simulator {

PairSource::PairSource(const PairSettings& settings, std::uint64_t seed)
    : settings_(settings), mean_wait_ps_(mean_wait_ps(settings.rate_hz)), random_(seed) {
  const std::int64_t jitter_ps = std::llround(std::ceil(4 * settings.jitter_rms_ps));
  first_offset_ps_ = jitter_ps + std::max<std::int64_t>(-settings.delay_ps, 0);
  second_offset_ps_ = jitter_ps + std::max<std::int64_t>(settings.delay_ps, 0);
}

// Pairs begin one after the other, so an event that is due before the latest
// pair's beginning has nothing more to wait for.
const Event* PairSource::peek() {
  while (pair_ps_ != end_of_time_ps && (events_.empty() || events_.first().time_ps > pair_ps_)) {
    add_pair();
  }
  return events_.empty() ? nullptr : &events_.first();
}

void PairSource::add_pair() {
  const std::int64_t span_ps = 2 * std::max(first_offset_ps_, second_offset_ps_);
  const double wait_ps = random_.exponential(mean_wait_ps_);
  if (wait_ps >= static_cast<double>(end_of_time_ps - span_ps - pair_ps_)) {
    pair_ps_ = end_of_time_ps;
    return;
  }
  pair_ps_ += std::llround(wait_ps);
  const double rms_ps = settings_.jitter_rms_ps;
  const std::int64_t first_ps = pair_ps_ + first_offset_ps_ + random_.jitter_ps(rms_ps);
  const std::int64_t second_ps = pair_ps_ + second_offset_ps_ + random_.jitter_ps(rms_ps);
  events_.add({first_ps, input_pulse_v, settings_.first_channel});
  events_.add({second_ps, input_pulse_v, settings_.second_channel});
}

}  // namespace zelk::simulator
