#include "simulator/device_port.hpp"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>
#include <vector>

#include "simulator/failure.hpp"

namespace zelk::simulator {
namespace {

constexpr std::string_view unit_scheme = "ftdi://";
constexpr std::string_view scenario_scheme = "sim://";

std::string quoted(std::string_view text) {
  return '"' + std::string(text) + '"';
}

// Undoes %XX. A NUL byte is refused: it would cut a path short.
std::string percent_decoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const std::string_view digits = text.substr(i + 1, 2);
    unsigned value = 0;
    const auto [rest, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (error != std::errc{} || rest != digits.data() + 2 || value == 0) {
      throw Failure(Status::malformed_port, "bad percent sign in " + quoted(text));
    }
    decoded += static_cast<char>(value);
    i += 2;
  }
  return decoded;
}

// The key=value list behind the "?". A scenario takes the keys that it knows;
// what is left then is unknown.
class Query {
 public:
  explicit Query(std::string_view text) {
    while (!text.empty()) {
      const std::size_t end = std::min(text.find('&'), text.size());
      add(text.substr(0, end));
      text.remove_prefix(std::min(end + 1, text.size()));
    }
  }

  std::optional<std::string> take(std::string_view key) {
    const auto found = std::find_if(items_.begin(), items_.end(),
                                    [key](const auto& item) { return item.first == key; });
    if (found == items_.end()) {
      return std::nullopt;
    }
    std::string value = std::move(found->second);
    items_.erase(found);
    return value;
  }

  // After the last take().
  void expect_empty() const {
    if (!items_.empty()) {
      throw Failure(Status::unknown_port_key, "unknown key " + quoted(items_.front().first));
    }
  }

 private:
  void add(std::string_view item) {
    const std::size_t equals = item.find('=');
    if (equals == item.npos || equals == 0) {
      throw Failure(Status::malformed_port, quoted(item) + " is not key=value");
    }
    const std::string_view key = item.substr(0, equals);
    for (const auto& [known, value] : items_) {
      if (known == key) {
        throw Failure(Status::repeated_port_key, "key " + quoted(key) + " given twice");
      }
    }
    items_.emplace_back(key, percent_decoded(item.substr(equals + 1)));
  }

  std::vector<std::pair<std::string, std::string>> items_;
};

Pace parse_pace(const std::string& text) {
  if (text == "max") {
    return Pace::as_read;
  }
  if (text == "real") {
    return Pace::real_time;
  }
  throw Failure(Status::port_value_out_of_range, "pace is max or real, not " + quoted(text));
}

DevicePort parse_tags(Query& query) {
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
  Query query(port.substr(std::min(name_end + 1, port.size())));
  DevicePort parsed = parse_tags(query);
  query.expect_empty();
  return parsed;
}

}  // namespace zelk::simulator
