#include "smoke_test/results/run_document.hpp"

#include <unistd.h>

#include <array>
#include <charconv>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>

#include "smoke_test/device_library.hpp"
#include "smoke_test/report.hpp"
#include "smoke_test/results/figures.hpp"
#include "smoke_test/standard_streams.hpp"
#include "smoke_test/verdict.hpp"
#include "smoke_test/words.hpp"

namespace {

using Json = nlohmann::ordered_json;

constexpr int format_version = 1;

// An object down to this depth gets a line for each of its keys, so that a tool that
// knows nothing but lines finds them; the rest stands in one line.
constexpr int deepest_lines = 2;

std::string in_one_line(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string in_lines(const Json& value, int depth = 1) {
  if (!value.is_object() || value.empty() || depth > deepest_lines) {
    return in_one_line(value);
  }
  const std::string indent(static_cast<std::size_t>(depth) * 2, ' ');
  std::string text = "{";
  const char* separator = "\n";
  for (const auto& [key, element] : value.items()) {
    text += separator + indent + in_one_line(key) + ": " + in_lines(element, depth + 1);
    separator = ",\n";
  }
  return text + "\n" + indent.substr(2) + "}";
}

Json text_or_null(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

template <typename Number>
std::optional<Number> read_number(std::string_view text, int base) {
  Number number{};
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return read.ec == std::errc() && read.ptr == text.data() + text.size() ? std::optional(number)
                                                                         : std::nullopt;
}

// The number that a printed text says: a whole one to its last digit, any other one as
// the floating point number that comes nearest. Null: it says none, as "inf" does.
Json number_in(std::string_view text) {
  constexpr int decimal = 10;
  constexpr int hexadecimal = 16;
  if (text.starts_with("0x")) {
    const auto mask = read_number<std::uint64_t>(text.substr(2), hexadecimal);
    return mask ? Json(*mask) : Json();
  }
  if (const auto whole = read_number<std::int64_t>(text, decimal)) {
    return *whole;
  }
  if (const auto large = read_number<std::uint64_t>(text, decimal)) {
    return *large;
  }
  double number = 0.0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  return read.ec == std::errc() && read.ptr == text.data() + text.size() ? Json(number) : Json();
}

Json value_of(const Figure& figure, const RunRecord& record, std::size_t channel) {
  if (!record.analysis) {
    return nullptr;
  }
  const std::optional<std::string> printed = figure.value(record, channel);
  return printed ? number_in(*printed) : Json();
}

Json figures_in(const RunRecord& record) {
  Json all = Json::object();
  for (const Figure& figure : figures()) {
    if (figure.shape == Figure::Shape::single) {
      all[figure_name(figure, 0)] = value_of(figure, record, 0);
      continue;
    }
    for (std::size_t channel = 0; channel < zelk::timing::channel_count; ++channel) {
      const Json value = value_of(figure, record, channel);
      if (figure.shape == Figure::Shape::per_channel) {
        all[figure_name(figure, 0)].push_back(value);
      } else {
        all[figure_name(figure, channel)] = value;
      }
    }
  }
  return all;
}

// The report's lines with more than one value per channel.
Json lists_in(const RunRecord& record) {
  Json all = Json::object();
  const std::optional<Analysis>& analysis = record.analysis;
  const bool has_pairs = analysis && analysis->pair.offset.valid;
  all["xcorr_top_bins"] = has_pairs ? Json(analysis->pair.top) : Json();
  for (std::size_t channel = 0; channel < zelk::timing::channel_count; ++channel) {
    all["ch" + std::to_string(channel) + "_mod3333_top"] =
        analysis ? Json(analysis->channels[channel].residues.top) : Json();
  }
  all["bins"] = analysis ? Json(analysis->bins.rows()) : Json();
  return all;
}

std::string utc(std::chrono::system_clock::time_point time) {
  using std::chrono::milliseconds;
  const auto since_1970 = std::chrono::floor<milliseconds>(time.time_since_epoch());
  const auto whole_s = std::chrono::floor<std::chrono::seconds>(since_1970);
  const std::time_t seconds = whole_s.count();
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  constexpr std::size_t room = 64;
  std::array<char, room> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text.data() + length, text.size() - length, ".%03dZ",
                static_cast<int>((since_1970 - whole_s) / milliseconds{1}));
  return text.data();
}

Json host_name() {
  constexpr std::size_t room = 256;
  std::array<char, room> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? text_or_null(name.data()) : Json();
}

Json device_library() {
  const std::optional<DeviceLibrary> library = loaded_device_library();
  return library ? Json(library->path) : Json();
}

// Each under the chief key of its option; the dead time has two, for one setting.
Json settings_in(const Config& config) {
  return {
      {"port", config.port},
      {"transport", transport_name(config.transport)},
      {"format", format_name(config.format)},
      {"mode", mode_name(config.mode)},
      {"capture_s", config.capture_s},
      {"cal_freq_hz", config.cal_freq_hz},
      {"threshold_v", config.threshold_v},
      {"channel_mask", config.channel_mask},
      {"channel_a", config.channel_a},
      {"channel_b", config.channel_b},
      {"coincidence_window_ps", config.coincidence_window_ps},
      {"packed_bits", config.packed_bits},
      {"packed_quantum_ps", config.packed_quantum_ps},
      {"bin_s", config.bin_s},
      {"queue_limit", config.queue_limit},
      {"dead_time_ps", config.dead_time_ps},
      {"load_calibration", config.load_calibration},
      {"tdl_mask", config.tdl_mask},
      {"ref", config.set_reference ? ref_source_name(config.ref_source) : "none"},
      {"ref_signal", ref_signal_name(config.ref_signal)},
      {"byte_probe", config.byte_probe},
      {"serial", config.serial},
      {"list", config.list},
      {"stop_tags", config.stop_tags},
      {"require", config.required},
      {"limits", config.limits_files},
      {"save_tags", config.tags_file},
      {"json", config.json_file},
      {"strict", config.strict},
  };
}

Json applied_in(const RunRecord& record) {
  if (!record.set_up_is_done) {
    return nullptr;
  }
  const DeviceSettings& settings = record.settings;
  const bool packed = record.config.format == zelk::timing::Format::packed_delta;
  return {
      {"calibration_loaded", settings.calibration_loaded},
      {"tdl_masks", settings.tdl_masks},
      {"dead_time_ps",
       record.config.dead_time_ps >= 0 ? Json(settings.applied_dead_time_ps) : Json()},
      {"packed_bits", packed ? Json(settings.packed.bits) : Json()},
      {"packed_quantum_ps", packed ? Json(settings.packed.quantum_ps) : Json()},
      {"calibration_divider", settings.calibration_divider},
  };
}

Json unit_in(const std::string& port, const zelk::timing::Identity& identity) {
  return {
      {"port", port},
      {"serial", identity.serial},
      {"device", identity.device_text},
      {"text_a", identity.text_a},
      {"text_b", identity.text_b},
  };
}

Json identity_in(const RunRecord& record) {
  // No unit's calibration has an empty path: it is set once the unit has said who it is.
  const DeviceSettings& settings = record.settings;
  if (settings.calibration_path.empty()) {
    return nullptr;
  }
  Json unit = unit_in(record.config.port, settings.identity);
  unit["calibration_path"] = settings.calibration_path;
  return unit;
}

Json reference_in(const DeviceSettings& settings) {
  if (!settings.reference) {
    return nullptr;
  }
  const zelk::timing::ReferenceClockStatus& status = *settings.reference;
  return {
      {"requested", ref_source_name(status.requested)},
      {"active", ref_source_name(status.active)},
      {"signal", ref_signal_name(status.signal)},
      {"external_present", status.external_present},
      {"external_locked", status.external_locked},
      {"fallback", status.fallback},
      {"missing_warning", status.missing_warning},
      {"raw", status.raw},
  };
}

Json byte_probe_in(const RunRecord& record) {
  if (!record.byte_probe) {
    return nullptr;
  }
  const ByteProbe& probe = *record.byte_probe;
  return {
      {"payload_bytes", probe.payload_bytes},
      {"nonzero_bytes", probe.nonzero_bytes},
      {"first_nonzero_offset",
       probe.first_nonzero_offset >= 0 ? Json(probe.first_nonzero_offset) : Json()},
      {"first_bytes", bytes_to_hex(probe.first_bytes)},
      {"decoded_total", probe.decoded_total},
      {"decoded", probe.decoded},
  };
}

// An empty list is one that was asked for and brought nothing.
Json units_in(const RunRecord& record) {
  if (!record.config.list || record.exit_status != exit_success) {
    return nullptr;
  }
  Json units = Json::array();
  for (const zelk::timing::DiscoveredDevice& unit : record.units) {
    units.push_back(unit_in(unit.port, unit.identity));
  }
  return units;
}

Json limits_in(const RunRecord& record) {
  Json limits = Json::array();
  for (const auto& [condition, outcome] : record.limits) {
    limits.push_back(Json{{"text", condition.text},
                          {"figure", figure_name(*condition.figure, condition.channel.value_or(0))},
                          {"channel", condition.channel ? Json(*condition.channel) : Json()},
                          {"met", outcome ? Json(outcome->met) : Json()},
                          {"seen", outcome ? Json(outcome->seen) : Json()}});
  }
  return limits;
}

}  // namespace

std::string document_head(const RunRecord& record) {
  const Json document{
      {"format_version", format_version},
      {"program", "zelk_smoke_test"},
      {"version", ZELK_VERSION},
      {"run_id", text_or_null(record.run_id)},
      {"device_library", device_library()},
      {"host", host_name()},
      {"start", utc(record.start)},
      {"arguments", record.arguments},
      {"settings", settings_in(record.config)},
      {"note", text_or_null(record.config.note)},
      {"identity", identity_in(record)},
      {"reference_clock", reference_in(record.settings)},
      {"applied", applied_in(record)},
      {"figures", figures_in(record)},
      {"lists", lists_in(record)},
      {"byte_probe", byte_probe_in(record)},
      {"units", units_in(record)},
      {"limits", limits_in(record)},
  };
  std::string text = in_lines(document);
  text.resize(text.size() - document_end.size() + 1);  // the end has a line feed more
  return text + ",\n";
}

std::string document_tail(const RunRecord& record) {
  const Json error = text_or_null(without_control_characters(record.error));
  const std::string status = record.exit_status ? std::to_string(*record.exit_status) : "null";
  return std::string(document_error_key) + in_one_line(error) + std::string(document_status_key) +
         status + std::string(document_end);
}

std::string run_document(const RunRecord& record) {
  return document_head(record) + document_tail(record);
}
