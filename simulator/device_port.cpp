#include "simulator/device_port.hpp"

#include <algorithm>
#include <optional>

#include "simulator/failure.hpp"
#include "simulator/port_query.hpp"

namespace zelk::simulator {
namespace {

constexpr std::string_view unit_scheme = "ftdi://";
constexpr std::string_view scenario_scheme = "sim://";

Pace parse_pace(const std::string& text) {
  if (text == "max") {
    return Pace::as_read;
  }
  if (text == "real") {
    return Pace::real_time;
  }
  throw Failure(Status::port_value_out_of_range, "pace is max or real, not " + quoted(text));
}

DevicePort parse_tags(PortQuery& query) {
  DevicePort port;
  port.scenario = ScenarioKind::tags;
  const std::optional<std::string> file = query.take("file");
  if (!file) {
    throw Failure(Status::missing_port_key, "sim://tags needs file=PATH");
  }
  port.tag_file = *file;
  if (const std::optional<std::string> pace = query.take("pace")) {
    port.pace = parse_pace(*pace);
  }
  return port;
}

}  // namespace

DevicePort parse_device_port(std::string_view port) {
  if (port == unit_scheme || port == default_unit_port) {
    return {};
  }
  if (!port.starts_with(scenario_scheme)) {
    throw Failure(Status::no_such_unit, "no unit at " + quoted(port));
  }
  port.remove_prefix(scenario_scheme.size());
  const std::size_t name_end = std::min(port.find('?'), port.size());
  const std::string_view name = port.substr(0, name_end);
  if (name != "tags") {
    throw Failure(Status::unknown_scenario, "unknown scenario " + quoted(name));
  }
  PortQuery query(port.substr(std::min(name_end + 1, port.size())));
  DevicePort parsed = parse_tags(query);
  query.expect_empty();
  return parsed;
}

}  // namespace zelk::simulator
