// The C interface of the simulated device library: checks of pointers, calls in
// plain numbers, and the translation of failures into statuses. No exception
// leaves a function, and nothing is ever printed.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
#include "timing/c_api/zelk_timing.h"
#pragma GCC visibility pop

#include "simulator/call_records.hpp"
#include "simulator/device_backend.hpp"
#include "simulator/discovery.hpp"
#include "simulator/failure.hpp"
#include "simulator/open_backend.hpp"
#include "simulator/status_texts.hpp"
#include "timing/time_tag.hpp"

namespace {

using zelk::simulator::CallKind;
using zelk::simulator::clock_from_words;
using zelk::simulator::clock_to_words;
using zelk::simulator::DeviceBackend;
using zelk::simulator::DeviceCall;
using zelk::simulator::DiscoveredUnit;
using zelk::simulator::Failure;
using zelk::simulator::FaultFailure;
using zelk::simulator::ForwardedFailure;
using zelk::simulator::from_words;
using zelk::simulator::identity_from_words;
using zelk::simulator::identity_to_words;
using zelk::simulator::Status;
using zelk::simulator::StatusTexts;
using zelk::simulator::to_words;
using zelk::timing::channel_count;

qx_status code(Status status) noexcept {
  return static_cast<qx_status>(status);
}

// The text of a refusal by this library. `text` itself may be too long for what
// memory is left.
void remember(std::optional<std::string>* detail, const char* text) noexcept {
  if (detail == nullptr) {
    return;
  }
  try {
    *detail = text;
  } catch (...) {
    *detail = std::string();
  }
}

qx_status refused(std::optional<std::string>* detail, Status status, const char* text) noexcept {
  remember(detail, text);
  StatusTexts::instance().answered_here(code(status));
  return code(status);
}

// Runs `action` and returns its status; what it throws becomes a status, and
// `detail` its text. Without a device there is no detail: then the text of the
// status says why a request was refused.
template <typename Action>
qx_status guarded(std::optional<std::string>* detail, Action&& action) noexcept {
  try {
    if (detail != nullptr) {
      detail->reset();
    }
    return action();
  } catch (const ForwardedFailure& failure) {
    StatusTexts::instance().answered_elsewhere(code(failure.status()), failure.status_text());
    return code(failure.status());
  } catch (const FaultFailure& failure) {
    return refused(detail, failure.status(), failure.what());
  } catch (const Failure& failure) {
    if (detail == nullptr) {
      StatusTexts::instance().refused_without_device(code(failure.status()), failure.what());
      return code(failure.status());
    }
    return refused(detail, failure.status(), failure.what());
  } catch (const std::bad_alloc&) {
    return refused(detail, Status::out_of_memory, "out of memory");
  } catch (const std::exception& error) {
    return refused(detail, Status::internal_error, error.what());
  } catch (...) {
    return refused(detail, Status::internal_error, "unknown error");
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
      : backend(zelk::simulator::open_backend(port, rate)) {}

  std::unique_ptr<DeviceBackend> backend;
  std::optional<std::string> refusal;  // the last error, when this library refused
};

struct qx_discovery {
  std::vector<DiscoveredUnit> units;
};

namespace {

// Null for an index outside the list.
const DiscoveredUnit* discovered(const qx_discovery* list, std::size_t index) noexcept {
  return list != nullptr && index < list->units.size() ? &list->units[index] : nullptr;
}

// Runs `action` on what stands behind `device`.
template <typename Action>
qx_status on_device(qx_device* device, Action&& action) noexcept {
  if (device == nullptr) {
    return refused(nullptr, Status::invalid_argument, "");
  }
  return guarded(&device->refusal, [&] { return action(*device->backend); });
}

// A call that nothing but its status comes back from.
template <typename... Arguments>
qx_status plain_call(qx_device* device, CallKind kind, Arguments... arguments) noexcept {
  return on_device(device, [&](DeviceBackend& backend) {
    DeviceCall call{.kind = kind, .arguments = {static_cast<std::uint64_t>(arguments)...}};
    return backend.call(call);
  });
}

qx_status open_at(qx_device** device, const char* port, std::optional<int> rate) noexcept {
  return guarded(nullptr, [&] {
    *required(device, "device") = nullptr;
    // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): guarded() handles it
    *device = new qx_device(required(port, "port"), rate);
    return code(Status::success);
  });
}

}  // namespace

qx_status qx_discover(qx_discovery** list) {
  return guarded(nullptr, [&] {
    *required(list, "list") = nullptr;
    *list = new qx_discovery{
        zelk::simulator::discovered_units(std::getenv(zelk::simulator::discovery_variable))};
    return code(Status::success);
  });
}

size_t qx_discover_count(const qx_discovery* list) {
  return list != nullptr ? list->units.size() : 0;
}

const char* qx_discover_port(const qx_discovery* list, size_t index) {
  const DiscoveredUnit* const unit = discovered(list, index);
  return unit != nullptr && unit->port ? unit->port->c_str() : nullptr;
}

const qx_identity* qx_discover_identity(const qx_discovery* list, size_t index) {
  const DiscoveredUnit* const unit = discovered(list, index);
  return unit != nullptr && unit->identity ? &*unit->identity : nullptr;
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

// The calls below hand what the caller's memory holds to the device and write
// back what the device left of it, whatever the status: a tapped device meets
// the same memory as without a tap.

qx_status qx_identify(qx_device* device, qx_identity* identity) {
  return on_device(device, [&](DeviceBackend& backend) {
    DeviceCall call{.kind = CallKind::identify};
    identity_to_words(*required(identity, "identity"), call.results);
    const qx_status status = backend.call(call);
    *identity = identity_from_words(call.results);
    return status;
  });
}

const char* qx_status_string(qx_status status) {
  return StatusTexts::instance().text(status);
}

const char* qx_last_error(const qx_device* device) {
  if (device == nullptr) {
    return "";
  }
  return device->refusal ? device->refusal->c_str() : device->backend->last_error();
}

qx_status qx_load_calibration(qx_device* device, int flag) {
  return plain_call(device, CallKind::load_calibration, flag);
}

qx_status qx_get_reference_clock_status(qx_device* device, qx_reference_clock* status) {
  return on_device(device, [&](DeviceBackend& backend) {
    DeviceCall call{.kind = CallKind::get_reference_clock_status};
    clock_to_words(*required(status, "status"), call.results);
    const qx_status result = backend.call(call);
    *status = clock_from_words(call.results);
    return result;
  });
}

qx_status qx_set_reference_clock(qx_device* device, uint32_t source, uint32_t signal,
                                 qx_reference_clock* status) {
  return on_device(device, [&](DeviceBackend& backend) {
    DeviceCall call{.kind = CallKind::set_reference_clock, .arguments = {source, signal}};
    clock_to_words(*required(status, "status"), call.results);
    const qx_status result = backend.call(call);
    *status = clock_from_words(call.results);
    return result;
  });
}

qx_status qx_set_tdl_active_masks(qx_device* device, const uint8_t* masks) {
  return on_device(device, [&](DeviceBackend& backend) {
    DeviceCall call{.kind = CallKind::set_tdl_active_masks};
    to_words(required(masks, "masks"), channel_count, call.arguments);
    return backend.call(call);
  });
}

qx_status qx_get_tdl_active_masks(qx_device* device, uint8_t* masks) {
  return on_device(device, [&](DeviceBackend& backend) {
    DeviceCall call{.kind = CallKind::get_tdl_active_masks};
    to_words(required(masks, "masks"), channel_count, call.results);
    const qx_status status = backend.call(call);
    from_words(call.results, channel_count, masks);
    return status;
  });
}

qx_status qx_set_dac_codes(qx_device* device, const uint16_t* codes) {
  return on_device(device, [&](DeviceBackend& backend) {
    DeviceCall call{.kind = CallKind::set_dac_codes};
    to_words(required(codes, "codes"), channel_count, call.arguments);
    return backend.call(call);
  });
}

qx_status qx_set_input_dead_time(qx_device* device, int64_t dead_time_ps, int64_t* applied_ps) {
  return on_device(device, [&](DeviceBackend& backend) {
    DeviceCall call{.kind = CallKind::set_input_dead_time,
                    .arguments = {static_cast<std::uint64_t>(dead_time_ps)}};
    to_words(required(applied_ps, "applied_ps"), 1, call.results);
    const qx_status status = backend.call(call);
    from_words(call.results, 1, applied_ps);
    return status;
  });
}

qx_status qx_set_packed_delta_config(qx_device* device, uint8_t bits, uint16_t quantum_ps,
                                     uint8_t* accepted_bits, uint16_t* accepted_quantum_ps) {
  return on_device(device, [&](DeviceBackend& backend) {
    DeviceCall call{.kind = CallKind::set_packed_delta_config, .arguments = {bits, quantum_ps}};
    call.results[0] = *required(accepted_bits, "accepted_bits");
    call.results[1] = *required(accepted_quantum_ps, "accepted_quantum_ps");
    const qx_status status = backend.call(call);
    *accepted_bits = static_cast<std::uint8_t>(call.results[0]);
    *accepted_quantum_ps = static_cast<std::uint16_t>(call.results[1]);
    return status;
  });
}

qx_status qx_set_stream_interface(qx_device* device, uint32_t transport, uint32_t format) {
  return plain_call(device, CallKind::set_stream_interface, transport, format);
}

qx_status qx_set_stream_channel_mask(qx_device* device, uint8_t mask) {
  return plain_call(device, CallKind::set_stream_channel_mask, mask);
}

qx_status qx_set_calibration_freq(qx_device* device, double frequency_hz, uint32_t* divider) {
  return on_device(device, [&](DeviceBackend& backend) {
    DeviceCall call{.kind = CallKind::set_calibration_freq,
                    .arguments = {std::bit_cast<std::uint64_t>(frequency_hz)}};
    call.results[0] = *required(divider, "divider");
    const qx_status status = backend.call(call);
    *divider = static_cast<std::uint32_t>(call.results[0]);
    return status;
  });
}

qx_status qx_enable_calibration_source(qx_device* device) {
  return plain_call(device, CallKind::enable_calibration_source);
}

qx_status qx_disable_calibration_source(qx_device* device) {
  return plain_call(device, CallKind::disable_calibration_source);
}

qx_status qx_start_stream_mode(qx_device* device, uint32_t mode, uint32_t flags) {
  return plain_call(device, CallKind::start_stream_mode, mode, flags);
}

qx_status qx_stop_stream_mode(qx_device* device, bool flag) {
  return plain_call(device, CallKind::stop_stream_mode, flag);
}

qx_status qx_read_stream_bytes(qx_device* device, uint8_t* buffer, size_t capacity,
                               size_t* received, int timeout) {
  return on_device(device, [&](DeviceBackend& backend) {
    std::size_t& count = *required(received, "received");
    return backend.read({required(buffer, "buffer"), capacity}, count, timeout);
  });
}
