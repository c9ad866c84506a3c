// How fast tags may follow each other on a link.
#pragma once

#include <cstdint>

#include "simulator/encoders/encoder_for.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

// The shortest time from one tag to the next that a link of `bytes_per_s`, above
// 0, can carry; to within 0.1 %. The tags come in external mode, on the channels
// of `channel_mask` in turn. All words that they need count, bases and syncs too.
// For a mask without channels the tag alone counts.
double shortest_step_ps(timing::Format format, const PackedDeltaSettings& packed_delta,
                        std::uint8_t channel_mask, double bytes_per_s);

}  // namespace zelk::simulator
