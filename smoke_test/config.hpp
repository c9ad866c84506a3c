// The run's settings.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "timing/reference_clock.hpp"
#include "timing/time_tag.hpp"
#include "timing/transport.hpp"
#include "timing/wire_format.hpp"

using zelk::timing::StreamMode;

struct Config {
  std::string port = "ftdi://";  // empty: the first discovered device
  zelk::timing::Transport transport = zelk::timing::Transport::usb;
  zelk::timing::Format format = zelk::timing::Format::packed_delta;
  StreamMode mode = StreamMode::internal;
  double capture_s = 0.5;
  double cal_freq_hz = 10000.0;                                   // internal mode only
  double threshold_v = std::numeric_limits<double>::quiet_NaN();  // not finite: not programmed
  std::uint8_t channel_mask = 0x0C;  // bit n: channel n is in the stream
  std::int32_t channel_a = 0;
  std::int32_t channel_b = 1;
  std::int64_t coincidence_window_ps = 1000;
  std::uint8_t packed_bits = zelk::timing::wire::packed_delta::default_bits;
  std::uint16_t packed_quantum_ps = zelk::timing::wire::packed_delta::default_quantum_ps;
  double bin_s = 0.1;
  std::uint64_t queue_limit = 131072;  // tags
  std::int64_t dead_time_ps = -1;      // negative: the device's dead time is left alone
  bool load_calibration = true;
  std::uint8_t tdl_mask = 0x07;  // active delay lines, the same for every channel
  bool set_reference = true;     // false: the reference clock is only queried
  zelk::timing::ReferenceClockSource ref_source = zelk::timing::ReferenceClockSource::internal;
  zelk::timing::ReferenceSignal ref_signal = zelk::timing::ReferenceSignal::ten_mhz;
  bool byte_probe = false;

  // What the run is asked for beyond its report.
  bool list = false;                      // print the attached units, and nothing else
  bool strict = false;                    // an argument not taken as written ends the run
  bool port_given = false;                // by an argument
  std::string serial;                     // of the attached unit to open; empty: that at `port`
  std::uint64_t stop_tags = 0;            // counted tags that end the capture; 0: none do
  std::vector<std::string> required;      // texts of conditions, separated by commas
  std::vector<std::string> limits_files;  // files of conditions
  std::string tags_file;                  // where the captured tags go; empty: nowhere
  std::string json_file;                  // where the whole run goes; empty: nowhere
  std::string note;                       // kept with it
};

// Throws std::runtime_error unless the channel pair is two different channels,
// the transport can stream, the unit is chosen in one way only, and what is asked
// for goes together.
void validate(const Config& config);
