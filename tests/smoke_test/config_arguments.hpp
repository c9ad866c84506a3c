// Shared by the tests of the command line: a Config filled from arguments, and
// which of its fields differ from their defaults.
#pragma once

#include <cmath>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "smoke_test/config.hpp"
#include "smoke_test/options.hpp"

inline Config config_from(std::initializer_list<std::string_view> arguments) {
  Config config;
  for (const std::string_view argument : arguments) {
    apply_argument(config, argument);
  }
  return config;
}

// The names of the fields of `config` that do not hold their default. A
// threshold that is not a number counts as the default.
inline std::vector<std::string> changed_fields(const Config& config) {
  const Config defaults;
  std::vector<std::string> changed;
  const auto note = [&changed](const char* field, bool differs) {
    if (differs) {
      changed.emplace_back(field);
    }
  };
  note("port", config.port != defaults.port);
  note("serial", config.serial != defaults.serial);
  note("list", config.list != defaults.list);
  note("transport", config.transport != defaults.transport);
  note("format", config.format != defaults.format);
  note("mode", config.mode != defaults.mode);
  note("capture_s", config.capture_s != defaults.capture_s);
  note("cal_freq_hz", config.cal_freq_hz != defaults.cal_freq_hz);
  note("threshold_v", !std::isnan(config.threshold_v));
  note("channel_mask", config.channel_mask != defaults.channel_mask);
  note("channel_a", config.channel_a != defaults.channel_a);
  note("channel_b", config.channel_b != defaults.channel_b);
  note("coincidence_window_ps", config.coincidence_window_ps != defaults.coincidence_window_ps);
  note("packed_bits", config.packed_bits != defaults.packed_bits);
  note("packed_quantum_ps", config.packed_quantum_ps != defaults.packed_quantum_ps);
  note("bin_s", config.bin_s != defaults.bin_s);
  note("queue_limit", config.queue_limit != defaults.queue_limit);
  note("dead_time_ps", config.dead_time_ps != defaults.dead_time_ps);
  note("load_calibration", config.load_calibration != defaults.load_calibration);
  note("tdl_mask", config.tdl_mask != defaults.tdl_mask);
  note("set_reference", config.set_reference != defaults.set_reference);
  note("ref_source", config.ref_source != defaults.ref_source);
  note("ref_signal", config.ref_signal != defaults.ref_signal);
  note("byte_probe", config.byte_probe != defaults.byte_probe);
  note("tags_file", config.tags_file != defaults.tags_file);
  note("strict", config.strict != defaults.strict);
  return changed;
}
