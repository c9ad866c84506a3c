// Byte probes that something other than the time ends: failures and signals.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <string>

#include "tests/support/parameter_names.hpp"
#include "tests/whole_program/byte_probe_runs.hpp"

namespace zelk::test_support {
namespace {

using namespace std::chrono_literals;
using scripted_device::Script;
using testing::ElementsAre;

void expect_failed(const SmokeTestResult& result, const std::string& error) {
  EXPECT_EQ(result.error, error + "\n");
  EXPECT_EQ(result.output, internal_reference_line);
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_LT(result.duration, 5s);
}

Script device_lost_after_three_tags(qx_status status) {
  Script script = raw64_device(three_tags);
  script.status_texts[status] = "device gone";
  script.last_error = "endpoint stalled";
  script.forever = {.bytes = {1, 2, 3}, .status = status, .delay_ms = 0};
  return script;
}

TEST(ByteProbeFailure, OfAReadEndsTheRunAtOnce) {
  for (const qx_status status : {-12, -7, -4, 1}) {
    const SmokeTestResult result = run_smoke_test(device_lost_after_three_tags(status),
                                                  raw64_probe_arguments({"capture_s=30"}));
    expect_failed(result, "read_stream_bytes: device gone (endpoint stalled)");
    const std::string number = std::to_string(status);
    EXPECT_THAT(
        calls_from_start(result),
        ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                    "qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=24",
                    "qx_read_stream_bytes capacity=65536 timeout=20 -> " + number + " received=3",
                    "qx_last_error", "qx_status_string status=" + number,
                    "qx_stop_stream_mode flag=true -> 0", "qx_close"));
  }
}

TEST(ByteProbeFailure, OfTheStopToAddsNoSecondErrorLine) {
  Script script = device_lost_after_three_tags(-12);
  script.statuses["qx_stop_stream_mode"] = {-11};
  const SmokeTestResult result = run_smoke_test(script, raw64_probe_arguments({"capture_s=30"}));
  expect_failed(result, "read_stream_bytes: device gone (endpoint stalled)");
  EXPECT_EQ(std::ranges::count(result.calls, "qx_stop_stream_mode flag=true -> -11"), 1);
  EXPECT_EQ(result.calls.back(), "qx_close");
}

TEST(ByteProbeFailure, OfTheStopFailsTheRunAfterOneStop) {
  Script script = raw64_device(three_tags);
  script.statuses["qx_stop_stream_mode"] = {-11, 0};
  script.status_texts[-11] = "busy";
  const SmokeTestResult result = run_smoke_test(script, raw64_probe_arguments());
  expect_failed(result, "stop_stream_any: busy");
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                          "qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=24",
                          "qx_stop_stream_mode flag=true -> -11", "qx_last_error",
                          "qx_status_string status=-11", "qx_close"));
}

TEST(ByteProbeFailure, OfStandardOutputFailsTheRun) {
  SmokeTest test(raw64_device(three_tags), raw64_probe_arguments());
  test.program().output = Program::Output::full_device;
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.error, "cannot write the report to standard output\n");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.calls.back(), "qx_close");
}

class EndedByteProbe : public testing::TestWithParam<int> {};

TEST_P(EndedByteProbe, StopsInOrderReportsAndExitsWithTheSignalsStatus) {
  SmokeTest test(raw64_device(three_tags), raw64_probe_arguments({"capture_s=30"}));
  test.program().signals = {{GetParam(), test.log_file(), "received=24", 100ms}};
  const SmokeTestResult result = test.run();
  expect_probe(result, three_tags_report, 128 + GetParam());
  EXPECT_LT(result.duration, 5s);
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                          "qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=24",
                          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

// Without the signal this run would end with 1.
TEST_P(EndedByteProbe, ItsStatusOutranksAMissingByte) {
  SmokeTest test({}, raw64_probe_arguments({"capture_s=30"}));
  test.program().signals = {{GetParam(), test.log_file(), "-> -3", 100ms}};
  expect_probe(test.run(), {}, 128 + GetParam());
}

INSTANTIATE_TEST_SUITE_P(BySignal, EndedByteProbe, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         signal_name);

}  // namespace
}  // namespace zelk::test_support
