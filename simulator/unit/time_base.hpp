// From the time at which something happens to what the unit's clock shows at
// that moment.
#pragma once

#include <cmath>
#include <cstdint>

namespace zelk::simulator {

class TimeBase {
 public:
  // The clock shows the true time.
  TimeBase() = default;

  // At `origin_ps` of true time the clock shows `shown_ps`; from there on it
  // gains `drift_ppm` millionths, or loses them.
  TimeBase(std::int64_t origin_ps, std::int64_t shown_ps, double drift_ppm)
      : origin_ps_(origin_ps), shown_ps_(shown_ps), drift_(drift_ppm * 1e-6) {}

  // What the clock shows at `time_ps`, not before the origin. Never falls from
  // one time to a later one.
  [[nodiscard]] std::int64_t shown_at(std::int64_t time_ps) const {
    const std::int64_t elapsed_ps = time_ps - origin_ps_;
    const std::int64_t gain_ps =
        drift_ == 0 ? 0 : std::llround(static_cast<double>(elapsed_ps) * drift_);
    return shown_ps_ + elapsed_ps + gain_ps;
  }

 private:
  std::int64_t origin_ps_ = 0;
  std::int64_t shown_ps_ = 0;
  double drift_ = 0;
};

}  // namespace zelk::simulator
