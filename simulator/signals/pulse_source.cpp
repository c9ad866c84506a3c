#include "simulator/signals/pulse_source.hpp"

#include <algorithm>
#include <cmath>

namespace zelk::simulator {

PulseSource::PulseSource(const PulseSettings& settings, std::uint64_t seed)
    : settings_(settings), period_ps_(mean_wait_ps(settings.frequency_hz)), random_(seed) {}

void PulseSource::next_group(EventGroup& group) {
  const std::int64_t jitter_ps = random_.jitter_ps(settings_.jitter_rms_ps);
  const double advance_ps = fraction_ps_ + period_ps_;
  const std::int64_t room_ps =
      end_of_time_ps - whole_ps_ - settings_.delay_ps - std::max<std::int64_t>(jitter_ps, 0) - 1;
  if (advance_ps >= static_cast<double>(room_ps)) {
    whole_ps_ = end_of_time_ps;
    return;
  }
  const auto step_ps = static_cast<std::int64_t>(advance_ps);
  whole_ps_ += step_ps;
  fraction_ps_ = advance_ps - static_cast<double>(step_ps);
  earliest_ps_ = std::max(earliest_ps_, whole_ps_ + settings_.delay_ps + jitter_ps);
  group.add({earliest_ps_, input_pulse_v, settings_.channel});
}

}  // namespace zelk::simulator
