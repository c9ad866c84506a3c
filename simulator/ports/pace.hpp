// How fast the stream of a simulated unit or of a recording arrives.
#pragma once

#include "simulator/ports/port_query.hpp"

namespace zelk::simulator {

enum class Pace {
  real_time,
  as_read,  // as fast as the host reads
};

// Takes the key "pace". Throws Failure for a bad value.
Pace take_pace(PortQuery& query);

}  // namespace zelk::simulator
