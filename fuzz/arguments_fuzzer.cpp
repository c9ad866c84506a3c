// Command-line arguments against a literal reading of their rules: the settings
// that come of them, and the exception that ends them.
//
// The input: arguments, one per line.
#include <array>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/input.hpp"
#include "smoke_test/argument_check.hpp"
#include "smoke_test/config.hpp"
#include "smoke_test/options.hpp"

namespace zelk::fuzz {
namespace {

__extension__ typedef __int128 Wide;

// How a run of arguments ended: not at all, or with an exception.
struct End {
  enum Kind { none, runtime_error, invalid_argument, out_of_range, other };
  Kind kind = none;
  std::string text;
};

// ---- The rules, literally ----------------------------------------------------

// Every setting as a plain number or text.
struct Settings {
  std::string port = "ftdi://";
  bool port_given = false;
  std::string serial;
  bool list = false;
  int transport = 1;
  int format = 2;
  int mode = 0;
  double capture_s = 0.5;
  double cal_freq_hz = 10000.0;
  double threshold_v = std::numeric_limits<double>::quiet_NaN();
  unsigned channel_mask = 0x0C;
  std::int64_t channel_a = 0;
  std::int64_t channel_b = 1;
  std::int64_t coincidence_window_ps = 1000;
  unsigned packed_bits = 16;
  unsigned packed_quantum_ps = 8;
  double bin_s = 0.1;
  std::uint64_t queue_limit = 131072;
  // None: out of 64 bits or no number, and so some negative one.
  std::optional<std::int64_t> dead_time_ps = -1;
  bool load_calibration = true;
  unsigned tdl_mask = 0x07;
  bool set_reference = true;
  int ref_source = 1;
  int ref_signal = 0;
  bool byte_probe = false;
  bool strict = false;
  std::uint64_t stop_tags = 0;
  std::vector<std::string> required;
  std::vector<std::string> limits_files;
  std::string json_file;
  std::string note;
  std::string tags_file;
};

std::string lowered(std::string text) {
  for (char& c : text) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return text;
}

int digit_of(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  const std::string letter = lowered(std::string(1, c));
  return letter[0] >= 'a' && letter[0] <= 'z' ? letter[0] - 'a' + 10 : 99;
}

struct Integer {
  bool negative = false;
  Wide magnitude = 0;  // at most 2^64 and some, however long the text is
};

// White space, a sign, digits of the base, anything. None without digits.
std::optional<Integer> leading_integer(const std::string& text, int base) {
  std::size_t i = text.find_first_not_of(" \t\n\v\f\r");
  Integer integer;
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) {
    integer.negative = text[i] == '-';
    ++i;
  }
  if (base == 16 && i < text.size() && text[i] == '0' && i + 2 < text.size() &&
      (text[i + 1] == 'x' || text[i + 1] == 'X') && digit_of(text[i + 2]) < 16) {
    i += 2;
  }
  bool any = false;
  for (; i < text.size() && digit_of(text[i]) < base; ++i) {
    any = true;
    if (integer.magnitude >> 64 == 0) {
      integer.magnitude = integer.magnitude * base + digit_of(text[i]);
    }
  }
  return any ? std::optional(integer) : std::nullopt;
}

// Throws what the standard conversion of that name throws.
std::int64_t signed_number(const std::string& text, const char* name, int bits) {
  const std::optional<Integer> integer = leading_integer(text, 10);
  if (!integer) {
    throw std::invalid_argument(name);
  }
  const Wide value = integer->negative ? -integer->magnitude : integer->magnitude;
  const Wide limit = Wide{1} << (bits - 1);
  if (value < -limit || value >= limit) {
    throw std::out_of_range(name);
  }
  return static_cast<std::int64_t>(value);
}

std::uint64_t unsigned_number(const std::string& text, const char* name, int base = 10) {
  const std::optional<Integer> integer = leading_integer(text, base);
  if (!integer) {
    throw std::invalid_argument(name);
  }
  if (integer->magnitude >> 64 != 0) {
    throw std::out_of_range(name);
  }
  const auto magnitude = static_cast<std::uint64_t>(integer->magnitude);
  return integer->negative ? 0 - magnitude : magnitude;
}

std::uint64_t mask_number(const std::string& text) {
  const std::string start = text.substr(0, 2);
  return unsigned_number(text, "stoul", start == "0x" || start == "0X" ? 16 : 10);
}

double floating_number(const std::string& text) {
  errno = 0;
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (end == text.c_str()) {
    throw std::invalid_argument("stod");
  }
  if (errno == ERANGE) {
    throw std::out_of_range("stod");
  }
  return value;
}

// Halves away from zero; none when the result does not fit.
std::optional<std::int64_t> rounded(double value) {
  if (!(std::fabs(value) < 9223372036854775808.0)) {
    return std::nullopt;
  }
  const double whole = std::trunc(value);
  const bool up = std::fabs(value - whole) >= 0.5;
  return static_cast<std::int64_t>(whole) + (up ? (value < 0 ? -1 : 1) : 0);
}

bool truth(const std::string& text) {
  const std::string word = lowered(text);
  return word != "0" && word != "false" && word != "no" && word != "off";
}

void apply_reference(Settings& s, const std::string& word) {
  if (word == "none" || word == "off" || word == "unchanged") {
    s.set_reference = false;
    return;
  }
  s.set_reference = true;
  s.ref_source = word == "external" || word == "ext" ? 2 : word == "auto" ? 0 : 1;
}

int format_of(const std::string& word) {
  if (word == "packed" || word == "packed_delta" || word == "packed-delta") {
    return 2;
  }
  if (word == "delta32" || word == "delta") {
    return 1;
  }
  if (word == "raw64" || word == "raw") {
    return 0;
  }
  throw std::runtime_error("format must be raw64, delta32, or packed_delta");
}

int transport_of(const std::string& word) {
  if (word == "usb_async" || word == "async") {
    throw std::runtime_error("usb_async streaming is no longer supported");
  }
  return word == "uart" ? 0 : 1;
}

// What the run is asked for beyond its report. Whether the key is one.
bool apply_request(Settings& s, const std::string& key, const std::string& value) {
  if (key == "strict") {
    s.strict = truth(value);
  } else if (key == "stop_tags") {
    s.stop_tags = unsigned_number(value, "stoull");
  } else if (key == "require") {
    s.required.push_back(value);
  } else if (key == "limits") {
    s.limits_files.push_back(value);
  } else if (key == "json") {
    s.json_file = value;
  } else if (key == "note") {
    s.note = value;
  } else if (key == "save_tags") {
    const std::string ending = value.size() < 4 ? "" : value.substr(value.size() - 4);
    if (ending != ".npy" && ending != ".csv") {
      throw std::runtime_error("save_tags needs the name of a file that ends in .npy or .csv");
    }
    s.tags_file = value;
  } else {
    return false;
  }
  return true;
}

// Whether the key is one.
bool apply(Settings& s, const std::string& key, const std::string& value) {
  const std::string word = lowered(value);
  if (key == "port" || key == "control_port") {
    s.port = value;
    s.port_given = true;
  } else if (key == "serial") {
    if (value.empty()) {
      throw std::runtime_error(
          "serial must not be empty: list=1 shows those of the attached units");
    }
    s.serial = value;
  } else if (key == "list") {
    s.list = truth(value);
  } else if (key == "transport") {
    s.transport = transport_of(word);
  } else if (key == "mode") {
    s.mode = word == "external" || word == "ext" ? 1 : 0;
  } else if (key == "capture_s") {
    s.capture_s = floating_number(value);
  } else if (key == "format") {
    s.format = format_of(word);
  } else if (key == "cal_freq_hz") {
    s.cal_freq_hz = floating_number(value);
  } else if (key == "threshold_v") {
    s.threshold_v = floating_number(value);
  } else if (key == "channel_mask") {
    s.channel_mask = static_cast<unsigned>(mask_number(value) & 0x0F);
  } else if (key == "channel_a") {
    s.channel_a = signed_number(value, "stoi", 32);
  } else if (key == "channel_b") {
    s.channel_b = signed_number(value, "stoi", 32);
  } else if (key == "coincidence_window_ps") {
    s.coincidence_window_ps = signed_number(value, "stoll", 64);
  } else if (key == "packed_bits") {
    s.packed_bits = static_cast<unsigned>(unsigned_number(value, "stoul") % 256);
  } else if (key == "packed_quantum_ps") {
    s.packed_quantum_ps = static_cast<unsigned>(unsigned_number(value, "stoul") % 65536);
  } else if (key == "bin_s") {
    s.bin_s = floating_number(value);
  } else if (key == "queue_limit") {
    s.queue_limit = unsigned_number(value, "stoull");
  } else if (key == "dead_time_ps") {
    s.dead_time_ps = signed_number(value, "stoll", 64);
  } else if (key == "dead_time_ns") {
    s.dead_time_ps = rounded(floating_number(value) * 1000.0);
  } else if (key == "load_calibration") {
    s.load_calibration = truth(value);
  } else if (key == "tdl_mask") {
    s.tdl_mask = static_cast<unsigned>(mask_number(value) & 0x1F);
  } else if (key == "ref" || key == "reference" || key == "reference_clock") {
    apply_reference(s, word);
  } else if (key == "ref_signal" || key == "reference_signal") {
    s.ref_signal = word == "1pps" || word == "pps" ? 1 : 0;
  } else if (key == "byte_probe" || key == "bytes") {
    s.byte_probe = truth(value);
  } else {
    return apply_request(s, key, value);
  }
  return true;
}

void apply_all(Settings& s, const std::vector<std::string>& arguments) {
  for (std::string argument : arguments) {
    if (argument.substr(0, 2) == "--") {
      argument.erase(0, 2);
    }
    if (const std::size_t equals = argument.find('='); equals != std::string::npos) {
      apply(s, lowered(argument.substr(0, equals)), argument.substr(equals + 1));
    }
  }
  const auto is_channel = [](std::int64_t channel) { return channel >= 0 && channel <= 3; };
  if (!is_channel(s.channel_a) || !is_channel(s.channel_b) || s.channel_a == s.channel_b) {
    throw std::runtime_error("channel_a/channel_b must be distinct and in 0..3");
  }
  if (s.transport == 0) {
    throw std::runtime_error("this GUI-live smoke test is intended for USB FIFO modes");
  }
  if (!s.required.empty() || !s.limits_files.empty()) {
    if (s.list) {
      throw std::runtime_error("require and limits judge the report, which list=1 replaces");
    }
    if (s.byte_probe) {
      throw std::runtime_error("require and limits judge the report, which byte_probe=1 replaces");
    }
  }
  if (!s.tags_file.empty() && (s.byte_probe || s.list)) {
    throw std::runtime_error(
        s.list ? "save_tags keeps the tags of the capture, which list=1 replaces"
               : "save_tags keeps the tags of the capture, which byte_probe=1 replaces");
  }
  if (s.port_given && !s.serial.empty()) {
    throw std::runtime_error("port and serial both choose the unit: give one of them");
  }
}

// ---- The comparison ----------------------------------------------------------

// A key of the table that these rules do not know would be a finding only when an
// input happens to name it. It is one at the start.
bool every_key_is_known() {
  for (const Option& option : options()) {
    for (const std::string_view key : option.keys) {
      bool known = key.empty();
      try {
        Settings unused;
        known = known || apply(unused, std::string(key), "raw64");
      } catch (const std::exception&) {
        known = true;
      }
      expect(known, "the key " + std::string(key) + " is known to the rules");
    }
  }
  return true;
}

template <typename Action>
End end_of(Action action) {
  try {
    action();
    return {};
  } catch (const std::invalid_argument& error) {
    return {End::invalid_argument, error.what()};
  } catch (const std::out_of_range& error) {
    return {End::out_of_range, error.what()};
  } catch (const std::runtime_error& error) {
    return {End::runtime_error, error.what()};
  } catch (const std::exception& error) {
    return {End::other, error.what()};
  }
}

// Bit by bit, but for a number that is none.
void expect_same_double(std::string_view what, double expected, double actual) {
  const bool both_none = std::isnan(expected) && std::isnan(actual);
  if (!both_none && (expected != actual || std::signbit(expected) != std::signbit(actual))) {
    expect_equal(what, expected, actual);
    report_finding(std::string(what) + ": the sign of 0");
  }
}

void expect_same(const Settings& s, const Config& c) {
  expect_equal("port", s.port, c.port);
  expect_equal("port given", s.port_given, c.port_given);
  expect_equal("serial", s.serial, c.serial);
  expect_equal("list", s.list, c.list);
  expect_equal("transport", s.transport, static_cast<int>(c.transport));
  expect_equal("format", s.format, static_cast<int>(c.format));
  expect_equal("mode", s.mode, static_cast<int>(c.mode));
  expect_same_double("capture_s", s.capture_s, c.capture_s);
  expect_same_double("cal_freq_hz", s.cal_freq_hz, c.cal_freq_hz);
  expect_same_double("threshold_v", s.threshold_v, c.threshold_v);
  expect_equal("channel_mask", s.channel_mask, unsigned{c.channel_mask});
  expect_equal("channel_a", s.channel_a, std::int64_t{c.channel_a});
  expect_equal("channel_b", s.channel_b, std::int64_t{c.channel_b});
  expect_equal("coincidence_window_ps", s.coincidence_window_ps, c.coincidence_window_ps);
  expect_equal("packed_bits", s.packed_bits, unsigned{c.packed_bits});
  expect_equal("packed_quantum_ps", s.packed_quantum_ps, unsigned{c.packed_quantum_ps});
  expect_same_double("bin_s", s.bin_s, c.bin_s);
  expect_equal("queue_limit", s.queue_limit, c.queue_limit);
  if (s.dead_time_ps) {
    expect_equal("dead_time_ps", *s.dead_time_ps, c.dead_time_ps);
  } else {
    expect(c.dead_time_ps < 0, "a dead time that does not fit leaves the device's alone");
  }
  expect_equal("load_calibration", s.load_calibration, c.load_calibration);
  expect_equal("tdl_mask", s.tdl_mask, unsigned{c.tdl_mask});
  expect_equal("set_reference", s.set_reference, c.set_reference);
  expect_equal("ref_source", s.ref_source, static_cast<int>(c.ref_source));
  expect_equal("ref_signal", s.ref_signal, static_cast<int>(c.ref_signal));
  expect_equal("byte_probe", s.byte_probe, c.byte_probe);
  expect_equal("strict", s.strict, c.strict);
  expect_equal("stop_tags", s.stop_tags, c.stop_tags);
  expect(s.required == c.required, "each condition is kept, in order");
  expect(s.limits_files == c.limits_files, "each file of conditions is kept, in order");
  expect_equal("json_file", s.json_file, c.json_file);
  expect_equal("note", s.note, c.note);
  expect_equal("tags_file", s.tags_file, c.tags_file);
}

// Whatever ends in the name of a conversion has a remark that says more, and a
// word that is rejected has none.
void expect_remark(const std::string& argument) {
  const bool has_remark = check_argument(argument).has_value();
  Config config;
  const End end = end_of([&] { apply_argument(config, argument); });
  if (end.kind == End::invalid_argument || end.kind == End::out_of_range) {
    expect(has_remark, "a number that cannot be read has a remark");
  } else if (end.kind == End::runtime_error) {
    expect(!has_remark, "a word that is rejected has no remark");
  }
}

void run(Input input) {
  [[maybe_unused]] static const bool known = every_key_is_known();
  std::vector<std::string> arguments;
  while (!input.empty()) {
    // As the system hands arguments over, none holds a zero byte.
    const std::string line = input.text_until('\n');
    arguments.emplace_back(line.c_str());
  }
  Settings settings;
  const End expected = end_of([&] { apply_all(settings, arguments); });
  Config config;
  const End actual = end_of([&] {
    for (const std::string& argument : arguments) {
      apply_argument(config, argument);
    }
    validate(config);
  });
  expect_equal("kind of exception", int{expected.kind}, int{actual.kind});
  expect_equal("text of the exception", expected.text, actual.text);
  expect_same(settings, config);
  for (const std::string& argument : arguments) {
    expect_remark(argument);
  }
}

}  // namespace
}  // namespace zelk::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zelk::fuzz::run({data, size});
  return 0;
}
