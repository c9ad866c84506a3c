// The owning handle of one opened time-to-digital converter, with every call
// that a program needs, and discovery.
//
// A Device owns its library handle and closes it when destroyed. It is made
// and destroyed on the main thread; while a TagStreamReader runs, only the
// reader's thread calls the library with the handle. A CallWatch is told of
// every call; it is borrowed and must outlive the Device.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "timing/c_api/zelk_timing.h"
#include "timing/call_watch.hpp"
#include "timing/reference_clock.hpp"
#include "timing/time_tag.hpp"
#include "timing/transport.hpp"

namespace zelk::timing {

// The texts of a qx_identity as owned strings: the bytes before the first NUL
// of each field, or the whole field when it has none.
struct Identity {
  std::string text_a;
  std::string text_b;
  std::string serial;
  std::string device_text;

  static Identity from_c(const qx_identity& c);

  friend bool operator==(const Identity&, const Identity&) = default;
};

struct DiscoveredDevice {
  std::string port;  // what Device::open accepts
  Identity identity;
};

// Delta width and tick of a packed_delta stream.
struct PackedDeltaConfig {
  std::uint8_t bits = 0;         // payload bits of a record
  std::uint16_t quantum_ps = 0;  // one tick

  friend bool operator==(const PackedDeltaConfig&, const PackedDeltaConfig&) = default;
};

class Device {
 public:
  template <typename T>
  using PerChannel = std::array<T, channel_count>;

  // The rate of the library's fixed-rate entry point, in bits per second.
  static constexpr int standard_rate = 3'000'000;

  // The attached devices in the library's order. Throws Error "discover".
  static std::vector<DiscoveredDevice> discover(CallWatch* watch = nullptr);

  // Opens the device at `port`; the standard rate goes through
  // qx_open_serial(), any other through qx_open(). Throws Error "open".
  static Device open(std::string_view port, int rate, CallWatch* watch = nullptr);

  // Opens the first discovered device, never another one, and loads
  // "fine_lut.bin" from the working directory when there is a valid one, which
  // is a plain file.
  // Throws Error "discover" or "open", or one with status
  // no_device_found_status when nothing is attached.
  static Device open_first(int rate, CallWatch* watch = nullptr);

  // Closes the handle when owned. Does not stop a stream.
  ~Device();
  Device(Device&& other) noexcept;
  Device& operator=(Device&& other) noexcept;
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // Set-up. Each function is one call of the device library and throws Error
  // when that fails, under the name in quotation marks.

  // What the device calls itself. "identify".
  Identity identify();

  // Lets the library load the calibration of this unit. False when it could
  // not; a device works without one.
  bool load_calibration();

  // The state of the reference clock. "reference_clock_status".
  ReferenceClockStatus reference_clock_status();

  // Asks for a reference clock; returns the state that came of it.
  // "set_reference_clock".
  ReferenceClockStatus set_reference_clock(ReferenceClockSource source, ReferenceSignal signal);

  // The active delay lines, bit n for line n. "set_tdl_active_masks",
  // "get_tdl_active_masks".
  void set_tdl_active_masks(const PerChannel<std::uint8_t>& masks);
  PerChannel<std::uint8_t> tdl_active_masks();

  // The input thresholds as codes: read as signed 16-bit numbers they rise from
  // -32768 (0 V) to 32767 (4 V). "set_dac_codes".
  void set_threshold_codes(const PerChannel<std::uint16_t>& codes);

  // The dead time of every input; returns what the device made of it.
  // "set_input_dead_time".
  std::int64_t set_dead_time(std::int64_t dead_time_ps);

  // Returns what the device made of the request. "set_packed_delta_config".
  PackedDeltaConfig set_packed_delta_config(const PackedDeltaConfig& requested);

  // "set_stream_interface".
  void set_stream_interface(Transport transport, Format format);

  // The channels in the stream, bit n for channel n. "set_stream_channels".
  void set_stream_channels(std::uint8_t mask);

  // The frequency of the calibration source; returns the divider of the device
  // clock that comes nearest. "set_calibration_freq".
  std::uint32_t set_calibration_freq(double frequency_hz);

  // Switches the calibration source on or off. "enable_calibration_source",
  // "disable_calibration_source".
  void enable_calibration_source();
  void disable_calibration_source();

  // Starts the stream and remembers the mode in `stream_mode`.
  // "start_stream(mode)".
  void start_stream(StreamMode mode);

  // Handed to every stream read; the device library's unit.
  static constexpr int read_timeout = 20;

  // Reads stream bytes into `buffer` and returns how many, possibly 0, or
  // nothing when none arrived within the time-out. Throws Error
  // "read_stream_bytes".
  std::optional<std::size_t> read_stream_bytes(std::span<std::uint8_t> buffer);

  // Leaves stream mode; the flag goes to the library as it is. Throws Error
  // "stop_stream_any".
  void stop_stream_any(bool flag);

  // The same on the way out of a failure, where nothing is left to be said: one
  // call of the library, whatever it answers.
  void stop_stream_quietly(bool flag) noexcept;

  qx_device* handle = nullptr;   // null when nothing is open
  bool owns = false;             // this object closes `handle`
  std::int32_t stream_mode = 0;  // the mode last started
  // Picoseconds per fine code, one table per channel. Not read while decoding.
  std::array<std::vector<std::int64_t>, channel_count> fine_lut;

 private:
  explicit Device(CallWatch* watch) : watch_(watch) {}
  void require(qx_status status, const char* operation) const;

  CallWatch* watch_;  // null when nobody watches
};

// Where per-device calibration files live: "$HOME/.zelk.timing/calibrations",
// with "." for an unset or empty HOME. The directory need not exist.
std::string default_calibration_dir();

}  // namespace zelk::timing
