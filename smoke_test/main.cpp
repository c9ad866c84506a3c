// The smoke test as a table of contents: arguments, device, stream, capture,
// analysis, report, verdict.
#include <algorithm>
#include <exception>
#include <iostream>
#include <string_view>
#include <vector>

#include "smoke_test/active_stream.hpp"
#include "smoke_test/analysis.hpp"
#include "smoke_test/byte_probe.hpp"
#include "smoke_test/capture.hpp"
#include "smoke_test/config.hpp"
#include "smoke_test/device_setup.hpp"
#include "smoke_test/help.hpp"
#include "smoke_test/interrupt.hpp"
#include "smoke_test/options.hpp"
#include "smoke_test/report.hpp"
#include "smoke_test/verdict.hpp"
#include "smoke_test/watchdog.hpp"

namespace {

Config parse_arguments(const std::vector<std::string_view>& arguments) {
  Config config;
  for (const std::string_view argument : arguments) {
    apply_argument(config, argument);
  }
  validate(config);
  return config;
}

int report_capture(const Config& config, const DeviceSettings& settings, const Capture& capture) {
  const Analysis analysis =
      analyse(capture, config.channel_a, config.channel_b, config.coincidence_window_ps);
  print_report(config, settings, analysis);
  finish_report();
  return verdict(analysis.pair.tags_a, analysis.pair.tags_b, analysis.pair.coincidences,
                 capture.interrupting_signal);
}

int report_byte_probe(const Config& config, const DeviceSettings& settings,
                      const ByteProbe& probe) {
  print_byte_probe(config, settings.identity, probe);
  finish_report();
  return byte_probe_verdict(probe.payload_bytes, probe.interrupting_signal);
}

int run_smoke_test(const Config& config) {
  Watchdog watchdog;
  watchdog.kick(Watchdog::set_up_limit);
  zelk::timing::Device device = open_device(config);
  const DeviceSettings settings = set_up_device(device, config);
  device.start_stream(config.mode);
  ActiveStream stream(device);
  const zelk::timing::StreamFileHeader header = stream_header(config, settings);

  int status = exit_failure;
  if (config.byte_probe) {
    const ByteProbe probe = probe_bytes(device, stream, config, header, watchdog);
    watchdog.rest();
    status = report_byte_probe(config, settings, probe);
  } else {
    const Capture capture = capture_tags(device, stream, config, header, watchdog);
    watchdog.rest();
    status = report_capture(config, settings, capture);
  }
  watchdog.kick(Watchdog::streaming_limit);  // over the closing of the device
  return status;
}

int run(const std::vector<std::string_view>& arguments) {
  const auto given = [&arguments](std::string_view flag) {
    return std::ranges::find(arguments, flag) != arguments.end();
  };
  const bool help = given("--help") || given("-h");
  if (help || given("--version")) {
    help ? print_help() : print_version();
    finish_report();
    return exit_success;
  }
  return run_smoke_test(parse_arguments(arguments));
}

}  // namespace

int main(int argc, char** argv) {
  ignore_closed_pipes();
  try {
    return run({argv + std::min(argc, 1), argv + argc});
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return exit_failure;
  }
}
