// How the simulated unit says no. Inside the library a refused request is a
// Failure; the C interface turns it into its status and the device's last
// error, or the status's text where there is no device.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace zelk::simulator {

// Values of qx_status. -5 is left to the host, which uses it when discovery
// finds nothing. A unit whose reference clock cannot be controlled answers -3,
// -4 or -7, so no other refusal may use these three.
enum class Status : std::int32_t {
  success = 0,
  invalid_argument = -1,
  out_of_memory = -2,
  timed_out = -3,
  not_supported = -4,
  no_device = -5,
  busy = -6,
  not_available = -7,
  not_streaming = -8,
  out_of_range = -9,
  internal_error = -10,
  // Reasons for a failed open.
  no_such_unit = -20,
  malformed_port = -21,
  unknown_scenario = -22,
  unknown_port_key = -23,
  missing_port_key = -24,
  repeated_port_key = -25,
  cannot_open_tag_file = -30,
  cannot_read_tag_file = -31,
  malformed_tag_line = -32,
  tag_out_of_order = -33,
  tag_channel_out_of_range = -34,
  malformed_tag_header = -35,
  tag_count_contradicted = -36,
  tag_time_out_of_range = -37,
  // Faults that the port string or the environment asks for.
  malformed_discovery = -40,
  unit_vanished = -41,
  // Taps and recordings.
  cannot_load_library = -60,
  library_lacks_function = -61,
  recording_exists = -62,
  cannot_create_recording = -63,
  cannot_write_recording = -64,
  no_recording_named = -65,
  cannot_open_recording = -66,
  cannot_read_recording = -67,
  not_a_recording = -68,
  unknown_recording_version = -69,
  recording_cut_short = -70,
  recording_corrupted = -71,
  contradicts_recording = -72,
  // From -100 down: the values and places of the keys of port strings.
};

// A refused request; what() says which value was wrong and why, in a whole
// sentence where there is no device.
class Failure : public std::runtime_error {
 public:
  Failure(Status status, const std::string& detail) : std::runtime_error(detail), status_(status) {}

  [[nodiscard]] Status status() const noexcept { return status_; }

 private:
  Status status_;
};

// A failure that the port string or the environment asks for. It stands for a
// device's own, so its what() is a last error and never a status's text.
class FaultFailure : public Failure {
 public:
  using Failure::Failure;
};

}  // namespace zelk::simulator
