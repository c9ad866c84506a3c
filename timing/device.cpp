#include "timing/device.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>
#include <utility>

#include "timing/error.hpp"
#include "timing/wire_format.hpp"

namespace zelk::timing {

using detail::WatchedCall;
using enum CallWatch::Kind;

namespace {

template <std::size_t Width>
std::string text_of(const char (&field)[Width]) {
  return {field, strnlen(field, Width)};
}

using FineTables = std::array<std::vector<std::int64_t>, channel_count>;

template <typename T>
bool read_value(std::istream& in, T& value) {
  return static_cast<bool>(in.read(reinterpret_cast<char*>(&value), sizeof value));
}

// The tables of a fine-time file: "TLUT", version 1, then for each channel a
// 32-bit count and that many 64-bit entries, all in host byte order. Nothing
// unless all four tables are there in full. Anything but a plain file is left
// alone: a pipe could keep its reader waiting for ever.
std::optional<FineTables> load_fine_tables(const char* path) {
  constexpr std::array<char, 4> expected_magic{'T', 'L', 'U', 'T'};
  constexpr std::uint32_t expected_version = 1;
  constexpr std::uint32_t max_entries = 1'048'576;

  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    return std::nullopt;
  }
  std::ifstream in(path, std::ios::binary);
  std::array<char, 4> magic{};
  std::uint32_t version = 0;
  if (!read_value(in, magic) || !read_value(in, version) || magic != expected_magic ||
      version != expected_version) {
    return std::nullopt;
  }
  FineTables tables;
  for (std::vector<std::int64_t>& table : tables) {
    std::uint32_t entries = 0;
    if (!read_value(in, entries) || entries == 0 || entries > max_entries) {
      return std::nullopt;
    }
    table.resize(entries);
    const auto bytes = static_cast<std::streamsize>(entries * sizeof(std::int64_t));
    if (!in.read(reinterpret_cast<char*>(table.data()), bytes)) {
      return std::nullopt;
    }
  }
  return tables;
}

}  // namespace

Identity Identity::from_c(const qx_identity& c) {
  return {.text_a = text_of(c.text_a),
          .text_b = text_of(c.text_b),
          .serial = text_of(c.serial),
          .device_text = text_of(c.device_text)};
}

std::vector<DiscoveredDevice> Device::discover(CallWatch* watch) {
  const WatchedCall call(watch, set_up);
  qx_discovery* raw_list = nullptr;
  if (const qx_status status = qx_discover(&raw_list); status != 0) {
    detail::throw_status(status, "discover", nullptr);
  }
  const std::unique_ptr<qx_discovery, decltype(&qx_discover_free)> list(raw_list,
                                                                        &qx_discover_free);
  std::vector<DiscoveredDevice> devices;
  const std::size_t count = qx_discover_count(list.get());
  devices.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const char* port = qx_discover_port(list.get(), i);
    const qx_identity* identity = qx_discover_identity(list.get(), i);
    devices.push_back({.port = port != nullptr ? port : "",
                       .identity = identity != nullptr ? Identity::from_c(*identity) : Identity{}});
  }
  return devices;
}

Device Device::open(std::string_view port, int rate, CallWatch* watch) {
  const std::string terminated_port(port);
  Device device(watch);
  const WatchedCall call(watch, set_up);
  const qx_status status = rate == standard_rate
                               ? qx_open_serial(&device.handle, terminated_port.c_str())
                               : qx_open(&device.handle, terminated_port.c_str(), rate);
  if (status != 0) {
    detail::throw_status(status, "open", nullptr);
  }
  device.owns = true;
  device.fine_lut.fill(wire::default_fine_correction_table());
  return device;
}

Device Device::open_first(int rate, CallWatch* watch) {
  const std::vector<DiscoveredDevice> devices = discover(watch);
  if (devices.empty()) {
    throw Error("open_first: no ZELK device found", no_device_found_status);
  }
  Device device = open(devices.front().port, rate, watch);
  if (std::optional<FineTables> tables = load_fine_tables("fine_lut.bin")) {
    device.fine_lut = std::move(*tables);
  }
  return device;
}

Device::~Device() {
  if (handle != nullptr && owns) {
    const WatchedCall call(watch_, streaming);
    qx_close(handle);
  }
}

Device::Device(Device&& other) noexcept
    : handle(std::exchange(other.handle, nullptr)),
      owns(std::exchange(other.owns, false)),
      stream_mode(std::exchange(other.stream_mode, 0)),
      fine_lut(std::move(other.fine_lut)),
      watch_(other.watch_) {}

Device& Device::operator=(Device&& other) noexcept {
  Device moved(std::move(other));
  std::swap(handle, moved.handle);
  std::swap(owns, moved.owns);
  std::swap(stream_mode, moved.stream_mode);
  std::swap(fine_lut, moved.fine_lut);
  std::swap(watch_, moved.watch_);
  return *this;
}

void Device::require(qx_status status, const char* operation) const {
  if (status != 0) {
    detail::check(status, operation, handle);
  }
}

Identity Device::identify() {
  const WatchedCall call(watch_, set_up);
  qx_identity record{};
  require(qx_identify(handle, &record), "identify");
  return Identity::from_c(record);
}

bool Device::load_calibration() {
  const WatchedCall call(watch_, set_up);
  return qx_load_calibration(handle, 1) == 0;
}

ReferenceClockStatus Device::reference_clock_status() {
  const WatchedCall call(watch_, set_up);
  qx_reference_clock record{};
  require(qx_get_reference_clock_status(handle, &record), "reference_clock_status");
  return ReferenceClockStatus::from_c(record);
}

ReferenceClockStatus Device::set_reference_clock(ReferenceClockSource source,
                                                 ReferenceSignal signal) {
  const WatchedCall call(watch_, set_up);
  qx_reference_clock record{};
  require(qx_set_reference_clock(handle, static_cast<std::uint32_t>(source),
                                 static_cast<std::uint32_t>(signal), &record),
          "set_reference_clock");
  return ReferenceClockStatus::from_c(record);
}

void Device::set_tdl_active_masks(const PerChannel<std::uint8_t>& masks) {
  const WatchedCall call(watch_, set_up);
  require(qx_set_tdl_active_masks(handle, masks.data()), "set_tdl_active_masks");
}

Device::PerChannel<std::uint8_t> Device::tdl_active_masks() {
  const WatchedCall call(watch_, set_up);
  PerChannel<std::uint8_t> masks{};
  require(qx_get_tdl_active_masks(handle, masks.data()), "get_tdl_active_masks");
  return masks;
}

void Device::set_threshold_codes(const PerChannel<std::uint16_t>& codes) {
  const WatchedCall call(watch_, set_up);
  require(qx_set_dac_codes(handle, codes.data()), "set_dac_codes");
}

std::int64_t Device::set_dead_time(std::int64_t dead_time_ps) {
  const WatchedCall call(watch_, set_up);
  std::int64_t applied_ps = 0;
  require(qx_set_input_dead_time(handle, dead_time_ps, &applied_ps), "set_input_dead_time");
  return applied_ps;
}

PackedDeltaConfig Device::set_packed_delta_config(const PackedDeltaConfig& requested) {
  const WatchedCall call(watch_, set_up);
  PackedDeltaConfig accepted{.bits = wire::packed_delta::default_bits,
                             .quantum_ps = wire::packed_delta::default_quantum_ps};
  require(qx_set_packed_delta_config(handle, requested.bits, requested.quantum_ps, &accepted.bits,
                                     &accepted.quantum_ps),
          "set_packed_delta_config");
  return accepted;
}

void Device::set_stream_interface(Transport transport, Format format) {
  const WatchedCall call(watch_, set_up);
  require(qx_set_stream_interface(handle, static_cast<std::uint32_t>(transport),
                                  static_cast<std::uint32_t>(format)),
          "set_stream_interface");
}

void Device::set_stream_channels(std::uint8_t mask) {
  const WatchedCall call(watch_, set_up);
  require(qx_set_stream_channel_mask(handle, mask), "set_stream_channels");
}

std::uint32_t Device::set_calibration_freq(double frequency_hz) {
  const WatchedCall call(watch_, set_up);
  std::uint32_t divider = 0;
  require(qx_set_calibration_freq(handle, frequency_hz, &divider), "set_calibration_freq");
  return divider;
}

void Device::enable_calibration_source() {
  const WatchedCall call(watch_, set_up);
  require(qx_enable_calibration_source(handle), "enable_calibration_source");
}

void Device::disable_calibration_source() {
  const WatchedCall call(watch_, set_up);
  require(qx_disable_calibration_source(handle), "disable_calibration_source");
}

void Device::start_stream(StreamMode mode) {
  const WatchedCall call(watch_, set_up);
  require(qx_start_stream_mode(handle, static_cast<std::uint32_t>(mode), 0), "start_stream(mode)");
  stream_mode = static_cast<std::int32_t>(mode);
}

std::optional<std::size_t> Device::read_stream_bytes(std::span<std::uint8_t> buffer) {
  const WatchedCall call(watch_, streaming);
  std::size_t received = 0;
  const qx_status status =
      qx_read_stream_bytes(handle, buffer.data(), buffer.size(), &received, read_timeout);
  if (status == read_timeout_status) {
    return std::nullopt;
  }
  require(status, "read_stream_bytes");
  return std::min(received, buffer.size());
}

void Device::stop_stream_any(bool flag) {
  const WatchedCall call(watch_, streaming);
  require(qx_stop_stream_mode(handle, flag), "stop_stream_any");
}

void Device::stop_stream_quietly(bool flag) noexcept {
  const WatchedCall call(watch_, streaming);
  qx_stop_stream_mode(handle, flag);
}

std::string default_calibration_dir() {
  const char* home = std::getenv("HOME");
  const std::string base = home != nullptr && *home != '\0' ? home : ".";
  return base + "/.zelk.timing/calibrations";
}

}  // namespace zelk::timing
