// Correlated events: pairs at random times, one event on each of two channels,
// the second a fixed delay after the first, both with jitter.
#pragma once

#include <cstdint>

#include "simulator/random_numbers.hpp"
#include "simulator/settings.hpp"
#include "simulator/signals/event_queue.hpp"
#include "simulator/signals/signal_source.hpp"

namespace zelk::simulator {

class PairSource final : public SignalSource {
 public:
  PairSource(const PairSettings& settings, std::uint64_t seed);

  const Event* peek() override;
  void pop() override { events_.remove_first(); }

 private:
  void add_pair();

  PairSettings settings_;
  double mean_wait_ps_;
  std::int64_t first_offset_ps_;   // from a pair's beginning to its events, without
  std::int64_t second_offset_ps_;  // jitter: no event comes before the beginning
  std::int64_t pair_ps_ = 0;       // the beginning of the latest pair
  RandomNumbers random_;
  EventQueue events_;
};

}  // namespace zelk::simulator
