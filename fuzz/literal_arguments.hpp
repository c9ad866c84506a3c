// The rules of the command line read literally: what arguments make of the settings,
// and the exception that ends them. The judge of the real reader, with which it shares
// no code.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace zelk::fuzz {

// Every setting as a plain number or text.
struct LiteralSettings {
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

// Takes one setting, its key in small letters. False: there is no such key. Throws
// std::runtime_error, or what the standard conversion of a number throws.
bool apply_literally(LiteralSettings& s, const std::string& key, const std::string& value);

// Takes all arguments in their order, and refuses what does not go together. Throws what
// apply_literally() throws.
void apply_all_literally(LiteralSettings& s, const std::vector<std::string>& arguments);

}  // namespace zelk::fuzz
