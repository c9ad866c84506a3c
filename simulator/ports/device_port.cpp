#include "simulator/ports/device_port.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>

#include "simulator/failure.hpp"
#include "simulator/ports/port_query.hpp"
#include "simulator/ports/port_values.hpp"
#include "simulator/shown_text.hpp"

namespace zelk::simulator {
namespace {

constexpr std::string_view scenario_scheme = "sim://";
constexpr std::int64_t ps_per_us = 1'000'000;

// What the units of a kind of port see.
struct UnitKind {
  std::uint32_t port;
  ScenarioKind scenario;
};

constexpr UnitKind unit_kinds[] = {
    {ports::unit, ScenarioKind::default_unit}, {ports::tags, ScenarioKind::tags},
    {ports::pulses, ScenarioKind::pulses},     {ports::random, ScenarioKind::random},
    {ports::pairs, ScenarioKind::pairs},       {ports::burst, ScenarioKind::burst},
    {ports::silent, ScenarioKind::silent},
};

[[noreturn]] void refuse_name(std::string_view name) {
  const bool is_scenario = name.starts_with(scenario_scheme);
  const bool has_keys = name.find_first_of("&=") != name.npos;
  throw Failure(is_scenario ? Status::unknown_scenario : Status::no_such_unit,
                (is_scenario ? "unknown scenario " : "no such unit: ") + named(name) +
                    port_suggestion(name.substr(0, name.find('&'))) + "; " + all_ports_text() +
                    (has_keys ? "; keys follow a `?`" : ""));
}

// `name` is what stands before the "?".
UnitKind unit_kind_of(std::string_view name) {
  for (const NamedPort& known : named_ports) {
    for (const UnitKind& unit : unit_kinds) {
      if (known.name == name && known.kind == unit.port) {
        return unit;
      }
    }
  }
  refuse_name(name);
}

std::int64_t take_ps(PortQuery& query, std::size_t row) {
  return std::llround(take_number(query, row));
}

void take_tags(PortQuery& query, DevicePort& port) {
  constexpr std::size_t file_row = key_row("file");
  const std::optional<std::string> file = take_words(query, file_row);
  if (!file) {
    throw missing_key(file_row, "sim://tags", "PATH");
  }
  port.tag_file = *file;
  port.loop = take_whole(query, key_row("loop")) != 0;
  port.loop_gap_ps = take_ps(query, key_row("loop_gap_ps"));
}

void take_pairs(PortQuery& query, DevicePort& port) {
  port.pairs.first_channel = static_cast<std::uint8_t>(take_whole(query, key_row("channel_a")));
  port.pairs.second_channel = static_cast<std::uint8_t>(take_whole(query, key_row("channel_b")));
  port.pairs.rate_hz = take_number(query, key_row("pair_rate_hz"));
  port.pairs.delay_ps = take_ps(query, key_row("pair_delay_ps"));
  port.pairs.jitter_rms_ps = take_number(query, key_row("jitter_ps"));
}

void take_signal(PortQuery& query, DevicePort& port) {
  switch (port.scenario) {
    case ScenarioKind::tags:
      take_tags(query, port);
      break;
    case ScenarioKind::pulses:
      port.pulse_frequency_hz = take_number(query, key_row("frequency_hz"));
      port.pulse_delay_ps = take_channel_numbers(query, key_row("delay_ps"));
      port.jitter_rms_ps = take_number(query, key_row("jitter_ps"));
      break;
    case ScenarioKind::random:
      port.random_rate_hz = take_channel_numbers(query, key_row("rate_hz"));
      break;
    case ScenarioKind::pairs:
      take_pairs(query, port);
      break;
    case ScenarioKind::burst:
      port.burst_ps = take_whole(query, key_row("burst_us")) * ps_per_us;
      port.pause_ps = take_whole(query, key_row("pause_us")) * ps_per_us;
      break;
    case ScenarioKind::default_unit:
    case ScenarioKind::silent:
      break;
  }
}

void take_detector(PortQuery& query, DetectorSettings& detector) {
  detector.amplitude_v = take_channel_numbers(query, key_row("amplitude_v"));
  detector.efficiency = take_channel_numbers(query, key_row("efficiency"));
  detector.dead_time_ps = take_ps(query, key_row("detector_dead_time_ps"));
  detector.afterpulse_probability = take_number(query, key_row("afterpulse_percent")) / 100;
  detector.afterpulse_tau_ps = take_number(query, key_row("afterpulse_tau_ps"));
}

void take_link(PortQuery& query, LinkSettings& link) {
  link.fifo_bytes = take_whole(query, key_row("fifo_bytes"));
  link.rate_bytes_per_s = take_whole(query, key_row("link_bytes_per_s"));
  link.host_buffer_bytes = take_whole(query, key_row("host_buffer_bytes"));
  link.short_reads = take_whole(query, key_row("short_reads")) != 0;
}

}  // namespace

DevicePort parse_device_port(std::string_view port) {
  expect_one_line(port);
  const std::size_t name_end = std::min(port.find('?'), port.size());
  const UnitKind kind = unit_kind_of(port.substr(0, name_end));
  DevicePort parsed;
  parsed.scenario = kind.scenario;
  PortQuery query(port.substr(std::min(name_end + 1, port.size())));
  take_signal(query, parsed);
  parsed.pace = take_pace(query);
  parsed.seed = take_seed(query);
  parsed.background_hz = take_channel_numbers(query, key_row("background_hz"));
  take_detector(query, parsed.detector);
  parsed.drift_ppm = take_number(query, key_row("drift_ppm"));
  parsed.start_epoch_ms = take_number(query, key_row("start_epoch"));
  parsed.bin_nonuniformity = take_number(query, key_row("bin_nonuniformity_percent")) / 100;
  take_link(query, parsed.link);
  parsed.prepared_ps = std::llround(take_number(query, key_row("prepared_s")) * 1e12);
  parsed.start_bits = static_cast<std::uint32_t>(take_whole(query, key_row("start_bits")));
  parsed.faults = take_fault_plan(query);
  parsed.external_reference =
      take_choice<ExternalReference>(query, key_row("external_reference"),
                                     {{"none", ExternalReference::none},
                                      {"unlocked", ExternalReference::unlocked},
                                      {"locked", ExternalReference::locked}})
          .value();
  expect_all_taken(query, kind.port);
  return parsed;
}

}  // namespace zelk::simulator
