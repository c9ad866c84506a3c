// What a running stream is made of: a signal, and the unit's clock beside it.
#pragma once

#include <cstdint>
#include <memory>

#include "simulator/settings.hpp"
#include "simulator/signals/signal_source.hpp"
#include "simulator/unit/time_base.hpp"

namespace zelk::simulator {

// A signal from its beginning, with the pace at which it arrives.
struct Signal {
  std::unique_ptr<SignalSource> source;
  std::int64_t origin_ps = 0;  // the event time at which the stream starts
  Pace pace = Pace::real_time;
  TimeBase time_base{};  // the unit's clock while the stream runs
};

}  // namespace zelk::simulator
