// Faults of a simulated unit while it streams: reads that fail, stay empty or
// never come back, a unit that vanishes, a stop that fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/logged_run.hpp"
#include "tests/whole_program/expected_report.hpp"

namespace zelk::test_support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::vector<std::string> arguments_with(const std::string& keys, const std::string& capture_s) {
  return {"port=ftdi://?" + keys, "mode=external", "channel_mask=3", "format=raw64",
          "capture_s=" + capture_s};
}

// The run ended at once with this line, the stream stopped once and the device
// closed once.
void expect_failed(const SmokeTestResult& result, const std::string& error,
                   const std::string& failing_call, const std::string& stop) {
  EXPECT_EQ(result.error, error + "\n");
  EXPECT_EQ(result.output, internal_reference_line);
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_LT(result.duration.count(), 15'000);
  EXPECT_THAT(calls_of_stream(result),
              ElementsAre("qx_start_stream_mode -> 0", failing_call, stop, clean_close));
}

// A complete run, on which nothing ever failed.
void expect_complete(const SmokeTestResult& result, int status) {
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, status);
  EXPECT_THAT(calls_of_stream(result),
              ElementsAre("qx_start_stream_mode -> 0", "qx_stop_stream_mode -> 0", clean_close));
}

void expect_no_tags(const std::string& keys) {
  SCOPED_TRACE(keys);
  const SmokeTestResult result = run_logged(arguments_with(keys, "0.1"));
  expect_complete(result, 3);
  ExpectedReport report;
  report.device = "ZK4 four-channel TDC, simulated";
  report.port = "ftdi://?" + keys + " transport=usb format=raw64 mode=external";
  report.calibration_path = "/home/operator/.zelk.timing/calibrations/zelk_cal_ZK4-0001.cal";
  EXPECT_EQ(result.output, report.text());
}

TEST(SimulatedReadFailure, OfTheFirstReadEndsTheRun) {
  expect_failed(run_logged(arguments_with("fail=read_stream_bytes:-321:endpoint 2 stalled", "30")),
                "read_stream_bytes: unknown status (endpoint 2 stalled)",
                "qx_read_stream_bytes -> -321", "qx_stop_stream_mode -> 0");
}

TEST(SimulatedReadFailure, InMidCaptureEndsTheRun) {
  expect_failed(run_logged(arguments_with("fail=read_stream_bytes@0.1:-10", "30")),
                "read_stream_bytes: internal error of the device library",
                "qx_read_stream_bytes -> -10", "qx_stop_stream_mode -> 0");
}

TEST(SimulatedReadFailure, OfOneReadEndsTheRunAsWell) {
  expect_failed(run_logged(arguments_with("fail=read_stream_bytes#7:77:once", "30")),
                "read_stream_bytes: unknown status (once)", "qx_read_stream_bytes -> 77",
                "qx_stop_stream_mode -> 0");
}

TEST(SimulatedReadFailure, EndsTheByteProbeToo) {
  std::vector<std::string> arguments =
      arguments_with("fail=read_stream_bytes@0.05:-321:endpoint 2 stalled", "30");
  arguments.emplace_back("byte_probe=1");
  expect_failed(run_logged(arguments), "read_stream_bytes: unknown status (endpoint 2 stalled)",
                "qx_read_stream_bytes -> -321", "qx_stop_stream_mode -> 0");
}

TEST(SimulatedStopFailure, FailsTheRunAfterOneStop) {
  const SmokeTestResult result =
      run_logged(arguments_with("fail=stop_stream_mode:-6:FIFO not empty", "0.05"));
  EXPECT_EQ(result.error, "stop_stream_any: busy: the unit is streaming (FIFO not empty)\n");
  EXPECT_EQ(result.output, internal_reference_line);
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(calls_of_stream(result),
              ElementsAre("qx_start_stream_mode -> 0", "qx_stop_stream_mode -> -6", clean_close));
}

TEST(SimulatedStopFailure, AfterAFailedReadAddsNoSecondLine) {
  expect_failed(
      run_logged(arguments_with("fail=read_stream_bytes@0.05:-10:gone,stop_stream_mode:-6", "30")),
      "read_stream_bytes: internal error of the device library (gone)",
      "qx_read_stream_bytes -> -10", "qx_stop_stream_mode -> -6");
}

TEST(VanishedUnit, EndsTheRunWithOneClearLine) {
  for (const char* const keys : {"vanish_at_s=0.1", "vanish_at_s=0"}) {
    expect_failed(run_logged(arguments_with(keys, "30")),
                  "read_stream_bytes: the unit has vanished (nothing answers at its port any "
                  "more)",
                  "qx_read_stream_bytes -> -41", "qx_stop_stream_mode -> -41");
  }
}

TEST(VanishedUnit, EndsEveryFormatAndTheByteProbe) {
  for (const char* const argument : {"format=delta32", "format=packed_delta", "byte_probe=1"}) {
    SCOPED_TRACE(argument);
    std::vector<std::string> arguments = arguments_with("vanish_at_s=0.05", "30");
    arguments.emplace_back(argument);
    expect_failed(run_logged(arguments),
                  "read_stream_bytes: the unit has vanished (nothing answers at its port any "
                  "more)",
                  "qx_read_stream_bytes -> -41", "qx_stop_stream_mode -> -41");
  }
}

TEST(SilentUnit, HasAReportWithoutTags) {
  expect_no_tags("silent_at_s=0");
}

TEST(SilentUnit, LosesNoTagsInAShortSilence) {
  const SmokeTestResult result =
      run_logged(arguments_with("silent_at_s=0&silent_for_s=0.1", "0.4"));
  expect_complete(result, 0);
  EXPECT_THAT(result.output, Not(HasSubstr("\ntags_total=0\n")));
}

TEST(SilentUnit, SendsNothingTheByteProbeCouldSee) {
  std::vector<std::string> arguments = arguments_with("silent_at_s=0", "0.1");
  arguments.emplace_back("byte_probe=1");
  const SmokeTestResult result = run_logged(arguments);
  expect_complete(result, 1);
  EXPECT_THAT(result.output, HasSubstr("\nbyte_probe_payload_bytes=0\n"));
}

TEST(EmptyReads, HaveAReportWithoutTags) {
  expect_no_tags("empty_at_s=0");
}

TEST(EmptyReads, AreGotOver) {
  const SmokeTestResult result = run_logged(arguments_with("empty_at_s=0&empty_for_s=0.1", "0.4"));
  expect_complete(result, 0);
  EXPECT_THAT(result.output, Not(HasSubstr("\ntags_total=0\n")));
}

TEST(ReadsThatTimeOutAtOnce, HaveAReportWithoutTags) {
  expect_no_tags("fail=read_stream_bytes:-3");
}

// The read still holds the device, so nobody may close it.
TEST(HangingRead, IsGivenUpWithOneLine) {
  const SmokeTestResult result = run_logged(arguments_with("hang_at_s=0.05", "1"));
  EXPECT_EQ(result.error, "the device library does not answer\n");
  EXPECT_EQ(result.output, internal_reference_line);
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(calls_of_stream(result), ElementsAre("qx_start_stream_mode -> 0"));
}

}  // namespace
}  // namespace zelk::test_support
