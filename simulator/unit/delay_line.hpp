// A delay line measures how long before a clock edge a pulse came. It divides a
// period of the device clock into taps and finds the tap that the pulse lies in.
// Its answer is the nominal place of that tap. True taps are uneven: a wide one
// answers for more pulses than a narrow one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "timing/time_tag.hpp"

namespace zelk::simulator {

class DelayLine {
 public:
  static constexpr std::size_t taps = 180;  // of 18.5 ps, to within 0.1 %

  // Each tap's width is drawn evenly from (1 - nonuniformity) to
  // (1 + nonuniformity) times the nominal one, and all are stretched alike to
  // fill the period. `nonuniformity` is 0 to 1.
  DelayLine(double nonuniformity, std::uint64_t seed);

  // The time that the line gives to a pulse at `time_ps`, which is not below 0:
  // the clock edge at or after the pulse, less the nominal place of its tap.
  // Never falls from one time to a later one.
  [[nodiscard]] std::int64_t measured_ps(std::int64_t time_ps) const {
    constexpr std::int64_t period_ps = timing::clock_period_ps;
    const std::int64_t edge_ps = (time_ps + period_ps - 1) / period_ps * period_ps;
    return edge_ps - place_ps_[static_cast<std::size_t>(edge_ps - time_ps)];
  }

 private:
  // Nominal place of the tap that holds each time before the edge, in ps.
  std::array<std::int16_t, timing::clock_period_ps> place_ps_{};
};

}  // namespace zelk::simulator
