// From pulses at the inputs to tags: the threshold comparator, the delay
// lines, the dead time and the channel mask. One front end serves one running
// stream and is used by the thread that reads it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "simulator/signals/signal_source.hpp"
#include "simulator/unit/delay_line.hpp"
#include "simulator/unit/time_base.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

// Bit n: delay line n of a channel is active.
inline constexpr std::uint8_t all_delay_lines_mask = 0x1F;

// The dead-time counter: 24 bits, in periods of the device clock.
inline constexpr std::int64_t max_dead_time_ps = 0xFFFFFF * timing::clock_period_ps;

// 0.5 V, as near as a threshold code comes to it.
inline constexpr std::uint16_t default_threshold_code = 0xA000;

struct FrontEndSettings {
  std::uint8_t channel_mask = timing::all_channels_mask;
  std::array<std::uint16_t, timing::channel_count> threshold_codes{
      default_threshold_code, default_threshold_code, default_threshold_code,
      default_threshold_code};
  std::array<std::uint8_t, timing::channel_count> delay_line_masks{
      all_delay_lines_mask, all_delay_lines_mask, all_delay_lines_mask, all_delay_lines_mask};
  std::int64_t dead_time_ps = 0;
  // How uneven the delay lines' taps are, 0 to 1. At 0 times are exact.
  double bin_nonuniformity = 0;
  std::uint32_t seed = 1;  // of the unit, for the taps' widths
};

// What a threshold code means: 0 V to 4 V in 65535 steps, codes counting as
// signed 16-bit numbers from -32768.
constexpr double threshold_v(std::uint16_t code) {
  return static_cast<std::uint16_t>(code ^ 0x8000U) * 4.0 / 65535.0;
}

// The dead time that the unit makes of a request: whole clock periods, rounded
// up. Throws Failure outside 0 to max_dead_time_ps.
std::int64_t applied_dead_time_ps(std::int64_t requested_ps);

class FrontEnd {
 public:
  explicit FrontEnd(const FrontEndSettings& settings);

  // Whether `event`, which comes when the unit's clock shows `shown_ps`, makes a
  // tag; only then is `tag` written. The times of a channel's tags always rise:
  // an event that is not later than the channel's tag before it is lost in the
  // dead time, however short.
  bool detect(const Event& event, std::int64_t shown_ps, timing::TimeTag& tag) {
    Channel& channel = channels_[event.channel];
    if (!channel.enabled || event.amplitude_v < channel.threshold_v) {
      return false;
    }
    const std::int64_t time_ps = channel.measured_ps(shown_ps);
    if (time_ps < channel.ready_ps) {
      return false;
    }
    channel.ready_ps = time_ps + recovery_ps_;
    tag = {event.channel, time_ps};
    return true;
  }

  // The same on a clock that shows the event's own time.
  bool detect(const Event& event, timing::TimeTag& tag) {
    return detect(event, event.time_ps, tag);
  }

  // Detects all of `events` in turn, each when `clock` shows its time. Writes
  // their tags to the front of `tags`, which has room for one per event, and
  // returns the number of tags.
  std::size_t detect(std::span<const Event> events, const TimeBase& clock,
                     std::span<timing::TimeTag> tags) {
    std::size_t count = 0;
    for (const Event& event : events) {
      if (detect(event, clock.shown_at(event.time_ps), tags[count])) {
        ++count;
      }
    }
    return count;
  }

 private:
  struct Channel {
    [[nodiscard]] std::int64_t measured_ps(std::int64_t time_ps) const {
      if (!has_delay_line) {
        return next_clock_edge_ps(time_ps);
      }
      return delay_line ? delay_line->measured_ps(time_ps) : time_ps;
    }

    bool enabled = false;
    // Without a delay line only the coarse counter is left, and it latches at
    // the first clock edge that is not before the event.
    bool has_delay_line = false;
    std::unique_ptr<const DelayLine> delay_line;  // null: an exact one
    double threshold_v = 0;
    std::int64_t ready_ps = 0;  // the earliest time that the next tag can have
  };

  static constexpr std::int64_t next_clock_edge_ps(std::int64_t time_ps) {
    constexpr std::int64_t period_ps = timing::clock_period_ps;
    return (time_ps + period_ps - 1) / period_ps * period_ps;
  }

  std::array<Channel, timing::channel_count> channels_;
  std::int64_t recovery_ps_;
};

}  // namespace zelk::simulator
