// Which encoder a stream gets.
#pragma once

#include <memory>

#include "simulator/stream_encoder.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

// A fresh encoder for a stream of `format` in `mode`: raw64 has its coarse and
// fine layout in the internal mode. Null for packed_delta, which this unit can
// be set up for and whose stream carries no bytes.
std::unique_ptr<StreamEncoder> encoder_for(timing::Format format, timing::StreamMode mode);

}  // namespace zelk::simulator
