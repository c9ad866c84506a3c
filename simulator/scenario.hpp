// The signals at a unit's external inputs, as its port asks for them.
#pragma once

#include <cstdint>
#include <memory>

#include "simulator/device_port.hpp"
#include "simulator/signal_source.hpp"
#include "simulator/tag_file.hpp"

namespace zelk::simulator {

// A signal from its beginning, with the pace at which it arrives.
struct Signal {
  std::unique_ptr<SignalSource> source;
  std::int64_t origin_ps = 0;  // the event time at which the stream starts
  Pace pace = Pace::real_time;
};

// Owned by the unit. Each start of a stream gets the same signal anew.
class Scenario {
 public:
  // Reads the tag file when there is one; throws Failure when that is bad.
  explicit Scenario(const DevicePort& port);

  [[nodiscard]] Signal start() const;

 private:
  Pace pace_;
  std::shared_ptr<const Recording> recording_;  // null: the default unit's signals
};

}  // namespace zelk::simulator
