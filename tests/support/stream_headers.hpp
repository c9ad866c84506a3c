// Stream descriptions as the smoke test makes them.
#pragma once

#include <string>

#include "timing/stream_header.hpp"

namespace zelk::test_support {

inline timing::StreamFileHeader stream_header(timing::Format format, timing::StreamMode mode) {
  timing::StreamFileHeader header;
  header.format = format;
  header.mode = mode;
  header.timestamp_layout = std::string(timing::timestamp_layout_for(format, mode));
  return header;
}

}  // namespace zelk::test_support
