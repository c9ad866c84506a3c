// Trains of pulses, one after the other on the channels in turn, and silence
// between the trains.
#pragma once

#include <cstdint>

#include "simulator/signals/group_source.hpp"

namespace zelk::simulator {

struct BurstSettings {
  std::uint8_t channel_mask = timing::all_channels_mask;  // the channels that pulse; 0: none
  double step_ps = 0;         // from one pulse of a train to the next, at least 1
  std::int64_t train_ps = 0;  // length of a train, above 0
  std::int64_t pause_ps = 0;  // from the end of a train to the next, not below 0
};

// A train begins with a pulse at its first moment and ends before train_ps.
class BurstSource final : public GroupSource {
 public:
  explicit BurstSource(const BurstSettings& settings) : settings_(settings) {}

 private:
  void next_group(EventGroup& group) override;

  BurstSettings settings_;
  std::int64_t train_start_ps_ = 0;
  double pulse_ = 0;  // number of the next pulse in its train
  unsigned channel_ = 0;
};

}  // namespace zelk::simulator
