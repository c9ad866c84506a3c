// Events at random times on one channel: background light, dark counts.
#pragma once

#include <cstdint>

#include "simulator/random_numbers.hpp"
#include "simulator/signals/group_source.hpp"

namespace zelk::simulator {

class RandomSource final : public GroupSource {
 public:
  // `rate_hz` is the mean number of events per second, above 0.
  RandomSource(std::uint8_t channel, double rate_hz, std::uint64_t seed);

 private:
  void next_group(EventGroup& group) override;

  std::uint8_t channel_;
  double mean_wait_ps_;
  std::int64_t time_ps_ = 0;
  RandomNumbers random_;
};

}  // namespace zelk::simulator
