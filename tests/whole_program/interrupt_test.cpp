// Ctrl-C, SIGTERM and SIGHUP during a capture.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include "tests/support/parameter_names.hpp"
#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using namespace std::chrono_literals;
using scripted_device::Script;
using testing::ElementsAre;

const ExpectedReport pair_report{
    .tags_total = "2",
    .counts = {"1", "1", "0", "0"},
    .coincidences = "1",
    .offset = "100",
    .peak_count = "1",
    .peak_center = "0",
    .top_bins = "0:1,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0,-936:0",
    .residues = {{{"1", "0", "1667:1"}, {"1", "0", "1767:1"}, {}, {}}},
    .bins = {"ch0=1 ch1=1 ch2=0 ch3=0"}};

class EndedEarly : public testing::TestWithParam<int> {};

TEST_P(EndedEarly, StopsInOrderReportsAndExitsWithTheSignalsStatus) {
  SmokeTest test(raw64_device({{0, 5000}, {1, 5100}}), raw64_arguments({"capture_s=30"}));
  test.program().signals = {{GetParam(), test.log_file(), "received=16", 250ms}};
  const SmokeTestResult result = test.run();
  expect_report(result, pair_report, 128 + GetParam());
  EXPECT_LT(result.duration, 5s);
  EXPECT_THAT(
      scripted_device::without_timeouts(result.calls),
      ElementsAre("qx_open_serial port=ftdi:// -> 0", "qx_identify record=zeroed -> 0",
                  "qx_load_calibration flag=1 -> 0",
                  "qx_set_reference_clock source=1 signal=0 record=zeroed -> 0",
                  "qx_set_tdl_active_masks masks=07,07,07,07 -> 0",
                  "qx_get_tdl_active_masks masks_before=00,00,00,00 -> 0",
                  "qx_set_stream_interface transport=1 format=0 -> 0",
                  "qx_set_stream_channel_mask mask=0c -> 0", "qx_disable_calibration_source -> 0",
                  "qx_start_stream_mode mode=1 flags=0 -> 0",
                  "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=16",
                  "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

// Without the signal this run would end with 3.
TEST_P(EndedEarly, ItsStatusOutranksAMissingCoincidence) {
  SmokeTest test({}, raw64_arguments({"capture_s=30"}));
  test.program().signals = {{GetParam(), test.log_file(), "-> -3", 100ms}};
  expect_report(test.run(), {}, 128 + GetParam());
}

INSTANTIATE_TEST_SUITE_P(BySignal, EndedEarly, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         signal_name);

// The reader is inside a read of ten seconds, so the first signal's orderly
// end has to wait for it.
Script blocking_device() {
  return {.forever = {.bytes = {}, .status = -3, .delay_ms = 10'000}};
}

TEST(SecondSignal, EndsTheProgramAtOnce) {
  for (const auto& [first, second] :
       {std::pair(SIGINT, SIGINT), std::pair(SIGTERM, SIGTERM), std::pair(SIGINT, SIGTERM),
        std::pair(SIGTERM, SIGINT), std::pair(SIGHUP, SIGHUP), std::pair(SIGHUP, SIGTERM)}) {
    SmokeTest test(blocking_device(), raw64_arguments({"capture_s=30"}));
    test.program().signals = {{first, test.log_file(), "qx_start_stream_mode", 150ms},
                              {second, {}, {}, 150ms}};
    const SmokeTestResult result = test.run();
    EXPECT_EQ(result.ended_by_signal, second);
    EXPECT_LT(result.duration, 5s);
    EXPECT_EQ(result.calls.back(), "qx_start_stream_mode mode=1 flags=0 -> 0");
  }
}

TEST(FirstSignal, WaitsForTheReadUnderWay) {
  SmokeTest test(Script{.forever = {.bytes = {}, .status = -3, .delay_ms = 1000}},
                 raw64_arguments({"capture_s=30"}));
  test.program().signals = {{SIGINT, test.log_file(), "qx_start_stream_mode", 150ms}};
  const SmokeTestResult result = test.run();
  expect_report(result, {}, 128 + SIGINT);
  const std::vector<std::string> end(result.calls.end() - 3, result.calls.end());
  EXPECT_THAT(end, ElementsAre("qx_read_stream_bytes capacity=262144 timeout=20 -> -3 received=0",
                               "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

// As in a shell script's background jobs.
TEST(IgnoredInterrupt, StaysIgnored) {
  SmokeTest test(raw64_device({{0, 5000}, {1, 5100}}), raw64_arguments({"capture_s=0.6"}));
  test.program().ignore_interrupt = true;
  test.program().signals = {{SIGINT, test.log_file(), "received=16", 100ms},
                            {SIGINT, {}, {}, 50ms}};
  const SmokeTestResult result = test.run();
  expect_report(result, pair_report, 0);
  EXPECT_GE(result.duration, 600ms);
}

TEST(IgnoredInterrupt, LeavesTheTerminationSignalInForce) {
  SmokeTest test({}, raw64_arguments({"capture_s=30"}));
  test.program().ignore_interrupt = true;
  test.program().signals = {{SIGINT, test.log_file(), "-> -3", 50ms}, {SIGTERM, {}, {}, 50ms}};
  expect_report(test.run(), {}, 128 + SIGTERM);
}

// As under nohup.
TEST(IgnoredHangup, StaysIgnored) {
  SmokeTest test(raw64_device({{0, 5000}, {1, 5100}}), raw64_arguments({"capture_s=0.6"}));
  test.program().ignore_hangup = true;
  test.program().signals = {{SIGHUP, test.log_file(), "received=16", 100ms},
                            {SIGHUP, {}, {}, 50ms}};
  const SmokeTestResult result = test.run();
  expect_report(result, pair_report, 0);
  EXPECT_GE(result.duration, 600ms);
}

TEST(FirstSignal, LeavesAFailingStopAFailure) {
  SmokeTest test(Script{.statuses = {{"qx_stop_stream_mode", {-11}}}},
                 raw64_arguments({"capture_s=30"}));
  test.program().signals = {{SIGINT, test.log_file(), "-> -3", 100ms}};
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, "stop_stream_any: status -11\n");
  EXPECT_EQ(result.output, internal_reference_line);
}

constexpr const char* interrupted = "interrupted during set-up\n";

// A device that takes its time for one call of the set-up, which is long enough
// for the signal to arrive.
class SetUpInterrupted : public testing::TestWithParam<int> {
 protected:
  static SmokeTestResult run_slow_in(const char* function, const char* before,
                                     std::vector<std::string> arguments) {
    SmokeTest test(Script{.delays_ms = {{function, {1000}}}}, std::move(arguments));
    test.program().signals = {{GetParam(), before[0] != 0 ? test.log_file() : "", before, 300ms}};
    return test.run();
  }
};

TEST_P(SetUpInterrupted, ClosesTheDeviceAndSaysSoInOneLine) {
  const SmokeTestResult result =
      run_slow_in("qx_load_calibration", "qx_identify", raw64_arguments({"capture_s=30"}));
  EXPECT_EQ(result.exit_status, 128 + GetParam());
  EXPECT_EQ(result.error, interrupted);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.calls,
              ElementsAre("qx_open_serial port=ftdi:// -> 0", "qx_identify record=zeroed -> 0",
                          "qx_load_calibration flag=1 -> 0", "qx_close"));
}

TEST_P(SetUpInterrupted, StopsAStreamThatHasStarted) {
  const SmokeTestResult result = run_slow_in("qx_start_stream_mode", "qx_disable_calibration",
                                             raw64_arguments({"capture_s=30"}));
  EXPECT_EQ(result.exit_status, 128 + GetParam());
  EXPECT_EQ(result.error, interrupted);
  EXPECT_EQ(result.output, internal_reference_line);
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

// A call that the signal interrupts may fail: the signal was first.
TEST_P(SetUpInterrupted, OutranksTheFailureOfTheCallUnderWay) {
  SmokeTest test(
      Script{.statuses = {{"qx_load_calibration", {0}}, {"qx_set_reference_clock", {-9}}},
             .delays_ms = {{"qx_set_reference_clock", {1000}}}},
      raw64_arguments());
  test.program().signals = {{GetParam(), test.log_file(), "qx_load_calibration", 300ms}};
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 128 + GetParam());
  EXPECT_EQ(result.error, interrupted);
  EXPECT_EQ(result.calls.back(), "qx_close");
}

INSTANTIATE_TEST_SUITE_P(BySignal, SetUpInterrupted, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         signal_name);

// A report that is longer than the pipe, and that nobody reads.
TEST(InterruptedReport, EndsAtOnceWithTheSignalsStatus) {
  SmokeTest test(raw64_device({{0, 0}, {1, 4'095'999'999'999}}), raw64_arguments({"bin_s=0.001"}));
  test.program().output = Program::Output::unread_pipe;
  test.program().signals = {{SIGTERM, {}, {}, 4s}};
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 128 + SIGTERM);
  EXPECT_EQ(result.error, "");
}

TEST(InterruptedSetUp, EndsAlsoWhileStandardOutputTakesNothing) {
  SmokeTest test({}, raw64_arguments({"capture_s=30"}));
  test.program().output = Program::Output::full_pipe;
  test.program().signals = {{SIGTERM, test.log_file(), "qx_set_reference_clock", 300ms}};
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 128 + SIGTERM);
  EXPECT_EQ(result.error, interrupted);
  EXPECT_EQ(result.calls.back(), "qx_close");
}

}  // namespace
}  // namespace zelk::test_support
