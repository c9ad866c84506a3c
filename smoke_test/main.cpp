// The smoke test as a table of contents: arguments, device, stream, capture,
// analysis, report, verdict.
#include <algorithm>
#include <exception>
#include <new>
#include <string_view>
#include <vector>

#include "smoke_test/active_stream.hpp"
#include "smoke_test/analysis.hpp"
#include "smoke_test/byte_probe.hpp"
#include "smoke_test/capture.hpp"
#include "smoke_test/config.hpp"
#include "smoke_test/device_setup.hpp"
#include "smoke_test/help.hpp"
#include "smoke_test/options.hpp"
#include "smoke_test/report.hpp"
#include "smoke_test/run_watch.hpp"
#include "smoke_test/standard_streams.hpp"
#include "smoke_test/verdict.hpp"

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

int test_stream(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
                const DeviceSettings& settings, RunWatch& watch) {
  watch.end_set_up();
  const zelk::timing::StreamFileHeader header = stream_header(config, settings);
  if (config.byte_probe) {
    return report_byte_probe(config, settings, probe_bytes(device, stream, config, header, watch));
  }
  return report_capture(config, settings, capture_tags(device, stream, config, header, watch));
}

int test_device(zelk::timing::Device& device, const Config& config, RunWatch& watch) {
  const DeviceSettings settings = set_up_device(device, config);
  device.start_stream(config.mode);
  ActiveStream stream(device);
  return watch.attempt("the analysis",
                       [&] { return test_stream(device, stream, config, settings, watch); });
}

int run_smoke_test(const Config& config) {
  RunWatch watch;
  zelk::timing::Device device =
      watch.attempt("the set-up", [&] { return open_device(config, &watch); });
  const int status =
      watch.attempt("the set-up", [&] { return test_device(device, config, watch); });
  watch.watchdog.settle(status);
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
  prepare_standard_streams();
  try {
    return run({argv + std::min(argc, 1), argv + argc});
  } catch (const FailedRun& failed) {
    return failed.status;
  } catch (const std::bad_alloc&) {
    print_error("not enough memory for the arguments");
    return exit_failure;
  } catch (const std::exception& error) {
    print_error(error.what());
    return exit_failure;
  }
}
