#include "smoke_test/options.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>

using zelk::timing::Format;
using zelk::timing::ReferenceClockSource;
using zelk::timing::ReferenceSignal;
using zelk::timing::Transport;

namespace {

bool parse_bool(const std::string& value) {
  const std::string text = lower_ascii(value);
  return text != "0" && text != "false" && text != "no" && text != "off";
}

// The word that is spelt like this, or null.
template <typename Value, std::size_t count>
const Word<Value>* find_word(const std::array<Word<Value>, count>& words,
                             const std::string& value) {
  const std::string text = lower_ascii(value);
  const auto is_spelt_so = [&text](const Word<Value>& word) {
    return !text.empty() && std::ranges::find(word.spellings, text) != word.spellings.end();
  };
  const auto found = std::ranges::find_if(words, is_spelt_so);
  return found != words.end() ? &*found : nullptr;
}

template <typename Value, std::size_t count>
Value value_in(const std::array<Word<Value>, count>& words, const std::string& value,
               std::type_identity_t<Value> otherwise) {
  const Word<Value>* word = find_word(words, value);
  return word != nullptr ? word->value : otherwise;
}

Transport parse_transport(const std::string& value) {
  const Transport transport = value_in(transport_words, value, Transport::usb);
  if (transport == Transport::usb_async) {
    throw std::runtime_error("usb_async streaming is no longer supported");
  }
  return transport;
}

Format parse_format(const std::string& value) {
  const Word<Format>* word = find_word(format_words, value);
  if (word == nullptr) {
    throw std::runtime_error(fill_in("format must be %, %, or %", chief_words(format_words)));
  }
  return word->value;
}

void apply_reference(Config& config, const std::string& value) {
  const auto source = value_in(ref_words, value, ReferenceClockSource::internal);
  config.set_reference = source.has_value();
  config.ref_source = source.value_or(config.ref_source);
}

// Nearest whole picosecond, halves away from zero. What does not fit into 64
// bits, and a value that is no number, becomes the most negative one, which
// leaves the dead time alone.
std::int64_t nanoseconds_to_ps(double nanoseconds) {
  constexpr double limit = 9223372036854775808.0;  // 2^63
  const double ps = nanoseconds * 1000.0;
  if (!(ps >= -limit && ps < limit)) {
    return std::numeric_limits<std::int64_t>::min();
  }
  return std::llround(ps);
}

constexpr std::array<std::string_view, 3> keys(std::string_view chief, std::string_view second = {},
                                               std::string_view third = {}) {
  return {chief, second, third};
}

constexpr Option option_table[] = {
    {keys("port", "control_port"), "ftdi://", "", "device to open; empty: the first one found",
     [](Config& c, const std::string& v) { c.port = v; }},
    {keys("transport"), "usb", "", "link to the device: %",
     [](Config& c, const std::string& v) { c.transport = parse_transport(v); },
     chief_words(transport_words)},
    {keys("format"), "packed_delta", "", "stream format: %, % or %",
     [](Config& c, const std::string& v) { c.format = parse_format(v); },
     chief_words(format_words)},
    {keys("mode"), "internal", "",
     "what drives the inputs: % (calibration source) or % (real signals)",
     [](Config& c, const std::string& v) {
       c.mode = value_in(mode_words, v, StreamMode::internal);
     },
     chief_words(mode_words)},
    {keys("capture_s"), "0.5", "s", "length of the capture",
     [](Config& c, const std::string& v) { c.capture_s = std::stod(v); }},
    {keys("cal_freq_hz"), "10000", "Hz", "frequency of the calibration source, internal mode only",
     [](Config& c, const std::string& v) { c.cal_freq_hz = std::stod(v); }},
    {keys("threshold_v"), "nan", "V", "input threshold, 0 to 4; nan: left as it is",
     [](Config& c, const std::string& v) { c.threshold_v = std::stod(v); }},
    {keys("channel_mask"), "0x0C", "", "channels in the stream, bit n for channel n, 0 to 0x0F",
     [](Config& c, const std::string& v) {
       c.channel_mask = static_cast<std::uint8_t>(parse_u32(v) & 0x0F);
     }},
    {keys("channel_a"), "0", "", "first channel of the pair to compare, 0 to 3",
     [](Config& c, const std::string& v) { c.channel_a = std::stoi(v); }},
    {keys("channel_b"), "1", "", "second channel of the pair, 0 to 3, not channel_a",
     [](Config& c, const std::string& v) { c.channel_b = std::stoi(v); }},
    {keys("coincidence_window_ps"), "1000", "ps",
     "largest time difference of a coincidence, and range of the histogram",
     [](Config& c, const std::string& v) { c.coincidence_window_ps = std::stoll(v); }},
    {keys("packed_bits"), "16", "bits",
     "delta width of packed_delta records, 1 to 31; the device may choose another",
     [](Config& c, const std::string& v) {
       c.packed_bits = static_cast<std::uint8_t>(std::stoul(v));
     }},
    {keys("packed_quantum_ps"), "8", "ps",
     "tick of packed_delta deltas; the device may choose another",
     [](Config& c, const std::string& v) {
       c.packed_quantum_ps = static_cast<std::uint16_t>(std::stoul(v));
     }},
    {keys("bin_s"), "0.1", "s", "width of one report bin, at least 0.001",
     [](Config& c, const std::string& v) { c.bin_s = std::stod(v); }},
    {keys("queue_limit"), "131072", "tags", "most decoded tags kept waiting, at least 1024",
     [](Config& c, const std::string& v) { c.queue_limit = std::stoull(v); }},
    {keys("dead_time_ps"), "-1", "ps", "input dead time; negative: left as it is",
     [](Config& c, const std::string& v) { c.dead_time_ps = std::stoll(v); }},
    {keys("dead_time_ns"), "-1", "ns", "the same in nanoseconds",
     [](Config& c, const std::string& v) { c.dead_time_ps = nanoseconds_to_ps(std::stod(v)); }},
    {keys("load_calibration"), "1", "", "whether the device loads its calibration: 1 or 0",
     [](Config& c, const std::string& v) { c.load_calibration = parse_bool(v); }},
    {keys("tdl_mask"), "0x07", "",
     "active delay lines of every channel, bit n for line n, 0 to 0x1F",
     [](Config& c, const std::string& v) {
       c.tdl_mask = static_cast<std::uint8_t>(parse_u32(v) & 0x1F);
     }},
    {keys("ref", "reference", "reference_clock"), "internal", "",
     "reference clock: %, %, %, or % to leave it as it is", apply_reference,
     chief_words(ref_words)},
    {keys("ref_signal", "reference_signal"), "10mhz", "", "kind of external reference: % or %",
     [](Config& c, const std::string& v) {
       c.ref_signal = value_in(ref_signal_words, v, ReferenceSignal::ten_mhz);
     },
     chief_words(ref_signal_words)},
    {keys("byte_probe", "bytes"), "0", "",
     "print byte-level diagnostics of the stream instead of the report: 1 or 0",
     [](Config& c, const std::string& v) { c.byte_probe = parse_bool(v); }},
};

}  // namespace

std::span<const Option> options() {
  return option_table;
}

const Option* find_option(std::string_view key) {
  const auto has_key = [key](const Option& option) {
    return !key.empty() && std::ranges::find(option.keys, key) != option.keys.end();
  };
  const auto found = std::ranges::find_if(option_table, has_key);
  return found != std::end(option_table) ? found : nullptr;
}

void apply_arg(Config& config, std::string key, std::string value) {
  if (const Option* option = find_option(lower_ascii(std::move(key)))) {
    option->apply(config, value);
  }
}

void apply_argument(Config& config, std::string_view argument) {
  if (argument.starts_with("--")) {
    argument.remove_prefix(2);
  }
  if (const auto equals = argument.find('='); equals != std::string_view::npos) {
    apply_arg(config, std::string(argument.substr(0, equals)),
              std::string(argument.substr(equals + 1)));
  }
}

std::string lower_ascii(std::string text) {
  for (char& c : text) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return text;
}

std::uint32_t parse_u32(std::string text) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  return static_cast<std::uint32_t>(std::stoul(text, nullptr, hexadecimal ? 16 : 10));
}
