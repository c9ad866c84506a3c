// The device library's C functions, answered from the script. Records are
// filled whatever the status is: a caller that uses them after a failure shows.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "tests/scripted_device/library.hpp"
#include "timing/c_api/zelk_timing.h"

namespace {

using scripted_device::Library;

std::string text(double number) {
  std::array<char, 64> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%.17g", number);
  return buffer.data();
}

std::string hex(unsigned number, int digits) {
  std::array<char, 16> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%0*x", digits, number);
  return buffer.data();
}

template <typename T>
std::string hex_list(const T* numbers) {
  const int digits = 2 * static_cast<int>(sizeof(T));
  std::string joined = hex(numbers[0], digits);
  for (int i = 1; i < 4; ++i) {
    joined += "," + hex(numbers[i], digits);
  }
  return joined;
}

// "zeroed", or "dirty" when any byte of the caller's record is not zero.
template <typename T>
std::string preset(const T* record) {
  std::array<unsigned char, sizeof(T)> bytes{};
  std::memcpy(bytes.data(), record, sizeof(T));
  const bool zero =
      std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == 0; });
  return zero ? "zeroed" : "dirty";
}

std::string result(qx_status status) {
  return " -> " + std::to_string(status);
}

// Logs a call that gives a status, and gives it.
qx_status answer(const qx_device* device, const std::string& function,
                 const std::string& arguments) {
  const qx_status status = Library::instance().next_status(function);
  Library::instance().log(device,
                          function + (arguments.empty() ? "" : " ") + arguments + result(status));
  return status;
}

qx_status answer_open(qx_device** device, const std::string& function,
                      const std::string& arguments) {
  const qx_status status = Library::instance().next_status(function);
  Library::instance().log(function + " " + arguments + result(status));
  *device = status == 0 ? Library::instance().open_device() : nullptr;
  return status;
}

void fill(qx_reference_clock* record) {
  static_assert(sizeof(qx_reference_clock) == sizeof(scripted_device::Script::reference_clock));
  std::memcpy(record, Library::instance().script().reference_clock.data(), sizeof *record);
}

}  // namespace

extern "C" {

qx_status qx_discover(qx_discovery** list) {
  const qx_status status = Library::instance().next_status("qx_discover");
  Library::instance().log("qx_discover" + result(status));
  *list = status == 0 ? Library::instance().discover() : nullptr;
  return status;
}

size_t qx_discover_count(const qx_discovery* list) {
  const size_t count = Library::instance().script().discovered.size();
  Library::instance().log("qx_discover_count -> " + std::to_string(count) +
                          Library::instance().note_on(list));
  return count;
}

const char* qx_discover_port(const qx_discovery* list, size_t index) {
  const auto& port = Library::instance().script().discovered.at(index).port;
  Library::instance().log("qx_discover_port index=" + std::to_string(index) + " -> " +
                          port.value_or("null") + Library::instance().note_on(list));
  return port ? port->c_str() : nullptr;
}

const qx_identity* qx_discover_identity(const qx_discovery* list, size_t index) {
  const auto& identity = Library::instance().script().discovered.at(index).identity;
  Library::instance().log("qx_discover_identity index=" + std::to_string(index) + " -> " +
                          (identity ? "identity" : "null") + Library::instance().note_on(list));
  return identity ? &*identity : nullptr;
}

void qx_discover_free(qx_discovery* list) {
  Library::instance().free_discovery(list);
}

qx_status qx_open_serial(qx_device** device, const char* port) {
  return answer_open(device, "qx_open_serial", std::string("port=") + port);
}

qx_status qx_open(qx_device** device, const char* port, int rate) {
  return answer_open(device, "qx_open",
                     std::string("port=") + port + " rate=" + std::to_string(rate));
}

void qx_close(qx_device* device) {
  Library::instance().next_status("qx_close");
  Library::instance().close_device(device);
}

qx_status qx_identify(qx_device* device, qx_identity* identity) {
  const qx_status status = answer(device, "qx_identify", "record=" + preset(identity));
  *identity = Library::instance().script().identity;
  return status;
}

const char* qx_status_string(qx_status status) {
  Library::instance().log("qx_status_string status=" + std::to_string(status));
  return Library::instance().status_text(status);
}

const char* qx_last_error(const qx_device* device) {
  Library::instance().log(device, "qx_last_error");
  const auto& last_error = Library::instance().script().last_error;
  return last_error ? last_error->c_str() : nullptr;
}

qx_status qx_load_calibration(qx_device* device, int flag) {
  return answer(device, "qx_load_calibration", "flag=" + std::to_string(flag));
}

qx_status qx_get_reference_clock_status(qx_device* device, qx_reference_clock* status) {
  const qx_status answered =
      answer(device, "qx_get_reference_clock_status", "record=" + preset(status));
  fill(status);
  return answered;
}

qx_status qx_set_reference_clock(qx_device* device, uint32_t source, uint32_t signal,
                                 qx_reference_clock* status) {
  const qx_status answered =
      answer(device, "qx_set_reference_clock",
             "source=" + std::to_string(source) + " signal=" + std::to_string(signal) +
                 " record=" + preset(status));
  fill(status);
  return answered;
}

qx_status qx_set_tdl_active_masks(qx_device* device, const uint8_t* masks) {
  std::copy_n(masks, 4, Library::instance().masks.begin());
  return answer(device, "qx_set_tdl_active_masks", "masks=" + hex_list(masks));
}

qx_status qx_get_tdl_active_masks(qx_device* device, uint8_t* masks) {
  const qx_status status =
      answer(device, "qx_get_tdl_active_masks", "masks_before=" + hex_list(masks));
  const auto read_back =
      Library::instance().script().read_back_masks.value_or(Library::instance().masks);
  std::copy(read_back.begin(), read_back.end(), masks);
  return status;
}

qx_status qx_set_dac_codes(qx_device* device, const uint16_t* codes) {
  return answer(device, "qx_set_dac_codes", "codes=" + hex_list(codes));
}

qx_status qx_set_input_dead_time(qx_device* device, int64_t dead_time_ps, int64_t* applied_ps) {
  const qx_status status = answer(
      device, "qx_set_input_dead_time",
      "dead_time_ps=" + std::to_string(dead_time_ps) + " applied_before=" + preset(applied_ps));
  *applied_ps = Library::instance().script().applied_dead_time_ps.value_or(dead_time_ps);
  return status;
}

qx_status qx_set_packed_delta_config(qx_device* device, uint8_t bits, uint16_t quantum_ps,
                                     uint8_t* accepted_bits, uint16_t* accepted_quantum_ps) {
  const qx_status status =
      answer(device, "qx_set_packed_delta_config",
             "bits=" + std::to_string(bits) + " quantum_ps=" + std::to_string(quantum_ps) +
                 " accepted_before=" + std::to_string(*accepted_bits) + "," +
                 std::to_string(*accepted_quantum_ps));
  const auto accepted =
      Library::instance().script().accepted_packed.value_or(std::pair(bits, quantum_ps));
  *accepted_bits = accepted.first;
  *accepted_quantum_ps = accepted.second;
  return status;
}

qx_status qx_set_stream_interface(qx_device* device, uint32_t transport, uint32_t format) {
  return answer(device, "qx_set_stream_interface",
                "transport=" + std::to_string(transport) + " format=" + std::to_string(format));
}

qx_status qx_set_stream_channel_mask(qx_device* device, uint8_t mask) {
  return answer(device, "qx_set_stream_channel_mask", "mask=" + hex(mask, 2));
}

qx_status qx_set_calibration_freq(qx_device* device, double frequency_hz, uint32_t* divider) {
  const qx_status status =
      answer(device, "qx_set_calibration_freq",
             "frequency_hz=" + text(frequency_hz) + " divider_before=" + preset(divider));
  *divider = Library::instance().script().divider;
  return status;
}

qx_status qx_enable_calibration_source(qx_device* device) {
  return answer(device, "qx_enable_calibration_source", "");
}

qx_status qx_disable_calibration_source(qx_device* device) {
  return answer(device, "qx_disable_calibration_source", "");
}

qx_status qx_start_stream_mode(qx_device* device, uint32_t mode, uint32_t flags) {
  return answer(device, "qx_start_stream_mode",
                "mode=" + std::to_string(mode) + " flags=" + std::to_string(flags));
}

qx_status qx_stop_stream_mode(qx_device* device, bool flag) {
  return answer(device, "qx_stop_stream_mode", std::string("flag=") + (flag ? "true" : "false"));
}

qx_status qx_read_stream_bytes(qx_device* device, uint8_t* buffer, size_t capacity,
                               size_t* received, int timeout) {
  Library& library = Library::instance();
  const scripted_device::Read read = library.next_read(capacity);
  const bool waits_for_timeout = read.delay_ms == scripted_device::Read::delay_of_timeout;
  library.enter_read();
  std::this_thread::sleep_for(
      std::chrono::milliseconds(waits_for_timeout ? timeout : read.delay_ms));
  library.leave_read();

  const std::string received_before = preset(received);
  std::copy(read.bytes.begin(), read.bytes.end(), buffer);
  *received = read.bytes.size();
  library.log(device, "qx_read_stream_bytes capacity=" + std::to_string(capacity) +
                          " timeout=" + std::to_string(timeout) + result(read.status) +
                          " received=" + std::to_string(*received) +
                          (received_before == "zeroed" ? "" : " received_before=dirty"));
  return read.status;
}

}  // extern "C"
