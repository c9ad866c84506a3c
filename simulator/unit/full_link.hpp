// How fast tags may follow each other on a link.
#pragma once

#include <cstdint>

#include "simulator/device_model.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

// The shortest time, within 0.1 %, from one tag to the next at which the tags of
// a stream in external mode, on the channels of `channel_mask` in turn, and all
// words that they need take no more than `bytes_per_s`, above 0. For a mask
// without channels that of tags without such words.
double shortest_step_ps(timing::Format format, const PackedDeltaSettings& packed_delta,
                        std::uint8_t channel_mask, double bytes_per_s);

}  // namespace zelk::simulator
