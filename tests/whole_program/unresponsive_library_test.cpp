// A device library that never comes back from a call must not keep the program,
// and the test station behind it, waiting for ever.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using namespace std::chrono_literals;
using scripted_device::Script;

TEST(UnresponsiveLibrary, IsGivenUpAfterTheCaptureWithOneLineAndStatus2) {
  const Script script{.forever = {.bytes = {}, .status = -3, .delay_ms = 3'600'000}};
  const SmokeTestResult result = run_smoke_test(script, raw64_arguments({"capture_s=0.1"}));
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, "the device library does not answer\n");
  EXPECT_EQ(result.output, internal_reference_line);
}

TEST(UnresponsiveLibrary, IsGivenUpAfterTheByteProbeToo) {
  const Script script{.forever = {.bytes = {}, .status = -3, .delay_ms = 3'600'000}};
  const SmokeTestResult result =
      run_smoke_test(script, raw64_arguments({"capture_s=0.1", "byte_probe=1"}));
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, "the device library does not answer\n");
  EXPECT_EQ(result.output, internal_reference_line);
}

TEST(UnresponsiveLibrary, ThatOnlyReadsSlowlyIsWaitedFor) {
  const Script script{.forever = {.bytes = {}, .status = -3, .delay_ms = 1000}};
  const SmokeTestResult result = run_smoke_test(script, raw64_arguments({"capture_s=0.1"}));
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_EQ(result.error, "");
}

constexpr int an_hour_ms = 3'600'000;
constexpr const char* no_answer = "the device library does not answer\n";

Script hanging_in(const char* function) {
  return {.delays_ms = {{function, {an_hour_ms}}}};
}

TEST(UnresponsiveLibrary, IsGivenUpDuringALongCapture) {
  const Script script{.forever = {.bytes = {}, .status = -3, .delay_ms = an_hour_ms}};
  const SmokeTestResult result = run_smoke_test(script, raw64_arguments({"capture_s=25"}));
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, no_answer);
  EXPECT_LT(result.duration, 20s);
}

TEST(UnresponsiveLibrary, IsGivenUpWhenOneReadTakesTooLong) {
  const Script script{.forever = {.bytes = {}, .status = -3, .delay_ms = 7000}};
  const SmokeTestResult result = run_smoke_test(script, raw64_arguments({"capture_s=6"}));
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, no_answer);
}

TEST(UnresponsiveLibrary, IsGivenUpInTheStopAsWell) {
  const SmokeTestResult result =
      run_smoke_test(hanging_in("qx_stop_stream_mode"), raw64_arguments());
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, no_answer);
}

TEST(UnresponsiveLibrary, IsGivenUpAlsoWhenStandardErrorTakesNothing) {
  SmokeTest test(hanging_in("qx_stop_stream_mode"), raw64_arguments());
  test.program().error = Program::Output::full_pipe;
  EXPECT_EQ(test.run().exit_status, 2);
}

TEST(UnresponsiveLibrary, IsGivenUpAlsoWhenTheTerminalWasStopped) {
  SmokeTest test(hanging_in("qx_stop_stream_mode"), raw64_arguments());
  test.program().error_on_terminal = true;
  test.program().terminal_stop = TerminalStop{.from = 0ms, .to = 1h};
  EXPECT_EQ(test.run().exit_status, 2);
}

TEST(UnresponsiveLibrary, IsGivenUpAlsoWhenItsSignalWasBlocked) {
  SmokeTest test(hanging_in("qx_stop_stream_mode"), raw64_arguments());
  test.program().block_alarm = true;
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, no_answer);
}

TEST(UnresponsiveLibrary, DoesNotHideTheErrorBeforeIt) {
  Script script = hanging_in("qx_stop_stream_mode");
  script.forever = {.bytes = {}, .status = -12, .delay_ms = 0};
  const SmokeTestResult result = run_smoke_test(script, raw64_arguments());
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, "read_stream_bytes: status -12\n");
}

TEST(UnresponsiveLibrary, DoesNotHideAnErrorOfTheSetUp) {
  Script script = hanging_in("qx_close");
  script.statuses = {{"qx_identify", {-12}}};
  const SmokeTestResult result = run_smoke_test(script, raw64_arguments());
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, "identify: status -12\n");
}

TEST(UnresponsiveLibrary, DoesNotChangeTheStatusOfAFinishedRun) {
  Script script = raw64_device({{0, 5000}, {1, 5100}});
  script.delays_ms = {{"qx_close", {an_hour_ms}}};
  const SmokeTestResult good = run_smoke_test(script, raw64_arguments());
  EXPECT_EQ(good.exit_status, 0);
  EXPECT_EQ(good.error, "");
  EXPECT_THAT(good.output, testing::HasSubstr("coincidences=1\n"));
  const SmokeTestResult empty = run_smoke_test(hanging_in("qx_close"), raw64_arguments());
  EXPECT_EQ(empty.exit_status, 3);
  EXPECT_EQ(empty.error, "");
}

TEST(StoppedProcess, IsNoUnresponsiveLibrary) {
  SmokeTest test({}, raw64_arguments({"capture_s=1"}));
  test.program().signals = {{SIGSTOP, test.log_file(), "-> -3", 100ms}, {SIGCONT, {}, {}, 6s}};
  expect_report(test.run(), {}, 3);
}

TEST(StoppedTerminal, IsNoUnresponsiveLibrary) {
  SmokeTest test({}, raw64_arguments({"capture_s=9"}));
  test.program().error_on_terminal = true;
  test.program().environment["TERM"] = "xterm";
  test.program().terminal_stop = TerminalStop{.from = 300ms, .to = 7500ms};
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_EQ(result.output, ExpectedReport{}.text());
  EXPECT_THAT(result.error, testing::Not(testing::HasSubstr(no_answer)));
}

}  // namespace
}  // namespace zelk::test_support
