#include "smoke_test/options.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

using zelk::timing::Format;
using zelk::timing::ReferenceClockSource;
using zelk::timing::ReferenceSignal;
using zelk::timing::Transport;

namespace {

bool parse_bool(const std::string& value) {
  const std::string text = lower_ascii(value);
  return text != "0" && text != "false" && text != "no" && text != "off";
}

Transport parse_transport(const std::string& value) {
  const std::string text = lower_ascii(value);
  if (text == "usb_async" || text == "async") {
    throw std::runtime_error("usb_async streaming is no longer supported");
  }
  return text == "uart" ? Transport::uart : Transport::usb;
}

StreamMode parse_mode(const std::string& value) {
  const std::string text = lower_ascii(value);
  return text == "external" || text == "ext" ? StreamMode::external : StreamMode::internal;
}

Format parse_format(const std::string& value) {
  const std::string text = lower_ascii(value);
  if (text == "packed" || text == "packed_delta" || text == "packed-delta") {
    return Format::packed_delta;
  }
  if (text == "delta32" || text == "delta") {
    return Format::delta32;
  }
  if (text == "raw64" || text == "raw") {
    return Format::raw64;
  }
  throw std::runtime_error("format must be raw64, delta32, or packed_delta");
}

void apply_reference(Config& config, const std::string& value) {
  const std::string text = lower_ascii(value);
  config.set_reference = text != "none" && text != "off" && text != "unchanged";
  if (!config.set_reference) {
    return;
  }
  if (text == "external" || text == "ext") {
    config.ref_source = ReferenceClockSource::external;
  } else if (text == "auto") {
    config.ref_source = ReferenceClockSource::automatic;
  } else {
    config.ref_source = ReferenceClockSource::internal;
  }
}

ReferenceSignal parse_reference_signal(const std::string& value) {
  const std::string text = lower_ascii(value);
  return text == "1pps" || text == "pps" ? ReferenceSignal::one_pps : ReferenceSignal::ten_mhz;
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

constexpr Option option_table[] = {
    {{"port", "control_port"},
     "ftdi://",
     "",
     "device to open; empty: the first one found",
     [](Config& c, const std::string& v) { c.port = v; }},
    {{"transport"},
     "usb",
     "",
     "link to the device: usb",
     [](Config& c, const std::string& v) { c.transport = parse_transport(v); }},
    {{"format"},
     "packed_delta",
     "",
     "stream format: raw64, delta32 or packed_delta",
     [](Config& c, const std::string& v) { c.format = parse_format(v); }},
    {{"mode"},
     "internal",
     "",
     "what drives the inputs: internal (calibration source) or external (real signals)",
     [](Config& c, const std::string& v) { c.mode = parse_mode(v); }},
    {{"capture_s"},
     "0.5",
     "s",
     "length of the capture",
     [](Config& c, const std::string& v) { c.capture_s = std::stod(v); }},
    {{"cal_freq_hz"},
     "10000",
     "Hz",
     "frequency of the calibration source, internal mode only",
     [](Config& c, const std::string& v) { c.cal_freq_hz = std::stod(v); }},
    {{"threshold_v"},
     "nan",
     "V",
     "input threshold, 0 to 4; nan: left as it is",
     [](Config& c, const std::string& v) { c.threshold_v = std::stod(v); }},
    {{"channel_mask"},
     "0x0C",
     "",
     "channels in the stream, bit n for channel n, 0 to 0x0F",
     [](Config& c, const std::string& v) {
       c.channel_mask = static_cast<std::uint8_t>(parse_u32(v) & 0x0F);
     }},
    {{"channel_a"},
     "0",
     "",
     "first channel of the pair to compare, 0 to 3",
     [](Config& c, const std::string& v) { c.channel_a = std::stoi(v); }},
    {{"channel_b"},
     "1",
     "",
     "second channel of the pair, 0 to 3, not channel_a",
     [](Config& c, const std::string& v) { c.channel_b = std::stoi(v); }},
    {{"coincidence_window_ps"},
     "1000",
     "ps",
     "largest time difference of a coincidence, and range of the histogram",
     [](Config& c, const std::string& v) { c.coincidence_window_ps = std::stoll(v); }},
    {{"packed_bits"},
     "16",
     "bits",
     "delta width of packed_delta records, 1 to 31; the device may choose another",
     [](Config& c, const std::string& v) {
       c.packed_bits = static_cast<std::uint8_t>(std::stoul(v));
     }},
    {{"packed_quantum_ps"},
     "8",
     "ps",
     "tick of packed_delta deltas; the device may choose another",
     [](Config& c, const std::string& v) {
       c.packed_quantum_ps = static_cast<std::uint16_t>(std::stoul(v));
     }},
    {{"bin_s"},
     "0.1",
     "s",
     "width of one report bin, at least 0.001",
     [](Config& c, const std::string& v) { c.bin_s = std::stod(v); }},
    {{"queue_limit"},
     "131072",
     "tags",
     "most decoded tags kept waiting, at least 1024",
     [](Config& c, const std::string& v) { c.queue_limit = std::stoull(v); }},
    {{"dead_time_ps"},
     "-1",
     "ps",
     "input dead time; negative: left as it is",
     [](Config& c, const std::string& v) { c.dead_time_ps = std::stoll(v); }},
    {{"dead_time_ns"},
     "-1",
     "ns",
     "the same in nanoseconds",
     [](Config& c, const std::string& v) { c.dead_time_ps = nanoseconds_to_ps(std::stod(v)); }},
    {{"load_calibration"},
     "1",
     "",
     "whether the device loads its calibration: 1 or 0",
     [](Config& c, const std::string& v) { c.load_calibration = parse_bool(v); }},
    {{"tdl_mask"},
     "0x07",
     "",
     "active delay lines of every channel, bit n for line n, 0 to 0x1F",
     [](Config& c, const std::string& v) {
       c.tdl_mask = static_cast<std::uint8_t>(parse_u32(v) & 0x1F);
     }},
    {{"ref", "reference", "reference_clock"},
     "internal",
     "",
     "reference clock: internal, external, auto, or none to leave it as it is",
     apply_reference},
    {{"ref_signal", "reference_signal"},
     "10mhz",
     "",
     "kind of external reference: 10mhz or 1pps",
     [](Config& c, const std::string& v) { c.ref_signal = parse_reference_signal(v); }},
    {{"byte_probe", "bytes"},
     "0",
     "",
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
