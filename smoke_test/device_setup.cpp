#include "smoke_test/device_setup.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "smoke_test/report.hpp"
#include "smoke_test/unit_list.hpp"
#include "timing/error.hpp"
#include "timing/reference_clock.hpp"

using zelk::timing::Device;
using zelk::timing::Error;
using zelk::timing::fixed_clock_statuses;
using zelk::timing::Format;
using zelk::timing::ReferenceClockStatus;

namespace {

// A unit whose reference clock cannot be controlled runs on its internal clock and
// is tested all the same.
void set_up_reference_clock(Device& device, const Config& config, DeviceSettings& settings) {
  try {
    const ReferenceClockStatus status =
        config.set_reference ? device.set_reference_clock(config.ref_source, config.ref_signal)
                             : device.reference_clock_status();
    print_ref_status(status, "ref");
    settings.reference = status;
    settings.active_reference = static_cast<std::int32_t>(status.active);
  } catch (const Error& error) {
    if (std::ranges::find(fixed_clock_statuses, error.status) == fixed_clock_statuses.end()) {
      throw;
    }
    print_ref_unavailable();
  }
}

void set_up_inputs(Device& device, const Config& config, DeviceSettings& settings) {
  Device::PerChannel<std::uint8_t> delay_lines{};
  delay_lines.fill(config.tdl_mask);
  device.set_tdl_active_masks(delay_lines);
  settings.tdl_masks = device.tdl_active_masks();
  if (std::isfinite(config.threshold_v)) {
    Device::PerChannel<std::uint16_t> codes{};
    codes.fill(threshold_code(config.threshold_v));
    device.set_threshold_codes(codes);
  }
  if (config.dead_time_ps >= 0) {
    settings.applied_dead_time_ps = device.set_dead_time(config.dead_time_ps);
  }
}

void set_up_stream_format(Device& device, const Config& config, DeviceSettings& settings) {
  settings.packed = {.bits = config.packed_bits, .quantum_ps = config.packed_quantum_ps};
  if (config.format == Format::packed_delta) {
    settings.packed = device.set_packed_delta_config(settings.packed);
  }
  device.set_stream_interface(config.transport, config.format);
  device.set_stream_channels(config.channel_mask);
}

void set_up_calibration_source(Device& device, const Config& config, DeviceSettings& settings) {
  if (config.mode == StreamMode::internal) {
    settings.calibration_divider = device.set_calibration_freq(config.cal_freq_hz);
    device.enable_calibration_source();
  } else {
    device.disable_calibration_source();
  }
}

}  // namespace

void choose_unit(Config& config, zelk::timing::CallWatch* watch) {
  if (!config.serial.empty()) {
    config.port = port_of_unit(Device::discover(watch), config.serial);
  }
}

Device open_device(const Config& config, zelk::timing::CallWatch* watch) {
  return config.port.empty() ? Device::open_first(Device::standard_rate, watch)
                             : Device::open(config.port, Device::standard_rate, watch);
}

void set_up_device(Device& device, const Config& config, DeviceSettings& settings) {
  settings.identity = device.identify();
  settings.calibration_path = calibration_path_for(settings.identity.serial);
  settings.calibration_loaded = config.load_calibration && device.load_calibration();
  set_up_reference_clock(device, config, settings);
  set_up_inputs(device, config, settings);
  set_up_stream_format(device, config, settings);
  set_up_calibration_source(device, config, settings);
}

zelk::timing::StreamFileHeader stream_header(const Config& config, const DeviceSettings& settings) {
  zelk::timing::StreamFileHeader header;
  header.format = config.format;
  header.mode = config.mode;
  header.transport = config.transport;
  header.channel_mask = config.channel_mask;
  header.packed_bits = settings.packed.bits;
  header.packed_quantum_ps = settings.packed.quantum_ps;
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
  constexpr double volts_inverse = 1.0 / highest_threshold_v;  // a power of two, so exact
  const double fraction = std::clamp(threshold_v * volts_inverse, 0.0, 1.0);
  // NOLINTNEXTLINE(bugprone-incorrect-roundings): never negative
  const auto steps = static_cast<std::uint32_t>(fraction * 65535.0 + 0.5);
  return static_cast<std::uint16_t>(steps + 0x8000);
}
