#include "simulator/scenario.hpp"

#include <utility>
#include <vector>

#include "simulator/merged_source.hpp"
#include "simulator/pair_source.hpp"
#include "simulator/random_source.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {
namespace {

constexpr double pair_rate_hz = 20e3;
constexpr double background_rate_hz = 5e3;
constexpr double pair_jitter_rms_ps = 40;
constexpr PairSettings default_pairs[] = {
    {.first_channel = 0,
     .second_channel = 1,
     .rate_hz = pair_rate_hz,
     .delay_ps = 120,
     .jitter_rms_ps = pair_jitter_rms_ps},
    {.first_channel = 2,
     .second_channel = 3,
     .rate_hz = pair_rate_hz,
     .delay_ps = 250,
     .jitter_rms_ps = pair_jitter_rms_ps},
};

std::unique_ptr<SignalSource> default_signals() {
  std::vector<std::unique_ptr<SignalSource>> sources;
  std::uint64_t seed = 1;
  for (const PairSettings& pairs : default_pairs) {
    sources.push_back(std::make_unique<PairSource>(pairs, seed++));
  }
  for (int channel = 0; channel < timing::channel_count; ++channel) {
    sources.push_back(std::make_unique<RandomSource>(static_cast<std::uint8_t>(channel),
                                                     background_rate_hz, seed++));
  }
  return std::make_unique<MergedSource>(std::move(sources));
}

}  // namespace

Scenario::Scenario(const DevicePort& port) : pace_(port.pace) {
  if (port.scenario == ScenarioKind::tags) {
    recording_ = std::make_shared<const Recording>(read_tag_file(port.tag_file));
  }
}

Signal Scenario::start() const {
  if (!recording_) {
    return {.source = default_signals()};
  }
  return {.source = std::make_unique<RecordedSource>(recording_),
          .origin_ps = recording_->empty() ? 0 : recording_->front().time_ps(),
          .pace = pace_};
}

}  // namespace zelk::simulator
