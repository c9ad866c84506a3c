// The signals at a unit's external inputs, as its port asks for them.
#pragma once

#include <cstdint>
#include <memory>

#include "simulator/encoders/encoder_for.hpp"
#include "simulator/ports/device_port.hpp"
#include "simulator/signals/tag_file.hpp"
#include "simulator/unit/signal.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

// What a signal has to know of the stream that it is for.
struct StreamShape {
  std::uint8_t channel_mask = timing::all_channels_mask;
  timing::Format format = timing::Format::raw64;
  PackedDeltaSettings packed_delta{};
};

// Owned by the unit. Each start of a stream gets the same signal anew.
class Scenario {
 public:
  // Reads the tag file when there is one; throws Failure when that is bad.
  explicit Scenario(const DevicePort& port);

  [[nodiscard]] Signal start(const StreamShape& shape = {}) const;

 private:
  [[nodiscard]] std::unique_ptr<SignalSource> light(const StreamShape& shape) const;

  DevicePort port_;
  std::shared_ptr<const FileTags> tags_;  // of ScenarioKind::tags
};

// What the unit's clock shows when a stream starts, without a tag file: 0, or
// `before_wrap_ms` before the coarse counter wraps when that is above 0, in
// whole periods of the clock.
std::int64_t first_shown_ps(double before_wrap_ms);

}  // namespace zelk::simulator
