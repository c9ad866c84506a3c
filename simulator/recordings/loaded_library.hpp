// A device library loaded by its path, beside the one that this code is part
// of: both offer functions of the same names, and each must reach its own.
// The library stays loaded when the object is destroyed; devices opened through
// it must be closed before all the same. The functions may be called from any
// thread, as the library allows.
#pragma once

#include <memory>
#include <string>

#include "timing/c_api/zelk_timing.h"

namespace zelk::simulator {

class LoadedLibrary {
 public:
  // Whether a loaded library that calls one of its functions by name reaches that
  // one, and not the function of this name that the program is linked with. The
  // sanitizers' run-time libraries, which stand in front of every other, do not
  // allow that.
  static const bool finds_own_names_first;

  // Throws Failure when the file cannot be loaded or lacks a function.
  explicit LoadedLibrary(const std::string& path);

 private:
  struct Unload {
    void operator()(void* library) const noexcept;
  };
  std::unique_ptr<void, Unload> library_;

 public:
  decltype(&qx_open_serial) open_serial = nullptr;
  decltype(&qx_open) open = nullptr;
  decltype(&qx_close) close = nullptr;
  decltype(&qx_identify) identify = nullptr;
  decltype(&qx_status_string) status_string = nullptr;
  decltype(&qx_last_error) last_error = nullptr;
  decltype(&qx_load_calibration) load_calibration = nullptr;
  decltype(&qx_get_reference_clock_status) get_reference_clock_status = nullptr;
  decltype(&qx_set_reference_clock) set_reference_clock = nullptr;
  decltype(&qx_set_tdl_active_masks) set_tdl_active_masks = nullptr;
  decltype(&qx_get_tdl_active_masks) get_tdl_active_masks = nullptr;
  decltype(&qx_set_dac_codes) set_dac_codes = nullptr;
  decltype(&qx_set_input_dead_time) set_input_dead_time = nullptr;
  decltype(&qx_set_packed_delta_config) set_packed_delta_config = nullptr;
  decltype(&qx_set_stream_interface) set_stream_interface = nullptr;
  decltype(&qx_set_stream_channel_mask) set_stream_channel_mask = nullptr;
  decltype(&qx_set_calibration_freq) set_calibration_freq = nullptr;
  decltype(&qx_enable_calibration_source) enable_calibration_source = nullptr;
  decltype(&qx_disable_calibration_source) disable_calibration_source = nullptr;
  decltype(&qx_start_stream_mode) start_stream_mode = nullptr;
  decltype(&qx_stop_stream_mode) stop_stream_mode = nullptr;
  decltype(&qx_read_stream_bytes) read_stream_bytes = nullptr;
};

}  // namespace zelk::simulator
