// The correction of deltas that were read across a wrap of the coarse epoch,
// shared by the delta formats.
#pragma once

#include <cstdint>

#include "timing/time_tag.hpp"

namespace zelk::timing::detail {

// Whether a step of `step_ps` from `previous_ps` (taken as 0 when negative)
// leads past the end of the coarse epoch that `previous_ps` lies in.
constexpr bool crosses_epoch(std::int64_t previous_ps, std::uint64_t step_ps) {
  const auto epoch = static_cast<std::uint64_t>(coarse_epoch_ps);
  const auto previous = static_cast<std::uint64_t>(previous_ps < 0 ? 0 : previous_ps);
  return previous % epoch + step_ps >= epoch;
}

// Whether a step that was found after removing the wrap excess is the true
// one: always when it is small, otherwise only across an epoch boundary. A
// long silence thus keeps its full length unless a wrap explains the excess.
constexpr bool accepts_corrected_step(std::int64_t previous_ps, std::uint64_t step_ps) {
  return step_ps <= static_cast<std::uint64_t>(small_delta_bound_ps) ||
         crosses_epoch(previous_ps, step_ps);
}

// The step in ps that a raw delta from `previous_ps` stands for. An excess of 0
// means that the counter never overshoots.
constexpr std::uint64_t correct_epoch_excess(std::uint64_t delta_ps, std::uint64_t excess_ps,
                                             std::int64_t previous_ps) {
  if (excess_ps == 0 || delta_ps <= excess_ps) {
    return delta_ps;
  }
  const std::uint64_t corrected = delta_ps - excess_ps;
  return accepts_corrected_step(previous_ps, corrected) ? corrected : delta_ps;
}

}  // namespace zelk::timing::detail
