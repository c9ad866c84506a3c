#include "simulator/signals/burst_source.hpp"

#include "timing/time_tag.hpp"

namespace zelk::simulator {
void BurstSource::next_group(EventGroup& group) {
  if ((settings_.channel_mask & timing::all_channels_mask) == 0) {
    return;
  }
  double offset_ps = pulse_ * settings_.step_ps;
  if (offset_ps >= static_cast<double>(settings_.train_ps)) {
    pulse_ = 0;
    offset_ps = 0;
    train_start_ps_ += settings_.train_ps + settings_.pause_ps;
  }
  if (train_start_ps_ >= end_of_time_ps - settings_.train_ps - settings_.pause_ps) {
    return;
  }
  while ((settings_.channel_mask >> channel_ & 1) == 0) {
    channel_ = (channel_ + 1) % timing::channel_count;
  }
  const std::int64_t time_ps = train_start_ps_ + static_cast<std::int64_t>(offset_ps);
  group.add({time_ps, input_pulse_v, static_cast<std::uint8_t>(channel_)});
  channel_ = (channel_ + 1) % timing::channel_count;
  ++pulse_;
}

}  // namespace zelk::simulator
