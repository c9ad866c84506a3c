// The verdict in words, which only a terminal gets to see.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "tests/whole_program/byte_probe_runs.hpp"
#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using namespace std::chrono_literals;
using scripted_device::Script;

constexpr const char* nothing_seen =
    "FAIL: no channel saw tags; channel_mask streams only channels 2 and 3: try "
    "channel_mask=0x0F\n";

TEST(VerdictInWords, FollowsTheReportOnATerminalOnly) {
  const Script script = raw64_device({{0, 5000}, {1, 5100}});
  const SmokeTestResult unseen = run_smoke_test(script, raw64_arguments());
  const SmokeTestResult seen = run_on_terminal(script, raw64_arguments());
  EXPECT_EQ(unseen.error, "");
  EXPECT_EQ(unseen.exit_status, 0);
  EXPECT_EQ(seen.error, "PASS: 1 coincidence, offset 100 ps, rms 0.0 ps\n");
  EXPECT_EQ(seen.exit_status, 0);
  EXPECT_EQ(seen.output, unseen.output);
  EXPECT_EQ(scripted_device::without_timeouts(seen.calls),
            scripted_device::without_timeouts(unseen.calls));
}

TEST(VerdictInWords, NeedsNoTerminalThatCanGoBack) {
  SmokeTest test({}, raw64_arguments());
  test.program().error_on_terminal = true;
  test.program().environment["TERM"] = "dumb";
  EXPECT_EQ(test.run().error, nothing_seen);
}

// The pair is that of the defaults, and so is the mask.
TEST(VerdictInWords, NamesAPairThatIsStreamed) {
  const SmokeTestResult result =
      run_on_terminal(raw64_device({{2, 5000}, {3, 5100}}), raw64_arguments());
  EXPECT_EQ(result.error,
            "FAIL: channel 0 saw no tags; channel_mask streams only channels 2 and 3: try "
            "channel_a=2 channel_b=3\n");
  EXPECT_EQ(result.exit_status, 3);
}

TEST(VerdictInWords, TakesTheSettingsFromTheArguments) {
  const SmokeTestResult result = run_on_terminal(
      raw64_device({{2, 5000}, {3, 9000}}),
      raw64_arguments({"channel_a=3", "channel_b=2", "coincidence_window_ps=3999"}));
  EXPECT_EQ(result.error,
            "FAIL: channels 3 and 2 saw 1 and 1 tag, but no coincidences: try a wider "
            "coincidence_window_ps than 3999, or compare the delays of the two cables\n");
  EXPECT_EQ(result.exit_status, 3);
}

TEST(VerdictInWords, TellsOfTimesThatRunBackwards) {
  const SmokeTestResult result =
      run_on_terminal(raw64_device({{0, 5000}, {1, 5100}, {0, 4000}}), raw64_arguments());
  EXPECT_EQ(result.error.substr(0, 6), "PASS: ");
  EXPECT_TRUE(result.error.ends_with("; 1 tag out of order (monotonic_violations)\n"))
      << result.error;
}

TEST(VerdictInWords, NamesTheSignalThatEndedTheCapture) {
  SmokeTest test(raw64_device({{0, 5000}, {1, 5100}}), raw64_arguments({"capture_s=30"}));
  test.program().error_on_terminal = true;
  test.program().signals = {{SIGTERM, test.log_file(), "received=16", 250ms}};
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.error, "ENDED EARLY by SIGTERM: 1 coincidence, offset 100 ps, rms 0.0 ps\n");
  EXPECT_EQ(result.exit_status, 128 + SIGTERM);
}

TEST(VerdictInWords, IsNotWrittenForAFailedRun) {
  const SmokeTestResult result = run_on_terminal(
      Script{.forever = {.bytes = {}, .status = -12, .delay_ms = 0}}, raw64_arguments());
  EXPECT_EQ(result.error, "read_stream_bytes: status -12\n");
  EXPECT_EQ(result.exit_status, 2);
  SmokeTest test({}, raw64_arguments());
  test.program().error_on_terminal = true;
  test.program().output = Program::Output::full_device;
  EXPECT_EQ(test.run().error, "cannot write the report to standard output\n");
}

TEST(VerdictInWords, OfTheByteProbeCountsItsBytes) {
  const SmokeTestResult silent = run_on_terminal({}, raw64_probe_arguments());
  EXPECT_EQ(silent.error, "FAIL: not one byte arrived\n");
  EXPECT_EQ(silent.exit_status, 1);
  const SmokeTestResult alive = run_on_terminal(raw64_device(three_tags), raw64_probe_arguments());
  EXPECT_EQ(alive.error, "PASS: 24 bytes arrived, 3 tags decoded\n");
  EXPECT_EQ(alive.exit_status, 0);
  EXPECT_EQ(alive.output, three_tags_report.text());
}

TEST(VerdictInWords, IsLeftOutWhenTheTerminalWasStopped) {
  SmokeTest test({}, raw64_arguments({"capture_s=1"}));
  test.program().error_on_terminal = true;
  test.program().terminal_stop = TerminalStop{.from = 0ms, .to = 1h};
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.output, ExpectedReport{}.text());
}

}  // namespace
}  // namespace zelk::test_support
