#include "simulator/ports/named_ports.hpp"

#include <optional>
#include <vector>

#include "simulator/ports/nearest_name.hpp"

namespace zelk::simulator {
namespace {

using Names = std::vector<std::string_view>;

constexpr std::string_view scenario_scheme = "sim://";

Names keys_of(std::uint32_t kind) {
  Names names;
  for (const PortKey& key : port_keys) {
    if ((key.ports & kind) != 0) {
      names.push_back(key.name);
    }
  }
  return names;
}

// "a, b and c".
std::string list_text(const Names& names) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    text += i == 0 ? "" : i + 1 == names.size() ? " and " : ", ";
    text += names[i];
  }
  return text;
}

// For a name that `scheme` stands before.
std::string suggestion(std::string_view wrong, const Names& names, std::string_view scheme = {}) {
  const std::optional<std::string_view> nearest = nearest_name(wrong, names);
  return nearest ? " (did you mean `" + std::string(scheme) + std::string(*nearest) + "`?)"
                 : std::string();
}

std::string_view usual_name(std::uint32_t kind) {
  for (const NamedPort& port : named_ports) {
    if (port.kind == kind) {
      return port.name;
    }
  }
  return {};
}

}  // namespace

std::string keys_text(std::uint32_t kind) {
  return std::string(usual_name(kind)) + " takes " + list_text(keys_of(kind));
}

std::string ports_text(std::uint32_t kinds) {
  Names names;
  if ((kinds & ports::every_unit) == ports::every_unit) {
    names.push_back("every ftdi:// and sim:// port");
    kinds &= ~ports::every_unit;
  }
  for (const NamedPort& port : named_ports) {
    if ((kinds & port.kind) != 0) {
      names.push_back(port.name);
    }
  }
  return list_text(names);
}

std::string all_ports_text() {
  Names names;
  for (const NamedPort& port : named_ports) {
    names.push_back(port.name);
  }
  return "there are " + list_text(names);
}

std::string key_suggestion(std::string_view wrong, std::uint32_t kind) {
  return suggestion(wrong, keys_of(kind));
}

// The scheme alone brings two names near to each other, so that it counts only
// where it is wrong, too.
std::string port_suggestion(std::string_view wrong) {
  const std::string_view scheme =
      wrong.starts_with(scenario_scheme) ? scenario_scheme : std::string_view();
  Names names;
  for (const NamedPort& port : named_ports) {
    if (port.name.starts_with(scheme)) {
      names.push_back(port.name.substr(scheme.size()));
    }
  }
  return suggestion(wrong.substr(scheme.size()), names, scheme);
}

}  // namespace zelk::simulator
