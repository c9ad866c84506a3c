#include "simulator/device_port.hpp"

#include <algorithm>
#include <charconv>
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

std::uint32_t parse_start_bits(const std::string& text) {
  std::uint32_t bits = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, bits);
  if (error != std::errc{} || rest != end || bits > max_start_bits) {
    throw Failure(Status::port_value_out_of_range, "start_bits is a number from 0 to " +
                                                       std::to_string(max_start_bits) + ", not " +
                                                       quoted(text));
  }
  return bits;
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
  DevicePort parsed = is_unit ? DevicePort{} : parse_tags(query);
  if (const std::optional<std::string> bits = query.take("start_bits")) {
    parsed.start_bits = parse_start_bits(*bits);
  }
  query.expect_empty();
  return parsed;
}

}  // namespace zelk::simulator
