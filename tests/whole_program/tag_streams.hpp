// Runs over a stream of hand-picked tags.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/smoke_test_run.hpp"
#include "tests/support/wire_words.hpp"
#include "tests/whole_program/expected_report.hpp"

namespace zelk::test_support {

// Long enough for the reader thread to deliver a scripted stream, also on a
// busy machine.
inline constexpr const char* capture = "capture_s=1";

struct Tag {
  unsigned channel;
  std::uint64_t time_ps;
};

// A device that sends these tags as raw64 records in picoseconds, in one read,
// and then nothing more.
inline scripted_device::Script raw64_device(const std::vector<Tag>& tags) {
  Bytes bytes;
  for (const Tag& tag : tags) {
    append_big_endian(bytes, ps_record(tag.channel, tag.time_ps), 8);
  }
  return {.reads = {{.bytes = std::move(bytes)}}};
}

// The calls of a run with the default settings up to the start of its stream,
// and then these.
inline std::vector<std::string> default_set_up_then(const std::vector<std::string>& more) {
  std::vector<std::string> calls{
      "qx_open_serial port=ftdi:// -> 0",
      "qx_identify record=zeroed -> 0",
      "qx_load_calibration flag=1 -> 0",
      "qx_set_reference_clock source=1 signal=0 record=zeroed -> 0",
      "qx_set_tdl_active_masks masks=07,07,07,07 -> 0",
      "qx_get_tdl_active_masks masks_before=00,00,00,00 -> 0",
      "qx_set_packed_delta_config bits=16 quantum_ps=8 accepted_before=16,8 -> 0",
      "qx_set_stream_interface transport=1 format=2 -> 0",
      "qx_set_stream_channel_mask mask=0c -> 0",
      "qx_set_calibration_freq frequency_hz=10000 divider_before=zeroed -> 0",
      "qx_enable_calibration_source -> 0",
      "qx_start_stream_mode mode=0 flags=0 -> 0"};
  calls.insert(calls.end(), more.begin(), more.end());
  return calls;
}

inline std::vector<std::string> raw64_arguments(std::vector<std::string> more = {}) {
  std::vector<std::string> arguments{"format=raw64", "mode=external", capture};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

// The calls from the start of the stream to the end, without time-outs.
inline std::vector<std::string> calls_from_start(const SmokeTestResult& result) {
  std::vector<std::string> calls = scripted_device::without_timeouts(result.calls);
  const auto start = std::find_if(calls.begin(), calls.end(), [](const std::string& call) {
    return call.starts_with("qx_start_stream_mode");
  });
  calls.erase(calls.begin(), start);
  return calls;
}

inline void expect_report(const SmokeTestResult& result, const ExpectedReport& expected,
                          int exit_status) {
  EXPECT_EQ(result.output, expected.text());
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, exit_status);
}

inline void expect_report_of(const std::vector<Tag>& tags, std::vector<std::string> more_arguments,
                             const ExpectedReport& expected, int exit_status) {
  expect_report(run_smoke_test(raw64_device(tags), raw64_arguments(std::move(more_arguments))),
                expected, exit_status);
}

}  // namespace zelk::test_support
