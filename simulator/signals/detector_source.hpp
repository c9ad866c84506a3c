// The detectors in front of the unit's inputs: what they make of the light. An
// event of the light is detected with the efficiency of its channel, unless the
// detector is still dead from the event before; a detected one is a pulse of
// the detector's amplitude, and may be followed by an afterpulse.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "simulator/random_numbers.hpp"
#include "simulator/settings.hpp"
#include "simulator/signals/event_queue.hpp"
#include "simulator/signals/signal_source.hpp"

namespace zelk::simulator {

class DetectorSource final : public SignalSource {
 public:
  // `seed` is the unit's.
  DetectorSource(std::unique_ptr<SignalSource> light, const DetectorSettings& settings,
                 std::uint32_t seed);

  // An event that is not detected has an amplitude below every threshold.
  // Passing it on, rather than looking for one that is, keeps each call short
  // where nothing is ever detected.
  const Event* peek() override;
  void pop() override;

 private:
  struct Detector {
    RandomNumbers random;
    std::int64_t ready_ps = 0;  // the end of its dead time
  };

  bool is_detected(const Event& event, bool is_afterpulse);
  void plan_afterpulse(const Event& pulse);

  std::unique_ptr<SignalSource> light_;
  DetectorSettings settings_;
  std::vector<Detector> detectors_;  // one per channel
  EventQueue afterpulses_;
  Event event_;  // what peek() returned
  bool has_event_ = false;
};

}  // namespace zelk::simulator
