#include "packaging/manual/completion.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "packaging/manual/text_file.hpp"
#include "simulator/ports/named_ports.hpp"
#include "simulator/ports/port_keys.hpp"
#include "smoke_test/options.hpp"

namespace {

using zelk::simulator::named_ports;
using zelk::simulator::NamedPort;
using zelk::simulator::port_keys;
using zelk::simulator::PortKey;

using Texts = std::vector<std::string>;

constexpr std::string_view file_mark = "FILE";  // at the end of a port's name

std::string joined(const Texts& texts, std::string_view separator) {
  std::string all;
  for (const std::string& text : texts) {
    all.append(all.empty() ? "" : separator).append(text);
  }
  return all;
}

Texts keys_of(const Option& option) {
  Texts keys;
  for (const std::string_view key : option.keys) {
    if (!key.empty()) {
      keys.emplace_back(key);
    }
  }
  return keys;
}

// One key per line: the chief ones, or all others.
std::string key_lines(bool chief) {
  Texts lines;
  for (const Option& option : options()) {
    const Texts keys = keys_of(option);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      if ((i == 0) == chief) {
        lines.push_back("    " + keys[i]);
      }
    }
  }
  return joined(lines, "\n");
}

std::string word_rows() {
  Texts rows;
  for (const Option& option : options()) {
    if (option.value.word == nullptr) {
      continue;
    }
    std::string row =
        "    " + joined(keys_of(option), " | ") + ") _zelk_smoke_test_offer \"$start\"";
    for (std::size_t i = 0; !option.value.word(i).empty(); ++i) {
      row.append(" ").append(option.value.word(i));
    }
    rows.push_back(row + " ;;");
  }
  return joined(rows, "\n");
}

std::string file_keys() {
  Texts keys;
  for (const Option& option : options()) {
    if (option.value.is_file_name) {
      keys.push_back(joined(keys_of(option), " | "));
    }
  }
  return joined(keys, " | ");
}

// The name without the file that belongs to it.
std::string scheme_of(const NamedPort& port) {
  const std::string_view name = port.name;
  return std::string(name.ends_with(file_mark) ? name.substr(0, name.size() - file_mark.size())
                                               : name);
}

// The first port of each kind: the others are the same under another name.
std::vector<NamedPort> kinds_of_ports() {
  std::vector<NamedPort> ports;
  std::uint32_t seen = 0;
  for (const NamedPort& port : named_ports) {
    if ((seen & port.kind) == 0) {
      seen |= port.kind;
      ports.push_back(port);
    }
  }
  return ports;
}

std::string ports() {
  Texts names;
  for (const NamedPort& port : kinds_of_ports()) {
    names.push_back(scheme_of(port));
  }
  return joined(names, " ");
}

std::string file_ports() {
  Texts patterns;
  for (const NamedPort& port : kinds_of_ports()) {
    if (port.name.ends_with(file_mark)) {
      patterns.push_back(scheme_of(port) + "*");
    }
  }
  return joined(patterns, " | ");
}

std::string port_key_rows() {
  Texts rows;
  for (const NamedPort& port : kinds_of_ports()) {
    std::string row = "    " + scheme_of(port) + "*) keys=(";
    for (const PortKey& key : port_keys) {
      if ((key.ports & port.kind) != 0) {
        row.append(row.ends_with('(') ? "" : " ").append(key.name);
      }
    }
    rows.push_back(row + ") ;;");
  }
  return joined(rows, "\n");
}

std::string path_keys() {
  Texts patterns;
  for (const PortKey& key : port_keys) {
    if (key.unit == "a path") {
      patterns.push_back(std::string(key.name) + "=*");
    }
  }
  return joined(patterns, " | ");
}

}  // namespace

std::string completion(const std::string& text) {
  std::string filled = filled_in(text, "@KEYS@", key_lines(true));
  filled = filled_in(filled, "@OTHER_KEYS@", key_lines(false));
  filled = filled_in(filled, "@WORDS@", word_rows());
  filled = filled_in(filled, "@FILE_KEYS@", file_keys());
  filled = filled_in(filled, "@PORT@", joined(keys_of(*find_option("port")), " | "));
  filled = filled_in(filled, "@PORTS@", ports());
  filled = filled_in(filled, "@FILE_PORTS@", file_ports());
  filled = filled_in(filled, "@PORT_KEYS@", port_key_rows());
  return filled_in(filled, "@PATH_KEYS@", path_keys());
}
