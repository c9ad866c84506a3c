#include "smoke_test/device_setup.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "smoke_test/report.hpp"
#include "timing/error.hpp"
#include "timing/reference_clock.hpp"

using zelk::timing::Device;
using zelk::timing::Error;
using zelk::timing::Format;
using zelk::timing::Identity;
using zelk::timing::ReferenceClockStatus;

namespace {

void require(qx_status status, const char* operation, const Device& device) {
  if (status != 0) {
    zelk::timing::detail::check(status, operation, device.handle);
  }
}

Identity identify(const Device& device) {
  qx_identity record{};
  require(qx_identify(device.handle, &record), "identify", device);
  return Identity::from_c(record);
}

qx_reference_clock program_reference_clock(const Device& device, const Config& config) {
  qx_reference_clock record{};
  if (config.set_reference) {
    require(qx_set_reference_clock(device.handle, static_cast<std::uint32_t>(config.ref_source),
                                   static_cast<std::uint32_t>(config.ref_signal), &record),
            "set_reference_clock", device);
  } else {
    require(qx_get_reference_clock_status(device.handle, &record), "reference_clock_status",
            device);
  }
  return record;
}

// Statuses of units whose reference clock cannot be controlled; these units
// run on their internal clock and are tested all the same.
bool means_uncontrollable_clock(qx_status status) {
  return status == -3 || status == -4 || status == -7;
}

// Returns the active source as the device numbers it, or -1.
std::int32_t set_up_reference_clock(const Device& device, const Config& config) {
  try {
    const qx_reference_clock record = program_reference_clock(device, config);
    print_ref_status(ReferenceClockStatus::from_c(record), "ref");
    return record.active;
  } catch (const Error& error) {
    if (!means_uncontrollable_clock(error.status)) {
      throw;
    }
    print_ref_unavailable();
    return -1;
  }
}

void set_up_delay_lines(const Device& device, const Config& config, DeviceSettings& settings) {
  std::array<std::uint8_t, zelk::timing::channel_count> requested{};
  requested.fill(config.tdl_mask);
  require(qx_set_tdl_active_masks(device.handle, requested.data()), "set_tdl_active_masks", device);
  require(qx_get_tdl_active_masks(device.handle, settings.tdl_masks.data()), "get_tdl_active_masks",
          device);
}

void set_up_inputs(const Device& device, const Config& config, DeviceSettings& settings) {
  if (std::isfinite(config.threshold_v)) {
    std::array<std::uint16_t, zelk::timing::channel_count> codes{};
    codes.fill(threshold_code(config.threshold_v));
    require(qx_set_dac_codes(device.handle, codes.data()), "set_dac_codes", device);
  }
  if (config.dead_time_ps >= 0) {
    require(
        qx_set_input_dead_time(device.handle, config.dead_time_ps, &settings.applied_dead_time_ps),
        "set_input_dead_time", device);
  }
}

void set_up_stream_format(const Device& device, const Config& config, DeviceSettings& settings) {
  settings.packed_bits = config.packed_bits;
  settings.packed_quantum_ps = config.packed_quantum_ps;
  if (config.format == Format::packed_delta) {
    settings.packed_bits = zelk::timing::wire::packed_delta::default_bits;
    settings.packed_quantum_ps = zelk::timing::wire::packed_delta::default_quantum_ps;
    require(qx_set_packed_delta_config(device.handle, config.packed_bits, config.packed_quantum_ps,
                                       &settings.packed_bits, &settings.packed_quantum_ps),
            "set_packed_delta_config", device);
  }
  require(qx_set_stream_interface(device.handle, static_cast<std::uint32_t>(config.transport),
                                  static_cast<std::uint32_t>(config.format)),
          "set_stream_interface", device);
  require(qx_set_stream_channel_mask(device.handle, config.channel_mask), "set_stream_channels",
          device);
}

void set_up_calibration_source(const Device& device, const Config& config,
                               DeviceSettings& settings) {
  if (config.mode == StreamMode::internal) {
    require(
        qx_set_calibration_freq(device.handle, config.cal_freq_hz, &settings.calibration_divider),
        "set_calibration_freq", device);
    require(qx_enable_calibration_source(device.handle), "enable_calibration_source", device);
  } else {
    require(qx_disable_calibration_source(device.handle), "disable_calibration_source", device);
  }
}

}  // namespace

Device open_device(const Config& config) {
  return config.port.empty() ? Device::open_first(Device::standard_rate)
                             : Device::open(config.port, Device::standard_rate);
}

DeviceSettings set_up_device(Device& device, const Config& config) {
  DeviceSettings settings;
  settings.identity = identify(device);
  settings.calibration_path = calibration_path_for(settings.identity.serial);
  if (config.load_calibration) {
    settings.calibration_loaded = qx_load_calibration(device.handle, 1) == 0;
  }
  settings.active_reference = set_up_reference_clock(device, config);
  set_up_delay_lines(device, config, settings);
  set_up_inputs(device, config, settings);
  set_up_stream_format(device, config, settings);
  set_up_calibration_source(device, config, settings);
  return settings;
}

void start_stream(Device& device, const Config& config) {
  const auto mode = static_cast<std::uint32_t>(config.mode);
  require(qx_start_stream_mode(device.handle, mode, 0), "start_stream(mode)", device);
  device.stream_mode = static_cast<std::int32_t>(mode);
}

zelk::timing::StreamFileHeader stream_header(const Config& config, const DeviceSettings& settings) {
  zelk::timing::StreamFileHeader header;
  header.format = config.format;
  header.mode = config.mode;
  header.transport = config.transport;
  header.channel_mask = config.channel_mask;
  header.packed_bits = settings.packed_bits;
  header.packed_quantum_ps = settings.packed_quantum_ps;
  header.timestamp_layout = zelk::timing::timestamp_layout_for(config.format, config.mode);
  return header;
}

std::string calibration_path_for(std::string_view serial) {
  std::string name(serial.empty() ? "unknown" : serial);
  for (char& c : name) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '-' && c != '_') {
      c = '_';
    }
  }
  return zelk::timing::default_calibration_dir() + "/zelk_cal_" + name + ".cal";
}

std::uint16_t threshold_code(double threshold_v) {
  constexpr double volts_inverse = 0.25;  // full scale is 4 V
  const double fraction = std::clamp(threshold_v * volts_inverse, 0.0, 1.0);
  // NOLINTNEXTLINE(bugprone-incorrect-roundings): never negative
  const auto steps = static_cast<std::uint32_t>(fraction * 65535.0 + 0.5);
  return static_cast<std::uint16_t>(steps + 0x8000);
}
