#include "simulator/signals/calibration_source.hpp"

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "simulator/failure.hpp"

namespace zelk::simulator {
namespace {

constexpr double max_divider = std::numeric_limits<std::uint32_t>::max();

[[noreturn]] void refuse(double frequency_hz, const char* reason) {
  char number[32];
  std::snprintf(number, sizeof number, "%.10g", frequency_hz);
  throw Failure(Status::out_of_range,
                "calibration frequency of " + std::string(number) + " Hz: " + reason);
}

}  // namespace

std::uint32_t calibration_divider(double frequency_hz) {
  if (!std::isfinite(frequency_hz) || frequency_hz <= 0) {
    refuse(frequency_hz, "must be a finite number above 0");
  }
  if (frequency_hz > device_clock_hz) {
    refuse(frequency_hz, "above the device clock of 300.03 MHz");
  }
  const double divider = std::round(device_clock_hz / frequency_hz);
  if (divider > max_divider) {
    refuse(frequency_hz, "too low for a 32-bit divider of the 300.03 MHz device clock");
  }
  return static_cast<std::uint32_t>(divider);
}

CalibrationSource::CalibrationSource(std::uint32_t divider, std::uint64_t seed)
    : period_ps_(std::int64_t{divider} * timing::clock_period_ps), random_(seed) {}

void CalibrationSource::next_group(EventGroup& group) {
  // The first pulse comes one period after the start, so jitter cannot lead
  // to a time before it.
  if (pulse_ps_ >= end_of_time_ps - 2 * period_ps_) {
    return;
  }
  pulse_ps_ += period_ps_;
  for (std::size_t channel = 0; channel < skew_ps.size(); ++channel) {
    const std::int64_t time_ps = pulse_ps_ + skew_ps[channel] + random_.jitter_ps(jitter_rms_ps);
    group.add({time_ps, amplitude_v, static_cast<std::uint8_t>(channel)});
  }
}

}  // namespace zelk::simulator
