// A libzelk_timing.so.0 that hands every call on to the simulated library and
// appends one line per call to the file that ZELK_CALL_LOG names: the function
// and " -> " with its status. Reads that succeed or time out are left out, since
// how many of them there are depends on the machine's speed; with
// ZELK_CALL_LOG_READS all reads are there, and " received=" with their bytes.
// Closing a device adds how many threads and open descriptors there are more than
// before the first call.
//
// ZELK_SLOW_CALLS makes calls slow: "qx_identify=300,qx_close=20" lets the one
// take 300 ms longer and the other 20 ms.
#include <dlfcn.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>

#include "tests/support/thread_sanitizer.hpp"
#include "timing/c_api/zelk_timing.h"

namespace {

constexpr bool has_thread_of_its_own = zelk::test_support::under_thread_sanitizer;

std::ptrdiff_t entries_of(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

// A thread sanitizer may start its own thread at any time.
std::ptrdiff_t threads() {
  const std::ptrdiff_t count = entries_of("/proc/self/task");
  return has_thread_of_its_own && count == 2 ? 1 : count;
}

std::ptrdiff_t descriptors() {
  return entries_of("/proc/self/fd");
}

// How much longer a call of this function takes.
std::chrono::milliseconds extra_time(std::string_view function) {
  const char* const variable = std::getenv("ZELK_SLOW_CALLS");
  std::string_view list = variable != nullptr ? variable : "";
  while (!list.empty()) {
    const std::string_view entry = list.substr(0, list.find(','));
    list.remove_prefix(std::min(entry.size() + 1, list.size()));
    const std::size_t equals = entry.find('=');
    if (entry.substr(0, equals) == function) {
      int ms = 0;
      const std::string_view number = entry.substr(equals + 1);
      std::from_chars(number.data(), number.data() + number.size(), ms);
      return std::chrono::milliseconds(ms);
    }
  }
  return {};
}

// The simulated library, opened with the first call and kept to the end.
class Library {
 public:
  static Library& instance() {
    static Library library;
    return library;
  }

  // `name` in the library; `like` only tells its type.
  template <typename Function>
  Function* function(const char* name, Function* /*like*/) {
    void* const found = dlsym(library_, name);
    if (found == nullptr) {
      std::abort();
    }
    return reinterpret_cast<Function*>(found);
  }

  void log(const std::string& line) { std::ofstream(file_, std::ios::app) << line << '\n'; }

  // A thread that has been joined may take a moment to leave the process, and on a
  // busy machine a long one.
  [[nodiscard]] std::string left_behind() const {
    for (int wait = 0; wait < 800 && threads() > threads_before_; ++wait) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return "threads_left=" + std::to_string(threads() - threads_before_) +
           " descriptors_left=" + std::to_string(descriptors() - descriptors_before_);
  }

 private:
  Library()
      : library_(dlopen(ZELK_SIMULATED_LIBRARY, RTLD_NOW | RTLD_LOCAL)),
        file_(std::getenv("ZELK_CALL_LOG")),
        threads_before_(threads()),
        descriptors_before_(descriptors()) {
    if (library_ == nullptr) {
      std::abort();
    }
  }

  void* library_;
  std::string file_;
  std::ptrdiff_t threads_before_;
  std::ptrdiff_t descriptors_before_;
};

// Calls `name` without a word about it.
template <typename Result, typename... Parameters, typename... Arguments>
Result silently(const char* name, Result (*like)(Parameters...), Arguments... arguments) {
  std::this_thread::sleep_for(extra_time(name));
  return Library::instance().function(name, like)(arguments...);
}

template <typename... Parameters, typename... Arguments>
qx_status logged(const char* name, qx_status (*like)(Parameters...), Arguments... arguments) {
  const qx_status status = silently(name, like, arguments...);
  Library::instance().log(std::string(name) + " -> " + std::to_string(status));
  return status;
}

}  // namespace

qx_status qx_discover(qx_discovery** list) {
  return logged(__func__, qx_discover, list);
}
size_t qx_discover_count(const qx_discovery* list) {
  return silently(__func__, qx_discover_count, list);
}
const char* qx_discover_port(const qx_discovery* list, size_t index) {
  return silently(__func__, qx_discover_port, list, index);
}
const qx_identity* qx_discover_identity(const qx_discovery* list, size_t index) {
  return silently(__func__, qx_discover_identity, list, index);
}
void qx_discover_free(qx_discovery* list) {
  silently(__func__, qx_discover_free, list);
  Library::instance().log(__func__);
}

qx_status qx_open_serial(qx_device** device, const char* port) {
  return logged(__func__, qx_open_serial, device, port);
}
qx_status qx_open(qx_device** device, const char* port, int rate) {
  return logged(__func__, qx_open, device, port, rate);
}
void qx_close(qx_device* device) {
  silently(__func__, qx_close, device);
  Library::instance().log(std::string(__func__) + " " + Library::instance().left_behind());
}

qx_status qx_identify(qx_device* device, qx_identity* identity) {
  return logged(__func__, qx_identify, device, identity);
}
const char* qx_status_string(qx_status status) {
  return silently(__func__, qx_status_string, status);
}
const char* qx_last_error(const qx_device* device) {
  return silently(__func__, qx_last_error, device);
}

qx_status qx_load_calibration(qx_device* device, int flag) {
  return logged(__func__, qx_load_calibration, device, flag);
}
qx_status qx_get_reference_clock_status(qx_device* device, qx_reference_clock* status) {
  return logged(__func__, qx_get_reference_clock_status, device, status);
}
qx_status qx_set_reference_clock(qx_device* device, uint32_t source, uint32_t signal,
                                 qx_reference_clock* status) {
  return logged(__func__, qx_set_reference_clock, device, source, signal, status);
}
qx_status qx_set_tdl_active_masks(qx_device* device, const uint8_t* masks) {
  return logged(__func__, qx_set_tdl_active_masks, device, masks);
}
qx_status qx_get_tdl_active_masks(qx_device* device, uint8_t* masks) {
  return logged(__func__, qx_get_tdl_active_masks, device, masks);
}
qx_status qx_set_dac_codes(qx_device* device, const uint16_t* codes) {
  return logged(__func__, qx_set_dac_codes, device, codes);
}
qx_status qx_set_input_dead_time(qx_device* device, int64_t dead_time_ps, int64_t* applied_ps) {
  return logged(__func__, qx_set_input_dead_time, device, dead_time_ps, applied_ps);
}
qx_status qx_set_packed_delta_config(qx_device* device, uint8_t bits, uint16_t quantum_ps,
                                     uint8_t* accepted_bits, uint16_t* accepted_quantum_ps) {
  return logged(__func__, qx_set_packed_delta_config, device, bits, quantum_ps, accepted_bits,
                accepted_quantum_ps);
}
qx_status qx_set_stream_interface(qx_device* device, uint32_t transport, uint32_t format) {
  return logged(__func__, qx_set_stream_interface, device, transport, format);
}
qx_status qx_set_stream_channel_mask(qx_device* device, uint8_t mask) {
  return logged(__func__, qx_set_stream_channel_mask, device, mask);
}
qx_status qx_set_calibration_freq(qx_device* device, double frequency_hz, uint32_t* divider) {
  return logged(__func__, qx_set_calibration_freq, device, frequency_hz, divider);
}
qx_status qx_enable_calibration_source(qx_device* device) {
  return logged(__func__, qx_enable_calibration_source, device);
}
qx_status qx_disable_calibration_source(qx_device* device) {
  return logged(__func__, qx_disable_calibration_source, device);
}

qx_status qx_start_stream_mode(qx_device* device, uint32_t mode, uint32_t flags) {
  return logged(__func__, qx_start_stream_mode, device, mode, flags);
}
qx_status qx_stop_stream_mode(qx_device* device, bool flag) {
  return logged(__func__, qx_stop_stream_mode, device, flag);
}
qx_status qx_read_stream_bytes(qx_device* device, uint8_t* buffer, size_t capacity,
                               size_t* received, int timeout) {
  constexpr qx_status timed_out = -3;
  const qx_status status =
      silently(__func__, qx_read_stream_bytes, device, buffer, capacity, received, timeout);
  const std::string line = std::string(__func__) + " -> " + std::to_string(status);
  if (std::getenv("ZELK_CALL_LOG_READS") != nullptr) {
    Library::instance().log(line + " received=" + std::to_string(*received));
  } else if (status != 0 && status != timed_out) {
    Library::instance().log(line);
  }
  return status;
}
