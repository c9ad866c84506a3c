#include "simulator/signals/detector_source.hpp"

#include <cmath>
#include <utility>

namespace zelk::simulator {
namespace {

constexpr double no_pulse_v = -1;

}  // namespace

DetectorSource::DetectorSource(std::unique_ptr<SignalSource> light,
                               const DetectorSettings& settings, std::uint32_t seed)
    : light_(std::move(light)), settings_(settings) {
  for (std::size_t channel = 0; channel < timing::channel_count; ++channel) {
    detectors_.push_back({RandomNumbers(stream_seed(seed, RandomPurpose::detector, channel)), 0});
  }
}

const Event* DetectorSource::peek() {
  if (has_event_) {
    return &event_;
  }
  const Event* const light = light_->peek();
  const bool is_afterpulse =
      !afterpulses_.empty() && (light == nullptr || afterpulses_.first().time_ps < light->time_ps);
  if (!is_afterpulse && light == nullptr) {
    return nullptr;
  }
  event_ = is_afterpulse ? afterpulses_.first() : *light;
  if (is_afterpulse) {
    afterpulses_.remove_first();
  } else {
    light_->pop();
  }
  if (is_detected(event_, is_afterpulse)) {
    event_.amplitude_v = settings_.amplitude_v[event_.channel];
    plan_afterpulse(event_);
  } else {
    event_.amplitude_v = no_pulse_v;
  }
  has_event_ = true;
  return &event_;
}

void DetectorSource::pop() {
  has_event_ = false;
}

bool DetectorSource::is_detected(const Event& event, bool is_afterpulse) {
  Detector& detector = detectors_[event.channel];
  if (settings_.amplitude_v[event.channel] <= 0 || event.time_ps < detector.ready_ps) {
    return false;
  }
  // uniform() is never 0, so that an efficiency of 0 detects nothing.
  return is_afterpulse || detector.random.uniform() <= settings_.efficiency[event.channel];
}

void DetectorSource::plan_afterpulse(const Event& pulse) {
  Detector& detector = detectors_[pulse.channel];
  detector.ready_ps = pulse.time_ps + settings_.dead_time_ps;
  if (settings_.afterpulse_probability <= 0 ||
      detector.random.uniform() > settings_.afterpulse_probability) {
    return;
  }
  // Later than its pulse, which has gone by now.
  const std::int64_t delay_ps =
      1 + std::llround(detector.random.exponential(settings_.afterpulse_tau_ps));
  if (pulse.time_ps < end_of_time_ps - delay_ps) {
    afterpulses_.add({pulse.time_ps + delay_ps, 0, pulse.channel});
  }
}

}  // namespace zelk::simulator
