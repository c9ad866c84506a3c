#include "smoke_test/unit_list.hpp"

#include <iostream>
#include <stdexcept>

#include "smoke_test/standard_streams.hpp"
#include "smoke_test/text.hpp"

using zelk::timing::DiscoveredDevice;

namespace {

// The serial numbers of the units that can be opened.
std::string what_is_attached(bool any, const std::vector<std::string>& serials) {
  if (serials.empty()) {
    return any ? "no attached unit has a port" : "no unit is attached";
  }
  return "attached " + std::string(serials.size() == 1 ? "is " : "are ") + enumerated(serials);
}

}  // namespace

void print_units(const std::vector<DiscoveredDevice>& units) {
  for (const DiscoveredDevice& unit : units) {
    std::cout << without_control_characters("port=" + unit.port +
                                            " serial=" + unit.identity.serial +
                                            " text=" + unit.identity.device_text)
              << '\n';
  }
}

std::string port_of_unit(const std::vector<DiscoveredDevice>& units, std::string_view serial) {
  std::vector<std::string> serials;
  std::vector<std::string> ports;  // of the units with this serial number
  for (const DiscoveredDevice& unit : units) {
    if (unit.port.empty()) {
      continue;
    }
    const std::string& found = unit.identity.serial;
    serials.push_back(found.empty() ? "one without a serial number" : found);
    if (found == serial) {
      ports.push_back(unit.port);
    }
  }
  if (ports.empty()) {
    throw std::runtime_error("no unit with serial " + std::string(serial) + ": " +
                             what_is_attached(!units.empty(), serials));
  }
  if (ports.size() > 1) {
    throw std::runtime_error(std::to_string(ports.size()) + " units with serial " +
                             std::string(serial) + ", at " + enumerated(ports) +
                             ": choose one with port=");
  }
  return ports.front();
}
