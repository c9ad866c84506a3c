// The owning handle of one opened time-to-digital converter, and discovery.
//
// A Device owns its library handle and closes it when destroyed. It is made
// and destroyed on the main thread; while a TagStreamReader runs, only the
// reader's thread calls the library with the handle.
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
#include "timing/time_tag.hpp"

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

class Device {
 public:
  // The rate of the library's fixed-rate entry point, in bits per second.
  static constexpr int standard_rate = 3'000'000;

  // The attached devices in the library's order. Throws Error "discover".
  static std::vector<DiscoveredDevice> discover();

  // Opens the device at `port`; the standard rate goes through
  // qx_open_serial(), any other through qx_open(). Throws Error "open".
  static Device open(std::string_view port, int rate);

  // Opens the first discovered device, never another one, and loads
  // "fine_lut.bin" from the working directory when there is a valid one.
  // Throws Error "discover" or "open", or one with status
  // no_device_found_status when nothing is attached.
  static Device open_first(int rate);

  // Closes the handle when owned. Does not stop a stream.
  ~Device();
  Device(Device&& other) noexcept;
  Device& operator=(Device&& other) noexcept;
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // Handed to every stream read; the device library's unit.
  static constexpr int read_timeout = 20;

  // Reads stream bytes into `buffer` and returns how many, possibly 0, or
  // nothing when none arrived within the time-out. Throws Error
  // "read_stream_bytes".
  std::optional<std::size_t> read_stream_bytes(std::span<std::uint8_t> buffer);

  // Leaves stream mode; the flag goes to the library as it is. Throws Error
  // "stop_stream_any".
  void stop_stream_any(bool flag);

  qx_device* handle = nullptr;   // null when nothing is open
  bool owns = false;             // this object closes `handle`
  std::int32_t stream_mode = 0;  // the mode last started
  // Picoseconds per fine code, one table a channel. Not read while decoding.
  std::array<std::vector<std::int64_t>, channel_count> fine_lut;

 private:
  Device() = default;
};

// Where per-device calibration files live: "$HOME/.zelk.timing/calibrations",
// with "." for an unset or empty HOME. The directory need not exist.
std::string default_calibration_dir();

}  // namespace zelk::timing
