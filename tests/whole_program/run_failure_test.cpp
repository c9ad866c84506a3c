// Runs that fail after the stream was started: one error line, no report, the
// stream stopped once and the handle closed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using scripted_device::Script;
using testing::ElementsAre;

void expect_failed(const SmokeTestResult& result, const std::string& error) {
  EXPECT_EQ(result.error, error + "\n");
  EXPECT_EQ(result.output, internal_reference_line);
  EXPECT_EQ(result.exit_status, 2);
}

Script device_lost_after(std::vector<scripted_device::Read> reads) {
  return {.status_texts = {{-12, "device gone"}, {-11, "busy"}},
          .last_error = "endpoint stalled",
          .reads = std::move(reads),
          .forever = {.bytes = {}, .status = -12, .delay_ms = 0}};
}

TEST(ReadFailure, InMidCaptureEndsTheRunAtOnce) {
  const Bytes tags = big_endian_64({ps_record(0, 5000), ps_record(1, 5100)});
  const SmokeTestResult result = run_smoke_test(
      device_lost_after({{.bytes = tags}, {.bytes = {}, .status = -3, .delay_ms = 100}}),
      raw64_arguments({"capture_s=30"}));
  expect_failed(result, "read_stream_bytes: device gone (endpoint stalled)");
  EXPECT_LT(result.duration.count(), 5000);
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=16",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> -12 received=0",
                          "qx_last_error", "qx_status_string status=-12",
                          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

TEST(ReadFailure, OfTheVeryFirstReadEndsTheRunAtOnce) {
  const SmokeTestResult result =
      run_smoke_test(device_lost_after({}), raw64_arguments({"capture_s=30"}));
  expect_failed(result, "read_stream_bytes: device gone (endpoint stalled)");
  EXPECT_LT(result.duration.count(), 5000);
}

TEST(ReadFailure, WithoutALastErrorHasNoParentheses) {
  for (const auto& none : {std::optional<std::string>(), std::optional<std::string>("")}) {
    Script script = device_lost_after({});
    script.last_error = none;
    expect_failed(run_smoke_test(script, raw64_arguments({"capture_s=30"})),
                  "read_stream_bytes: device gone");
  }
}

// The failing read is still under way when the capture time is over.
TEST(ReadFailure, AfterTheLastDrainFailsTheRunToo) {
  const SmokeTestResult result =
      run_smoke_test(device_lost_after({{.bytes = {}, .status = -12, .delay_ms = 600}}),
                     raw64_arguments({"capture_s=0.1"}));
  expect_failed(result, "read_stream_bytes: device gone (endpoint stalled)");
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> -12 received=0",
                          "qx_last_error", "qx_status_string status=-12",
                          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

TEST(ReadFailure, StopThatFailsTooAddsNoSecondErrorLine) {
  Script script = device_lost_after({});
  script.statuses["qx_stop_stream_mode"] = {-11};
  const SmokeTestResult result = run_smoke_test(script, raw64_arguments({"capture_s=30"}));
  expect_failed(result, "read_stream_bytes: device gone (endpoint stalled)");
  EXPECT_EQ(
      std::count(result.calls.begin(), result.calls.end(), "qx_stop_stream_mode flag=true -> -11"),
      1);
  EXPECT_EQ(result.calls.back(), "qx_close");
}

TEST(StopFailure, AtTheRegularEndFailsTheRunAfterOneStop) {
  Script script = raw64_device({{0, 5000}, {1, 5100}});
  script.statuses["qx_stop_stream_mode"] = {-11, 0};
  script.status_texts[-11] = "busy";
  script.last_error = "FIFO not empty";
  const SmokeTestResult result = run_smoke_test(script, raw64_arguments());
  expect_failed(result, "stop_stream_any: busy (FIFO not empty)");
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=16",
                          "qx_stop_stream_mode flag=true -> -11", "qx_last_error",
                          "qx_status_string status=-11", "qx_close"));
}

TEST(StopFailure, WithoutALastErrorHasNoParentheses) {
  const SmokeTestResult result = run_smoke_test(Script{.statuses = {{"qx_stop_stream_mode", {9}}}},
                                                raw64_arguments({"capture_s=0"}));
  expect_failed(result, "stop_stream_any: status 9");
}

}  // namespace
}  // namespace zelk::test_support
