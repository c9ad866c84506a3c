#include "simulator/unit/scenario.hpp"

#include <cmath>
#include <utility>
#include <vector>

#include "simulator/signals/burst_source.hpp"
#include "simulator/signals/detector_source.hpp"
#include "simulator/signals/merged_source.hpp"
#include "simulator/signals/pair_source.hpp"
#include "simulator/signals/pulse_source.hpp"
#include "simulator/signals/random_source.hpp"
#include "simulator/unit/full_link.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {
namespace {

using Sources = std::vector<std::unique_ptr<SignalSource>>;

// The default unit: pairs over its own background.
constexpr double default_background_hz = 5e3;
constexpr PairSettings default_pairs[] = {
    {.first_channel = 0,
     .second_channel = 1,
     .rate_hz = 20e3,
     .delay_ps = 120,
     .jitter_rms_ps = 40},
    {.first_channel = 2,
     .second_channel = 3,
     .rate_hz = 20e3,
     .delay_ps = 250,
     .jitter_rms_ps = 40},
};

// The share of the link's rate that a burst leaves free.
constexpr double burst_margin = 0.001;

void add_pairs(const PairSettings& pairs, std::uint32_t seed, Sources& sources) {
  if (pairs.rate_hz > 0) {
    sources.push_back(std::make_unique<PairSource>(
        pairs, stream_seed(seed, RandomPurpose::pairs, pairs.first_channel)));
  }
}

void add_random(const ChannelNumbers& rates_hz, std::uint32_t seed, RandomPurpose purpose,
                Sources& sources) {
  for (std::size_t channel = 0; channel < rates_hz.size(); ++channel) {
    if (rates_hz[channel] > 0) {
      sources.push_back(std::make_unique<RandomSource>(static_cast<std::uint8_t>(channel),
                                                       rates_hz[channel],
                                                       stream_seed(seed, purpose, channel)));
    }
  }
}

void add_default_signals(std::uint32_t seed, Sources& sources) {
  for (const PairSettings& pairs : default_pairs) {
    add_pairs(pairs, seed, sources);
  }
  ChannelNumbers rates_hz{};
  rates_hz.fill(default_background_hz);
  add_random(rates_hz, seed, RandomPurpose::random, sources);
}

void add_pulses(const DevicePort& port, Sources& sources) {
  for (std::size_t channel = 0; channel < timing::channel_count; ++channel) {
    const PulseSettings pulses{.channel = static_cast<std::uint8_t>(channel),
                               .frequency_hz = port.pulse_frequency_hz,
                               .delay_ps = std::llround(port.pulse_delay_ps[channel]),
                               .jitter_rms_ps = port.jitter_rms_ps};
    sources.push_back(std::make_unique<PulseSource>(
        pulses, stream_seed(port.seed, RandomPurpose::pulses, channel)));
  }
}

BurstSettings burst_settings(const DevicePort& port, const StreamShape& shape) {
  const double bytes_per_s = static_cast<double>(port.link.rate_bytes_per_s) * (1 - burst_margin);
  return {.channel_mask = shape.channel_mask,
          .step_ps =
              shortest_step_ps(shape.format, shape.packed_delta, shape.channel_mask, bytes_per_s),
          .train_ps = port.burst_ps,
          .pause_ps = port.pause_ps};
}

}  // namespace

std::int64_t first_shown_ps(double before_wrap_ms) {
  if (before_wrap_ms <= 0) {
    return 0;
  }
  constexpr double periods_per_ms = 1e9 / static_cast<double>(timing::clock_period_ps);
  return timing::coarse_epoch_ps -
         std::llround(before_wrap_ms * periods_per_ms) * timing::clock_period_ps;
}

Scenario::Scenario(const DevicePort& port) : port_(port) {
  if (port.scenario == ScenarioKind::tags) {
    tags_ = std::make_shared<const FileTags>(read_tag_file(port.tag_file));
  }
}

// Everything that shines on the detectors.
std::unique_ptr<SignalSource> Scenario::light(const StreamShape& shape) const {
  Sources sources;
  switch (port_.scenario) {
    case ScenarioKind::default_unit:
      add_default_signals(port_.seed, sources);
      break;
    case ScenarioKind::tags:
      sources.push_back(port_.loop ? std::make_unique<TagFileSource>(tags_, port_.loop_gap_ps)
                                   : std::make_unique<TagFileSource>(tags_));
      break;
    case ScenarioKind::pulses:
      add_pulses(port_, sources);
      break;
    case ScenarioKind::random:
      add_random(port_.random_rate_hz, port_.seed, RandomPurpose::random, sources);
      break;
    case ScenarioKind::pairs:
      add_pairs(port_.pairs, port_.seed, sources);
      break;
    case ScenarioKind::burst:
      sources.push_back(std::make_unique<BurstSource>(burst_settings(port_, shape)));
      break;
    case ScenarioKind::silent:
      break;
  }
  add_random(port_.background_hz, port_.seed, RandomPurpose::background, sources);
  if (sources.size() == 1) {
    return std::move(sources.front());
  }
  return std::make_unique<MergedSource>(std::move(sources));
}

Signal Scenario::start(const StreamShape& shape) const {
  const std::int64_t origin_ps = tags_ && !tags_->empty() ? tags_->front().time_ps() : 0;
  const std::int64_t shown_ps =
      port_.start_epoch_ms > 0 ? first_shown_ps(port_.start_epoch_ms) : origin_ps;
  Signal signal{.source = light(shape),
                .origin_ps = origin_ps,
                .pace = port_.pace,
                .time_base = TimeBase(origin_ps, shown_ps, port_.drift_ppm)};
  if (port_.detector != DetectorSettings{}) {
    signal.source =
        std::make_unique<DetectorSource>(std::move(signal.source), port_.detector, port_.seed);
  }
  return signal;
}

}  // namespace zelk::simulator
