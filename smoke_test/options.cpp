#include "smoke_test/options.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <type_traits>

#include "smoke_test/words.hpp"

using zelk::timing::Format;
using zelk::timing::ReferenceClockSource;
using zelk::timing::ReferenceSignal;
using zelk::timing::Transport;

namespace {

bool parse_bool(const std::string& value) {
  const std::string text = lower_ascii(value);
  return text != "0" && text != "false" && text != "no" && text != "off";
}

// What the text means in the table; nothing when it is none of the words.
template <typename Value, std::size_t count>
std::optional<Value> look_up(const std::array<Word<Value>, count>& words,
                             const std::string& value) {
  const std::string text = lower_ascii(value);
  for (const Word<Value>& word : words) {
    if (!text.empty() && std::ranges::find(word.spellings, text) != word.spellings.end()) {
      return std::make_optional(word.value);
    }
  }
  return std::nullopt;
}

template <const auto& words, auto otherwise>
constexpr auto word_or =
    [](const std::string& value) { return look_up(words, value).value_or(otherwise); };

Transport parse_transport(const std::string& value) {
  const Transport transport = word_or<transport_words, Transport::usb>(value);
  if (transport == Transport::usb_async) {
    throw std::runtime_error("usb_async streaming is no longer supported");
  }
  return transport;
}

Format parse_format(const std::string& value) {
  if (const std::optional<Format> format = look_up(format_words, value)) {
    return *format;
  }
  throw std::runtime_error(fill_in("format must be %, %, or %", chief_word<format_words>));
}

void apply_ref(Config& config, const std::string& value) {
  const auto source = word_or<ref_words, ReferenceClockSource::internal>(value);
  config.set_reference = source.has_value();
  config.ref_source = source.value_or(config.ref_source);
}

// Nearest whole picosecond, halves away from zero. What does not fit into 64
// bits, and a value that is no number, becomes the most negative one, which
// leaves the dead time alone.
std::int64_t parse_nanoseconds(const std::string& value) {
  constexpr double limit = 9223372036854775808.0;  // 2^63
  const double ps = std::stod(value) * 1000.0;
  if (!(ps >= -limit && ps < limit)) {
    return std::numeric_limits<std::int64_t>::min();
  }
  return std::llround(ps);
}

// Numbers are what the standard conversions make of them, errors included.
constexpr auto as_double = [](const std::string& value) { return std::stod(value); };
constexpr auto as_int = [](const std::string& value) { return std::stoi(value); };
constexpr auto as_int64 = [](const std::string& value) { return std::stoll(value); };
constexpr auto as_unsigned = [](const std::string& value) { return std::stoul(value); };
constexpr auto as_uint64 = [](const std::string& value) { return std::stoull(value); };
template <std::uint32_t mask>
constexpr auto masked = [](const std::string& value) { return parse_u32(value) & mask; };

// Sets a field to the value as it is read, cut to the field's width.
template <auto field, auto read>
void set(Config& config, const std::string& value) {
  auto& target = config.*field;
  target = static_cast<std::remove_reference_t<decltype(target)>>(read(value));
}

constexpr std::array<std::string_view, 3> keys(std::string_view chief, std::string_view second = {},
                                               std::string_view third = {}) {
  return {chief, second, third};
}

constexpr Option option_table[] = {
    {keys("port", "control_port"), "ftdi://", "", "device to open; empty: the first one found",
     [](Config& c, const std::string& v) { c.port = v; }},
    {keys("transport"), "usb", "", "link to the device: %",
     set<&Config::transport, parse_transport>, chief_word<transport_words>},
    {keys("format"), "packed_delta", "", "stream format: %, % or %",
     set<&Config::format, parse_format>, chief_word<format_words>},
    {keys("mode"), "internal", "",
     "what drives the inputs: % (calibration source) or % (real signals)",
     set<&Config::mode, word_or<mode_words, StreamMode::internal>>, chief_word<mode_words>},
    {keys("capture_s"), "0.5", "s", "length of the capture", set<&Config::capture_s, as_double>},
    {keys("cal_freq_hz"), "10000", "Hz", "frequency of the calibration source, internal mode only",
     set<&Config::cal_freq_hz, as_double>},
    {keys("threshold_v"), "nan", "V", "input threshold, 0 to 4; nan: left as it is",
     set<&Config::threshold_v, as_double>},
    {keys("channel_mask"), "0x0C", "", "channels in the stream, bit n for channel n, 0 to 0x0F",
     set<&Config::channel_mask, masked<zelk::timing::all_channels_mask>>},
    {keys("channel_a"), "0", "", "first channel of the pair to compare, 0 to 3",
     set<&Config::channel_a, as_int>},
    {keys("channel_b"), "1", "", "second channel of the pair, 0 to 3, not channel_a",
     set<&Config::channel_b, as_int>},
    {keys("coincidence_window_ps"), "1000", "ps",
     "largest time difference of a coincidence, and range of the histogram",
     set<&Config::coincidence_window_ps, as_int64>},
    {keys("packed_bits"), "16", "bits",
     "delta width of packed_delta records, 1 to 31; the device may choose another",
     set<&Config::packed_bits, as_unsigned>},
    {keys("packed_quantum_ps"), "8", "ps",
     "tick of packed_delta deltas; the device may choose another",
     set<&Config::packed_quantum_ps, as_unsigned>},
    {keys("bin_s"), "0.1", "s", "width of one report bin, at least 0.001",
     set<&Config::bin_s, as_double>},
    {keys("queue_limit"), "131072", "tags", "most decoded tags kept waiting, at least 1024",
     set<&Config::queue_limit, as_uint64>},
    {keys("dead_time_ps"), "-1", "ps", "input dead time; negative: left as it is",
     set<&Config::dead_time_ps, as_int64>},
    {keys("dead_time_ns"), "-1", "ns", "the same in nanoseconds",
     set<&Config::dead_time_ps, parse_nanoseconds>},
    {keys("load_calibration"), "1", "", "whether the device loads its calibration: 1 or 0",
     set<&Config::load_calibration, parse_bool>},
    {keys("tdl_mask"), "0x07", "",
     "active delay lines of every channel, bit n for line n, 0 to 0x1F",
     set<&Config::tdl_mask, masked<0x1F>>},
    {keys("ref", "reference", "reference_clock"), "internal", "",
     "reference clock: %, %, %, or % to leave it as it is", apply_ref, chief_word<ref_words>},
    {keys("ref_signal", "reference_signal"), "10mhz", "", "kind of external reference: % or %",
     set<&Config::ref_signal, word_or<ref_signal_words, ReferenceSignal::ten_mhz>>,
     chief_word<ref_signal_words>},
    {keys("byte_probe", "bytes"), "0", "",
     "print byte-level diagnostics of the stream instead of the report: 1 or 0",
     set<&Config::byte_probe, parse_bool>},
    {keys("serial"), "", "", "open the attached unit with this serial number, in place of port",
     [](Config& c, const std::string& v) { c.serial = v; }},
    {keys("list"), "0", "", "name the attached units instead of testing one: 1 or 0",
     set<&Config::list, parse_bool>},
    {keys("stop_tags"), "0", "tags", "end the capture after so many counted tags; 0: only by time",
     set<&Config::stop_tags, as_uint64>},
    {keys("require"), "", "",
     "conditions on the report, such as coincidences>=4000,reader_dropped=0",
     [](Config& c, const std::string& v) { c.required.push_back(v); }},
    {keys("limits"), "", "", "file with one such condition a line",
     [](Config& c, const std::string& v) { c.limits_files.push_back(v); }},
    {keys("json"), "", "", "file for the whole run as one JSON document",
     [](Config& c, const std::string& v) { c.json_file = v; }},
    {keys("note"), "", "", "text to keep in that document",
     [](Config& c, const std::string& v) { c.note = v; }},
    {keys("strict"), "0", "", "refuse arguments that would be read as something else: 1 or 0",
     set<&Config::strict, parse_bool>},
};

}  // namespace

std::span<const Option> options() {
  return option_table;
}

std::string fill_in(std::string_view text, std::string_view (*word)(std::size_t i)) {
  std::string filled;
  std::size_t next = 0;
  for (const char c : text) {
    filled += c == '%' ? word(next++) : std::string_view(&c, 1);
  }
  return filled;
}

void apply_arg(Config& config, std::string key, std::string value) {
  key = lower_ascii(key);
  for (const Option& option : option_table) {
    if (!key.empty() && std::ranges::find(option.keys, key) != option.keys.end()) {
      option.apply(config, value);
    }
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
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

std::uint32_t parse_u32(std::string text) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  return static_cast<std::uint32_t>(std::stoul(text, nullptr, hexadecimal ? 16 : 10));
}
