// The unit's calibration source: a pulse on every channel each time that a fixed
// number of device clock periods has passed.
#pragma once

#include <array>
#include <cstdint>

#include "simulator/random_numbers.hpp"
#include "simulator/signals/group_source.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

// The device clock: one period is 3333 ps.
inline constexpr double device_clock_hz = 1e12 / static_cast<double>(timing::clock_period_ps);

// Divider of the device clock that comes nearest to `frequency_hz`, 1 to
// 2^32 - 1. Throws Failure for a frequency that is not a number above 0, above
// the device clock, or below what the largest divider gives.
std::uint32_t calibration_divider(double frequency_hz);

class CalibrationSource final : public GroupSource {
 public:
  static constexpr double amplitude_v = 3.3;
  static constexpr double jitter_rms_ps = 4;
  // Travel time of the pulse to each channel. With the jitter, still far less
  // than one clock period, so pulses never overtake each other.
  static constexpr std::array<std::int64_t, timing::channel_count> skew_ps{0, 25, 40, 65};

  // `seed` is that of the jitter.
  explicit CalibrationSource(std::uint32_t divider, std::uint64_t seed = 0x5EED0CA1);

 private:
  void next_group(EventGroup& group) override;

  std::int64_t period_ps_;
  std::int64_t pulse_ps_ = 0;
  RandomNumbers random_;
};

}  // namespace zelk::simulator
