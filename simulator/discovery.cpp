#include "simulator/discovery.hpp"

#include <cstdint>
#include <string_view>

#include "simulator/failure.hpp"
#include "simulator/ports/device_port.hpp"
#include "simulator/ports/number_text.hpp"
#include "simulator/shown_text.hpp"
#include "simulator/unit/unit.hpp"

namespace zelk::simulator {
namespace {

constexpr std::string_view fail_prefix = "fail:";
constexpr std::string_view port_prefix = "port:";

Failure malformed(std::string_view request) {
  return {Status::malformed_discovery, std::string("malformed value of ") + discovery_variable +
                                           ": " + named(request) +
                                           " is none of fail:STATUS, empty, null and port:PORT"};
}

// Throws the failure that `request` asks for.
[[noreturn]] void fail(std::string_view request) {
  const auto status = number_from<std::int32_t>(request.substr(fail_prefix.size()));
  if (status.value_or(0) == 0) {
    throw malformed(request);
  }
  throw FaultFailure(static_cast<Status>(*status), "discovery fails as asked");
}

// None for a port that names no simulated unit: opening it will tell why.
std::optional<qx_identity> identity_at(std::string_view port) {
  try {
    return unit_identity(parse_device_port(port));
  } catch (const Failure&) {
    return std::nullopt;
  }
}

}  // namespace

std::vector<DiscoveredUnit> discovered_units(const char* request) {
  const std::string_view text = request != nullptr ? request : "";
  if (request == nullptr) {
    return {{std::string(default_unit_port), identity_at(default_unit_port)}};
  }
  if (text.starts_with(fail_prefix)) {
    fail(text);
  }
  if (text == "empty") {
    return {};
  }
  if (text == "null") {
    return {{std::nullopt, std::nullopt}};
  }
  if (text.starts_with(port_prefix)) {
    const std::string_view port = text.substr(port_prefix.size());
    return {{std::string(port), identity_at(port)}};
  }
  throw malformed(text);
}

}  // namespace zelk::simulator
