// The C interface of the simulated device library: checks of pointers, and the
// translation of failures into statuses. No exception leaves a function, and
// nothing is ever printed.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>

#pragma GCC visibility push(default)
#include "timing/c_api/zelk_timing.h"
#pragma GCC visibility pop

#include "simulator/device_model.hpp"
#include "simulator/device_port.hpp"
#include "simulator/failure.hpp"
#include "simulator/open_device_model.hpp"
#include "simulator/unit.hpp"

namespace {

using zelk::simulator::default_unit_port;
using zelk::simulator::DeviceModel;
using zelk::simulator::Failure;
using zelk::simulator::Status;

qx_status code(Status status) noexcept {
  return static_cast<qx_status>(status);
}

void forget(std::string* detail) noexcept {
  if (detail != nullptr) {
    detail->clear();
  }
}

// `text` itself may be too long for what memory is left.
void remember(std::string* detail, const char* text) noexcept {
  try {
    if (detail != nullptr) {
      *detail = text;
    }
  } catch (...) {
    detail->clear();
  }
}

// Runs `action`; what it throws becomes a status, and `detail` (when there is
// one) its text. Success clears the text.
template <typename Action>
qx_status guarded(std::string* detail, Action&& action) noexcept {
  try {
    action();
    forget(detail);
    return code(Status::success);
  } catch (const Failure& failure) {
    remember(detail, failure.what());
    return code(failure.status());
  } catch (const std::bad_alloc&) {
    remember(detail, "out of memory");
    return code(Status::out_of_memory);
  } catch (const std::exception& error) {
    remember(detail, error.what());
    return code(Status::internal_error);
  } catch (...) {
    remember(detail, "unknown error");
    return code(Status::internal_error);
  }
}

template <typename Pointer>
Pointer required(Pointer pointer, const char* name) {
  if (pointer == nullptr) {
    throw Failure(Status::invalid_argument, std::string("null pointer for ") + name);
  }
  return pointer;
}

}  // namespace

struct qx_device {
  qx_device(const char* port, std::optional<int> rate)
      : model(zelk::simulator::open_device_model(port, rate)) {}

  std::unique_ptr<DeviceModel> model;
  std::string last_error;
};

struct qx_discovery {
  qx_identity identity;
};

namespace {

constexpr std::size_t discovered_units = 1;

// Runs `action` on the model behind `device`.
template <typename Action>
qx_status on_model(qx_device* device, Action&& action) noexcept {
  if (device == nullptr) {
    return code(Status::invalid_argument);
  }
  return guarded(&device->last_error, [&] { action(*device->model); });
}

qx_status open_at(qx_device** device, const char* port, std::optional<int> rate) noexcept {
  return guarded(nullptr, [&] {
    *required(device, "device") = nullptr;
    *device = new qx_device(required(port, "port"), rate);
  });
}

}  // namespace

qx_status qx_discover(qx_discovery** list) {
  return guarded(nullptr, [&] {
    *required(list, "list") = nullptr;
    *list = new qx_discovery{
        zelk::simulator::unit_identity(zelk::simulator::parse_device_port(default_unit_port))};
  });
}

size_t qx_discover_count(const qx_discovery* list) {
  return list != nullptr ? discovered_units : 0;
}

const char* qx_discover_port(const qx_discovery* list, size_t index) {
  return index < qx_discover_count(list) ? default_unit_port.data() : nullptr;
}

const qx_identity* qx_discover_identity(const qx_discovery* list, size_t index) {
  return index < qx_discover_count(list) ? &list->identity : nullptr;
}

void qx_discover_free(qx_discovery* list) {
  delete list;
}

qx_status qx_open_serial(qx_device** device, const char* port) {
  return open_at(device, port, std::nullopt);
}

qx_status qx_open(qx_device** device, const char* port, int rate) {
  return open_at(device, port, rate);
}

void qx_close(qx_device* device) {
  delete device;
}

qx_status qx_identify(qx_device* device, qx_identity* identity) {
  return on_model(device,
                  [&](DeviceModel& model) { *required(identity, "identity") = model.identity(); });
}

const char* qx_status_string(qx_status status) {
  return zelk::simulator::status_text(status);
}

const char* qx_last_error(const qx_device* device) {
  return device != nullptr ? device->last_error.c_str() : "";
}

qx_status qx_load_calibration(qx_device* device, int flag) {
  return on_model(device, [&](DeviceModel& model) { model.load_calibration(flag); });
}

qx_status qx_get_reference_clock_status(qx_device* device, qx_reference_clock* status) {
  return on_model(
      device, [&](DeviceModel& model) { *required(status, "status") = model.reference_clock(); });
}

qx_status qx_set_reference_clock(qx_device* device, uint32_t source, uint32_t signal,
                                 qx_reference_clock* status) {
  return on_model(device, [&](DeviceModel& model) {
    required(status, "status");
    *status = model.set_reference_clock(source, signal);
  });
}

qx_status qx_set_tdl_active_masks(qx_device* device, const uint8_t* masks) {
  return on_model(device, [&](DeviceModel& model) {
    model.set_delay_line_masks(std::span<const std::uint8_t, zelk::timing::channel_count>(
        required(masks, "masks"), zelk::timing::channel_count));
  });
}

qx_status qx_get_tdl_active_masks(qx_device* device, uint8_t* masks) {
  return on_model(device, [&](DeviceModel& model) {
    required(masks, "masks");
    const DeviceModel::DelayLineMasks active = model.delay_line_masks();
    std::copy(active.begin(), active.end(), masks);
  });
}

qx_status qx_set_dac_codes(qx_device* device, const uint16_t* codes) {
  return on_model(device, [&](DeviceModel& model) {
    model.set_threshold_codes(std::span<const std::uint16_t, zelk::timing::channel_count>(
        required(codes, "codes"), zelk::timing::channel_count));
  });
}

qx_status qx_set_input_dead_time(qx_device* device, int64_t dead_time_ps, int64_t* applied_ps) {
  return on_model(device, [&](DeviceModel& model) {
    required(applied_ps, "applied_ps");
    *applied_ps = model.set_dead_time(dead_time_ps);
  });
}

qx_status qx_set_packed_delta_config(qx_device* device, uint8_t bits, uint16_t quantum_ps,
                                     uint8_t* accepted_bits, uint16_t* accepted_quantum_ps) {
  return on_model(device, [&](DeviceModel& model) {
    required(accepted_bits, "accepted_bits");
    required(accepted_quantum_ps, "accepted_quantum_ps");
    const auto accepted = model.set_packed_delta(bits, quantum_ps);
    *accepted_bits = accepted.bits;
    *accepted_quantum_ps = accepted.quantum_ps;
  });
}

qx_status qx_set_stream_interface(qx_device* device, uint32_t transport, uint32_t format) {
  return on_model(device,
                  [&](DeviceModel& model) { model.set_stream_interface(transport, format); });
}

qx_status qx_set_stream_channel_mask(qx_device* device, uint8_t mask) {
  return on_model(device, [&](DeviceModel& model) { model.set_channel_mask(mask); });
}

qx_status qx_set_calibration_freq(qx_device* device, double frequency_hz, uint32_t* divider) {
  return on_model(device, [&](DeviceModel& model) {
    required(divider, "divider");
    *divider = model.set_calibration_frequency(frequency_hz);
  });
}

qx_status qx_enable_calibration_source(qx_device* device) {
  return on_model(device, [](DeviceModel& model) { model.enable_calibration_source(true); });
}

qx_status qx_disable_calibration_source(qx_device* device) {
  return on_model(device, [](DeviceModel& model) { model.enable_calibration_source(false); });
}

qx_status qx_start_stream_mode(qx_device* device, uint32_t mode, uint32_t flags) {
  return on_model(device, [&](DeviceModel& model) { model.start_stream(mode, flags); });
}

qx_status qx_stop_stream_mode(qx_device* device, bool flag) {
  return on_model(device, [&](DeviceModel& model) { model.stop_stream(flag); });
}

qx_status qx_read_stream_bytes(qx_device* device, uint8_t* buffer, size_t capacity,
                               size_t* received, int timeout) {
  return on_model(device, [&](DeviceModel& model) {
    *required(received, "received") = 0;
    const std::span<std::uint8_t> room(required(buffer, "buffer"), capacity);
    *received = model.read_stream(room, std::chrono::milliseconds(std::max(timeout, 0)));
  });
}
