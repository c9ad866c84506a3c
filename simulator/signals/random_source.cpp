#include "simulator/signals/random_source.hpp"

#include <cmath>

namespace zelk::simulator {

RandomSource::RandomSource(std::uint8_t channel, double rate_hz, std::uint64_t seed)
    : channel_(channel), mean_wait_ps_(mean_wait_ps(rate_hz)), random_(seed) {}

void RandomSource::next_group(EventGroup& group) {
  const double wait_ps = random_.exponential(mean_wait_ps_);
  if (wait_ps >= static_cast<double>(end_of_time_ps - time_ps_)) {
    time_ps_ = end_of_time_ps;
    return;
  }
  time_ps_ += std::llround(wait_ps);
  group.add({time_ps_, input_pulse_v, channel_});
}

}  // namespace zelk::simulator
