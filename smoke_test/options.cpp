#include "smoke_test/options.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include "smoke_test/capture_statistics.hpp"
#include "smoke_test/conversions.hpp"
#include "smoke_test/device_setup.hpp"
#include "smoke_test/tag_layout.hpp"
#include "timing/tag_stream_reader.hpp"

using zelk::timing::Format;
using zelk::timing::ReferenceClockSource;
using zelk::timing::ReferenceSignal;
using zelk::timing::Transport;

namespace {

using namespace option_values;

constexpr std::string_view left_alone = "unset";  // in the device, which keeps what it has

// Only the first of the words can stream.
Transport parse_transport(const std::string& value) {
  const Transport transport = word_or<transport_words, Transport::usb>(value);
  if (transport == Transport::usb_async) {
    throw std::runtime_error("usb_async streaming is no longer supported");
  }
  return transport;
}

constexpr OptionValue transport{.apply = set<&Config::transport, parse_transport>,
                                .read = read_word<transport_words>,
                                .as_read = word_as_read<&Config::transport, transport_words>,
                                .allowed = allowed_words<transport_words, 1>,
                                .word = chief_word<transport_words, 1>,
                                .spellings = spellings<transport_words, 1>};

Format parse_format(const std::string& value) {
  if (const std::optional<Format> format = look_up(format_words, value)) {
    return *format;
  }
  throw std::runtime_error(fill_in("format must be %, %, or %", chief_word<format_words>));
}

constexpr OptionValue format{.apply = set<&Config::format, parse_format>,
                             .allowed = allowed_words<format_words>,
                             .word = chief_word<format_words>,
                             .spellings = spellings<format_words>};

void apply_ref(Config& config, const std::string& value) {
  const auto source = word_or<ref_words, ReferenceClockSource::internal>(value);
  config.set_reference = source.has_value();
  config.ref_source = source.value_or(config.ref_source);
}

std::string ref_as_read(const Config& config, std::string_view /*unit*/) {
  return spelling_of(ref_words, config.set_reference ? std::optional(config.ref_source)  //
                                                     : std::nullopt);
}

constexpr OptionValue ref{.apply = apply_ref,
                          .read = read_word<ref_words>,
                          .as_read = ref_as_read,
                          .allowed = allowed_words<ref_words>,
                          .word = chief_word<ref_words>,
                          .spellings = spellings<ref_words>};

constexpr Limits<double> threshold_limits{.least = 0.0, .most = highest_threshold_v};

std::string threshold_as_read(const Config& config, std::string_view unit) {
  return std::isfinite(config.threshold_v)
             ? number_as_read<&Config::threshold_v, as_double, threshold_limits>(config, unit)
             : std::string(left_alone);
}

constexpr OptionValue threshold{.apply = set<&Config::threshold_v, as_double>,
                                .read = read_number<as_double, threshold_limits>,
                                .as_read = threshold_as_read,
                                .allowed = allowed_number<threshold_limits>};

void apply_port(Config& config, const std::string& value) {
  config.port = value;
  config.port_given = true;
}

void apply_serial(Config& config, const std::string& value) {
  if (value.empty()) {
    throw std::runtime_error("serial must not be empty: list=1 shows those of the attached units");
  }
  config.serial = value;
}

constexpr OptionValue port{.apply = apply_port};
constexpr OptionValue serial{.apply = apply_serial};

void apply_save_tags(Config& config, const std::string& value) {
  if (!tag_layout_of(value)) {
    throw std::runtime_error("save_tags needs the name of a file that ends in .npy or .csv");
  }
  config.tags_file = value;
}

std::string allowed_tag_file(std::string_view /*unit*/) {
  return "allowed is the name of a file that ends in .npy or .csv";
}

constexpr OptionValue save_tags{
    .apply = apply_save_tags, .allowed = allowed_tag_file, .is_file_name = true};

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

// The longest that fits. Any negative time leaves the dead time alone.
constexpr Limits<double> dead_time_ns_limits{.most = 9223372036854774.0, .takes_nan = false};

std::string dead_time_ns_as_read(const Config& config, std::string_view unit) {
  return config.dead_time_ps >= 0
             ? with_unit(to_text(static_cast<double>(config.dead_time_ps) / 1000.0), unit)
             : std::string(left_alone);
}

constexpr OptionValue dead_time_ns{.apply = set<&Config::dead_time_ps, parse_nanoseconds>,
                                   .read = read_number<as_double, dead_time_ns_limits>,
                                   .as_read = dead_time_ns_as_read,
                                   .allowed = allowed_number<dead_time_ns_limits>};

constexpr Limits<int> channels{
    .least = 0, .most = zelk::timing::channel_count - 1, .checked_later = true};
constexpr Limits<double> bin_widths{.least = TimeBins::min_width_s, .takes_nan = false};
constexpr Limits<unsigned long long> queue_limits{
    .least = zelk::timing::TagStreamReader::min_queue_limit};

constexpr std::array<std::string_view, 3> keys(std::string_view chief, std::string_view second = {},
                                               std::string_view third = {}) {
  return {chief, second, third};
}

using enum OptionGroup;

constexpr Option option_table[] = {
    {device, keys("port", "control_port"), "ftdi://", "",
     "device to open; empty: the first one found", port},
    {device, keys("serial"), "", "",
     "serial number of the attached unit to open, in place of a port", serial},
    {device, keys("list"), "0", "", "print the attached units, one per line, and open none: % or %",
     boolean<&Config::list>},
    {device, keys("transport"), "usb", "", "link to the device: %", transport},
    {stream, keys("format"), "packed_delta", "", "stream format: %, % or %", format},
    {signals, keys("mode"), "internal", "",
     "what drives the inputs: % (calibration source) or % (real signals)",
     one_of<&Config::mode, mode_words, StreamMode::internal>},
    {stream, keys("capture_s"), "0.5", "s", "length of the capture",
     number<&Config::capture_s, as_double>},
    {signals, keys("cal_freq_hz"), "10000", "Hz",
     "frequency of the calibration source, internal mode only",
     number<&Config::cal_freq_hz, as_double>},
    {signals, keys("threshold_v"), "nan", "V", "input threshold, 0 to 4; nan: left as it is",
     threshold},
    {stream, keys("channel_mask"), "0x0C", "",
     "channels in the stream, bit n for channel n, 0 to 0x0F",
     bits<&Config::channel_mask, zelk::timing::all_channels_mask>},
    {analysis, keys("channel_a"), "0", "", "first channel of the pair to compare, 0 to 3",
     number<&Config::channel_a, as_int, channels>},
    {analysis, keys("channel_b"), "1", "", "second channel of the pair, 0 to 3, not channel_a",
     number<&Config::channel_b, as_int, channels>},
    {analysis, keys("coincidence_window_ps"), "1000", "ps",
     "largest time difference of a coincidence, and range of the histogram",
     number<&Config::coincidence_window_ps, as_int64>},
    {stream, keys("packed_bits"), "16", "bits",
     "delta width of packed_delta records, 1 to 31; the device may choose another",
     number<&Config::packed_bits, as_unsigned>},
    {stream, keys("packed_quantum_ps"), "8", "ps",
     "tick of packed_delta deltas; the device may choose another",
     number<&Config::packed_quantum_ps, as_unsigned>},
    {analysis, keys("bin_s"), "0.1", "s", "width of one report bin, at least 0.001",
     number<&Config::bin_s, as_double, bin_widths>},
    {stream, keys("queue_limit"), "131072", "tags", "most decoded tags kept waiting, at least 1024",
     number<&Config::queue_limit, as_uint64, queue_limits>},
    {signals, keys("dead_time_ps"), "-1", "ps", "input dead time; negative: left as it is",
     number<&Config::dead_time_ps, as_int64>},
    {signals, keys("dead_time_ns"), "-1", "ns",
     "input dead time in nanoseconds; negative: left as it is", dead_time_ns},
    {device, keys("load_calibration"), "1", "", "whether the device loads its calibration: % or %",
     boolean<&Config::load_calibration>},
    {device, keys("tdl_mask"), "0x07", "",
     "active delay lines of every channel, bit n for line n, 0 to 0x1F",
     bits<&Config::tdl_mask, 0x1F>},
    {device, keys("ref", "reference", "reference_clock"), "internal", "",
     "reference clock: %, %, %, or % to leave it as it is", ref},
    {device, keys("ref_signal", "reference_signal"), "10mhz", "",
     "kind of external reference: % or %",
     one_of<&Config::ref_signal, ref_signal_words, ReferenceSignal::ten_mhz>},
    {output, keys("byte_probe", "bytes"), "0", "",
     "print byte-level diagnostics of the stream instead of the report: % or %",
     boolean<&Config::byte_probe>},
    {stream, keys("stop_tags"), "0", "tags",
     "end the capture after so many counted tags; 0: only by time",
     number<&Config::stop_tags, as_uint64>},
    {analysis, keys("require"), "", "",
     "conditions on the report, such as coincidences>=4000,reader_dropped=0",
     one_more_text<&Config::required>},
    {analysis, keys("limits"), "", "", "file with such conditions, one per line",
     one_more_file_name<&Config::limits_files>},
    {output, keys("save_tags"), "", "",
     "new file for every captured tag: .npy for NumPy, .csv as text", save_tags},
    {output, keys("json"), "", "", "file for the whole run as one JSON document",
     file_name<&Config::json_file>},
    {output, keys("note"), "", "", "text to keep in the JSON document", text<&Config::note>},
    {output, keys("strict"), "0", "",
     "end the run at an argument that would not be taken as it is written: % or %",
     boolean<&Config::strict>},
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

const Option* find_option(std::string_view key) {
  const auto has_key = [key](const Option& option) {
    return !key.empty() && std::ranges::find(option.keys, key) != option.keys.end();
  };
  const auto* const found = std::ranges::find_if(option_table, has_key);
  return found != std::ranges::end(option_table) ? found : nullptr;
}

void apply_arg(Config& config, std::string key, std::string value) {
  if (const Option* const option = find_option(lower_ascii(std::move(key)))) {
    option->value.apply(config, value);
  }
}

SplitArgument split_argument(std::string_view argument) {
  if (argument.starts_with("--")) {
    argument.remove_prefix(2);
  }
  const auto equals = argument.find('=');
  if (equals == std::string_view::npos) {
    return {argument, std::nullopt};
  }
  return {argument.substr(0, equals), argument.substr(equals + 1)};
}

void apply_argument(Config& config, std::string_view argument) {
  if (const SplitArgument split = split_argument(argument); split.value) {
    apply_arg(config, std::string(split.key), std::string(*split.value));
  }
}
