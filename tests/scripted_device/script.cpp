#include "tests/scripted_device/script.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace scripted_device {
namespace {

std::string to_hex(const std::uint8_t* bytes, std::size_t size) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 0xF];
  }
  return text;
}

Bytes from_hex(std::string_view text) {
  if (text.size() % 2 != 0) {
    throw std::runtime_error("odd number of hexadecimal digits");
  }
  Bytes bytes(text.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char* digits = text.data() + 2 * i;
    if (std::from_chars(digits, digits + 2, bytes[i], 16).ptr != digits + 2) {
      throw std::runtime_error("not hexadecimal: " + std::string(text));
    }
  }
  return bytes;
}

std::string identity_to_hex(const qx_identity& identity) {
  std::array<std::uint8_t, sizeof identity> bytes{};
  std::memcpy(bytes.data(), &identity, sizeof identity);
  return to_hex(bytes.data(), bytes.size());
}

qx_identity identity_from_hex(std::string_view text) {
  const Bytes bytes = from_hex(text);
  qx_identity identity{};
  if (bytes.size() != sizeof identity) {
    throw std::runtime_error("an identity has 96 bytes");
  }
  std::memcpy(&identity, bytes.data(), bytes.size());
  return identity;
}

std::string read_to_text(const Read& read) {
  return "status=" + std::to_string(read.status) + " delay_ms=" + std::to_string(read.delay_ms) +
         " bytes=" + to_hex(read.bytes.data(), read.bytes.size());
}

Bytes file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    throw std::runtime_error("cannot read " + path);
  }
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Read parse_read(std::istream& in) {
  Read read;
  std::string item;
  while (in >> item) {
    const std::size_t equals = item.find('=');
    const std::string key = item.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : item.substr(equals + 1);
    if (key == "status") {
      read.status = std::stoi(value);
    } else if (key == "delay_ms") {
      read.delay_ms = std::stoi(value);
    } else if (key == "bytes") {
      read.bytes = from_hex(value);
    } else if (key == "file") {
      read.bytes = file_bytes(value);
    } else {
      throw std::runtime_error("unknown part of a read: " + item);
    }
  }
  return read;
}

DiscoveredEntry parse_discovered(std::istream& in) {
  std::string port;
  std::string identity;
  in >> port >> identity;
  DiscoveredEntry entry;
  if (port != "null") {
    entry.port = port == "empty" ? "" : port;
  }
  if (identity != "null") {
    entry.identity = identity_from_hex(identity);
  }
  return entry;
}

template <typename T>
T parse_number(std::istream& in) {
  long long number = 0;
  if (!(in >> number)) {
    throw std::runtime_error("a number is missing");
  }
  return static_cast<T>(number);
}

std::string rest_of(std::istream& in) {
  std::string text;
  if (in.peek() == ' ') {
    in.get();
  }
  std::getline(in, text);
  std::ranges::replace(text, '|', '\n');
  return text;
}

template <typename T, std::size_t Size>
std::array<T, Size> parse_numbers(std::istream& in) {
  std::array<T, Size> numbers{};
  for (T& number : numbers) {
    number = parse_number<T>(in);
  }
  return numbers;
}

// A function's name and the numbers for its calls.
template <typename Number>
void parse_calls(std::map<std::string, std::vector<Number>>& calls, std::istream& in) {
  std::string function;
  in >> function;
  Number number = 0;
  while (in >> number) {
    calls[function].push_back(number);
  }
}

void parse_line(Script& script, const std::string& line) {
  std::istringstream in(line);
  std::string word;
  if (!(in >> word) || word.front() == '#') {
    return;
  }
  if (word == "status") {
    parse_calls(script.statuses, in);
  } else if (word == "delay") {
    parse_calls(script.delays_ms, in);
  } else if (word == "status_text") {
    const auto status = parse_number<qx_status>(in);
    script.status_texts[status] = rest_of(in);
  } else if (word == "last_error") {
    script.last_error = rest_of(in);
  } else if (word == "identity") {
    script.identity = identity_from_hex(rest_of(in));
  } else if (word == "discovered") {
    script.discovered.push_back(parse_discovered(in));
  } else if (word == "reference_clock") {
    script.reference_clock = parse_numbers<std::uint32_t, 9>(in);
  } else if (word == "accepted_packed") {
    const auto bits = parse_number<std::uint8_t>(in);
    script.accepted_packed = {bits, parse_number<std::uint16_t>(in)};
  } else if (word == "applied_dead_time_ps") {
    script.applied_dead_time_ps = parse_number<std::int64_t>(in);
  } else if (word == "divider") {
    script.divider = parse_number<std::uint32_t>(in);
  } else if (word == "read_back_masks") {
    script.read_back_masks = parse_numbers<std::uint8_t, 4>(in);
  } else if (word == "read") {
    script.reads.push_back(parse_read(in));
  } else if (word == "forever") {
    script.forever = parse_read(in);
  } else {
    throw std::runtime_error("unknown line in a device script: " + line);
  }
}

std::string in_one_line(std::string text) {
  std::ranges::replace(text, '\n', '|');
  return text;
}

template <typename Number>
void write_calls(std::ostream& out, const char* word,
                 const std::map<std::string, std::vector<Number>>& calls) {
  for (const auto& [function, numbers] : calls) {
    out << word << function;
    for (const Number number : numbers) {
      out << ' ' << number;
    }
    out << '\n';
  }
}

template <std::size_t Width>
void fill(char (&field)[Width], std::string_view text) {
  std::copy_n(text.begin(), std::min(text.size(), Width), std::begin(field));
}

std::vector<std::string> without(const std::vector<std::string>& log, std::string_view prefix,
                                 std::string_view part) {
  std::vector<std::string> kept;
  std::copy_if(log.begin(), log.end(), std::back_inserter(kept), [&](const std::string& line) {
    return !line.starts_with(prefix) || line.find(part) == std::string::npos;
  });
  return kept;
}

}  // namespace

qx_identity make_identity(std::string_view text_a, std::string_view text_b, std::string_view serial,
                          std::string_view device_text) {
  qx_identity identity{};
  fill(identity.text_a, text_a);
  fill(identity.text_b, text_b);
  fill(identity.serial, serial);
  fill(identity.device_text, device_text);
  return identity;
}

std::string to_text(const Script& script) {
  std::ostringstream out;
  write_calls(out, "status ", script.statuses);
  write_calls(out, "delay ", script.delays_ms);
  for (const auto& [status, text] : script.status_texts) {
    out << "status_text " << status << ' ' << in_one_line(text) << '\n';
  }
  if (script.last_error) {
    out << "last_error " << in_one_line(*script.last_error) << '\n';
  }
  out << "identity " << identity_to_hex(script.identity) << '\n';
  for (const auto& [port, identity] : script.discovered) {
    out << "discovered "
        << (!port           ? "null"
            : port->empty() ? "empty"
                            : *port)
        << ' ' << (identity ? identity_to_hex(*identity) : "null") << '\n';
  }
  out << "reference_clock";
  for (const std::uint32_t word : script.reference_clock) {
    out << ' ' << word;
  }
  out << "\ndivider " << script.divider << '\n';
  if (script.accepted_packed) {
    out << "accepted_packed " << int{script.accepted_packed->first} << ' '
        << script.accepted_packed->second << '\n';
  }
  if (script.applied_dead_time_ps) {
    out << "applied_dead_time_ps " << *script.applied_dead_time_ps << '\n';
  }
  if (script.read_back_masks) {
    out << "read_back_masks";
    for (const std::uint8_t mask : *script.read_back_masks) {
      out << ' ' << int{mask};
    }
    out << '\n';
  }
  for (const Read& read : script.reads) {
    out << "read " << read_to_text(read) << '\n';
  }
  out << "forever " << read_to_text(script.forever) << '\n';
  return out.str();
}

Script parse_script(std::string_view text) {
  Script script;
  std::istringstream in{std::string(text)};
  std::string line;
  while (std::getline(in, line)) {
    parse_line(script, line);
  }
  return script;
}

std::vector<std::string> without_timeouts(const std::vector<std::string>& log) {
  return without(log, "qx_read_stream_bytes ", " -> -3 ");
}

std::vector<std::string> without_reads(const std::vector<std::string>& log) {
  return without(log, "qx_read_stream_bytes ", "");
}

}  // namespace scripted_device
