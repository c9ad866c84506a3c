#include "simulator/unit/front_end.hpp"

#include <algorithm>
#include <string>

#include "simulator/failure.hpp"
#include "simulator/random_numbers.hpp"

namespace zelk::simulator {

std::int64_t applied_dead_time_ps(std::int64_t requested_ps) {
  if (requested_ps < 0 || requested_ps > max_dead_time_ps) {
    throw Failure(Status::out_of_range, "dead time of " + std::to_string(requested_ps) +
                                            " ps: the range is 0 to " +
                                            std::to_string(max_dead_time_ps) + " ps");
  }
  constexpr std::int64_t step_ps = timing::clock_period_ps;
  return (requested_ps + step_ps - 1) / step_ps * step_ps;
}

FrontEnd::FrontEnd(const FrontEndSettings& settings)
    : recovery_ps_(std::max<std::int64_t>(settings.dead_time_ps, 1)) {
  for (std::size_t i = 0; i < channels_.size(); ++i) {
    channels_[i].enabled = (settings.channel_mask >> i & 1) != 0;
    channels_[i].has_delay_line = (settings.delay_line_masks[i] & all_delay_lines_mask) != 0;
    channels_[i].threshold_v = threshold_v(settings.threshold_codes[i]);
    if (settings.bin_nonuniformity > 0) {
      channels_[i].delay_line = std::make_unique<const DelayLine>(
          settings.bin_nonuniformity, stream_seed(settings.seed, RandomPurpose::delay_line, i));
    }
  }
}

}  // namespace zelk::simulator
