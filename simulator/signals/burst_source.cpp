#include "simulator/signals/burst_source.hpp"

#include "timing/time_tag.hpp"

namespace zelk::simulator {

BurstSource::BurstSource(const BurstSettings& settings) : settings_(settings) {
  next_.is_none = (settings_.channel_mask & timing::all_channels_mask) == 0;
  if (!next_.is_none) {
    next_.find(settings_);
  }
}

std::size_t BurstSource::take(std::span<Event> events, std::int64_t before_ps) {
  const BurstSettings settings = settings_;
  Pulse next = next_;
  std::size_t taken = 0;
  while (taken < events.size() && !next.is_none && next.event.time_ps < before_ps) {
    events[taken++] = next.event;
    next.go_on(settings);
  }
  next_ = next;
  return taken;
}

void BurstSource::Pulse::go_on(const BurstSettings& settings) {
  ++number;
  channel = (channel + 1) % timing::channel_count;
  find(settings);
}

// The train, the channel and the time of the pulse with this number.
void BurstSource::Pulse::find(const BurstSettings& settings) {
  double offset_ps = number * settings.step_ps;
  if (offset_ps >= static_cast<double>(settings.train_ps)) {
    number = 0;
    offset_ps = 0;
    train_start_ps += settings.train_ps + settings.pause_ps;
  }
  is_none = train_start_ps >= end_of_time_ps - settings.train_ps - settings.pause_ps;
  while ((settings.channel_mask >> channel & 1) == 0) {
    channel = (channel + 1) % timing::channel_count;
  }
  event.time_ps = train_start_ps + static_cast<std::int64_t>(offset_ps);
  event.channel = static_cast<std::uint8_t>(channel);
}

}  // namespace zelk::simulator
