// Periodic pulses on one channel.
#pragma once

#include <cstdint>

#include "simulator/random_numbers.hpp"
#include "simulator/signals/group_source.hpp"

namespace zelk::simulator {

struct PulseSettings {
  std::uint8_t channel = 0;
  double frequency_hz = 0;    // above 0
  std::int64_t delay_ps = 0;  // of every pulse, not below 0
  double jitter_rms_ps = 0;   // of each pulse on its own
};

// Pulse n comes n periods and the delay after the start, n from 1. Pulses stay
// in order: jitter moves none of them to a time before the pulse ahead of it.
class PulseSource final : public GroupSource {
 public:
  PulseSource(const PulseSettings& settings, std::uint64_t seed);

 private:
  void next_group(EventGroup& group) override;

  PulseSettings settings_;
  double period_ps_;
  std::int64_t whole_ps_ = 0;  // the latest pulse, without delay and jitter:
  double fraction_ps_ = 0;     // whole picoseconds, and the rest below 1 ps
  std::int64_t earliest_ps_ = 0;
  RandomNumbers random_;
};

}  // namespace zelk::simulator
