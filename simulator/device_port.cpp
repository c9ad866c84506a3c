#include "simulator/device_port.hpp"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "simulator/failure.hpp"
#include "simulator/port_keys.hpp"
#include "simulator/port_query.hpp"

namespace zelk::simulator {
namespace {

constexpr std::string_view unit_scheme = "ftdi://";
constexpr std::string_view scenario_scheme = "sim://";

void take_tags(PortQuery& query, DevicePort& port) {
  port.scenario = ScenarioKind::tags;
  const std::optional<std::string> file = take_words(query, key_row("file"));
  if (!file) {
    throw Failure(Status::missing_port_key, "sim://tags needs file=PATH");
  }
  port.tag_file = *file;
  port.pace = take_pace(query);
}

}  // namespace

Pace take_pace(PortQuery& query) {
  constexpr std::size_t row = key_row("pace");
  const std::string text = take_words(query, row).value();
  if (text == "max") {
    return Pace::as_read;
  }
  if (text != "real") {
    throw bad_value(row, text);
  }
  return Pace::real_time;
}

DevicePort parse_device_port(std::string_view port) {
  const std::size_t name_end = std::min(port.find('?'), port.size());
  const std::string_view name = port.substr(0, name_end);
  const bool is_unit = name == unit_scheme || name == default_unit_port;
  if (!is_unit && !name.starts_with(scenario_scheme)) {
    throw Failure(Status::no_such_unit, "no unit at " + quoted(port));
  }
  if (!is_unit && name.substr(scenario_scheme.size()) != "tags") {
    throw Failure(Status::unknown_scenario,
                  "unknown scenario " + quoted(name.substr(scenario_scheme.size())));
  }
  PortQuery query(port.substr(std::min(name_end + 1, port.size())));
  DevicePort parsed;
  if (!is_unit) {
    take_tags(query, parsed);
  }
  parsed.seed = static_cast<std::uint32_t>(take_whole(query, key_row("seed")));
  parsed.start_bits = static_cast<std::uint32_t>(take_whole(query, key_row("start_bits")));
  parsed.faults = take_fault_plan(query);
  expect_all_taken(query);
  return parsed;
}

}  // namespace zelk::simulator
