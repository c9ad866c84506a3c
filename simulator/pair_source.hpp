// Correlated events: pairs at random times, one event on each of two channels,
// the second a fixed delay after the first, both with jitter.
#pragma once

#include <cstdint>

#include "simulator/group_source.hpp"
#include "simulator/random_numbers.hpp"

namespace zelk::simulator {

struct PairSettings {
  std::uint8_t first_channel = 0;
  std::uint8_t second_channel = 1;
  double rate_hz = 0;  // mean pairs a second, above 0
  std::int64_t delay_ps = 0;
  double jitter_rms_ps = 0;  // of each of the two events
};

class PairSource final : public GroupSource {
 public:
  PairSource(const PairSettings& settings, std::uint64_t seed);

 private:
  void next_group(EventGroup& group) override;

  PairSettings settings_;
  double mean_wait_ps_;
  std::int64_t span_ps_;  // an upper bound of one pair's extent
  std::int64_t pair_ps_ = 0;
  RandomNumbers random_;
};

}  // namespace zelk::simulator
