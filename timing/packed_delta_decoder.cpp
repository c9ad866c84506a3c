// The packed_delta path.
#include "timing/stream_decoder.hpp"

namespace zelk::timing {

std::vector<TimeTag> StreamDecoder::feed_packed_delta() {
  return {};
}

}  // namespace zelk::timing
