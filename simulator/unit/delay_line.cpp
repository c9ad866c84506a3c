#include "simulator/unit/delay_line.hpp"

#include <numeric>

#include "simulator/random_numbers.hpp"
#include "timing/wire_format.hpp"

namespace zelk::simulator {

DelayLine::DelayLine(double nonuniformity, std::uint64_t seed) {
  RandomNumbers random(seed);
  std::array<double, taps> widths{};
  for (double& width : widths) {
    width = 1 + nonuniformity * (2 * random.uniform() - 1);
  }
  const double scale = static_cast<double>(timing::clock_period_ps) /
                       std::accumulate(widths.begin(), widths.end(), 0.0);
  std::size_t tap = 0;
  double end_ps = widths[0] * scale;
  for (std::size_t before_edge_ps = 0; before_edge_ps < place_ps_.size(); ++before_edge_ps) {
    // A tap holds the whole picoseconds from its beginning to before its end.
    while (static_cast<double>(before_edge_ps) >= end_ps && tap + 1 < taps) {
      end_ps += widths[++tap] * scale;
    }
    place_ps_[before_edge_ps] =
        static_cast<std::int16_t>(timing::wire::default_fine_correction_ps(tap));
  }
}

}  // namespace zelk::simulator
