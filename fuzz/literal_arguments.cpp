#include "fuzz/literal_arguments.hpp"

#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>

namespace zelk::fuzz {
namespace {

__extension__ typedef __int128 Wide;

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

void apply_reference(LiteralSettings& s, const std::string& word) {
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
bool apply_request(LiteralSettings& s, const std::string& key, const std::string& value) {
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

}  // namespace

bool apply_literally(LiteralSettings& s, const std::string& key, const std::string& value) {
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

void apply_all_literally(LiteralSettings& s, const std::vector<std::string>& arguments) {
  for (std::string argument : arguments) {
    if (argument.substr(0, 2) == "--") {
      argument.erase(0, 2);
    }
    if (const std::size_t equals = argument.find('='); equals != std::string::npos) {
      apply_literally(s, lowered(argument.substr(0, equals)), argument.substr(equals + 1));
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

}  // namespace zelk::fuzz
