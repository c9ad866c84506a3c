// Trains of pulses, one after the other on the channels in turn, and silence
// between the trains.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "simulator/signals/signal_source.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

struct BurstSettings {
  std::uint8_t channel_mask = timing::all_channels_mask;  // the channels that pulse; 0: none
  double step_ps = 0;         // from one pulse of a train to the next, at least 1
  std::int64_t train_ps = 0;  // length of a train, above 0
  std::int64_t pause_ps = 0;  // from the end of a train to the next, not below 0
};

// A train begins with a pulse at its first moment and ends before train_ps.
class BurstSource final : public SignalSource {
 public:
  explicit BurstSource(const BurstSettings& settings);

  const Event* peek() override { return next_.is_none ? nullptr : &next_.event; }
  void pop() override { next_.go_on(settings_); }

  // Works on a copy of the next pulse, which takes half as long as one by one.
  std::size_t take(std::span<Event> events, std::int64_t before_ps) override;

 private:
  struct Pulse {
    void go_on(const BurstSettings& settings);
    void find(const BurstSettings& settings);

    std::int64_t train_start_ps = 0;
    double number = 0;  // in its train
    unsigned channel = 0;
    Event event{.time_ps = 0, .amplitude_v = input_pulse_v, .channel = 0};
    bool is_none = false;  // the source has ended
  };

  BurstSettings settings_;
  Pulse next_;
};

}  // namespace zelk::simulator
