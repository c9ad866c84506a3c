// The line of progress on standard error.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using scripted_device::Script;
using testing::HasSubstr;

// After the report of a run without a tag.
constexpr const char* verdict =
    "FAIL: no channel saw tags; channel_mask streams only channels 2 and 3: try "
    "channel_mask=0x0F\n";

// What a terminal shows in the end: a carriage return goes back to the line's
// start, a line feed to the next line's, and ESC [ K clears to the line's end.
std::string shown_on_terminal(const std::string& written) {
  std::string lines;
  std::string line;
  std::size_t column = 0;
  for (std::size_t i = 0; i < written.size(); ++i) {
    if (written[i] == '\r') {
      column = 0;
    } else if (written[i] == '\n') {
      lines += line + '\n';
      line.clear();
      column = 0;
    } else if (written.compare(i, 3, "\x1b[K") == 0) {
      line.resize(std::min(line.size(), column));
      i += 2;
    } else {
      line.resize(std::max(line.size(), column + 1), ' ');
      line[column++] = written[i];
    }
  }
  const std::size_t last = line.find_last_not_of(' ');
  return lines + line.substr(0, last == std::string::npos ? 0 : last + 1);
}

TEST(Progress, IsNotWrittenWhenNoTerminalWatches) {
  expect_report(run_smoke_test({}, raw64_arguments({"capture_s=2"})), {}, 3);
}

TEST(Progress, IsOneLineRewrittenInPlaceAndClearedBeforeTheReport) {
  SmokeTest test({}, raw64_arguments({"capture_s=2"}));
  test.program().error_on_terminal = true;
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.output, ExpectedReport{}.text());
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_GE(std::count(result.error.begin(), result.error.end(), '\r'), 3) << result.error;
  // Something can be read between two returns to the line's start.
  EXPECT_THAT(result.error, testing::ContainsRegex("[0-9]"));
  EXPECT_EQ(shown_on_terminal(result.error), verdict);
}

TEST(Progress, IsNotWrittenForCapturesUnderTwoSeconds) {
  SmokeTest test({}, raw64_arguments({"capture_s=1.9"}));
  test.program().error_on_terminal = true;
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.error, verdict);
  EXPECT_EQ(result.exit_status, 3);
}

TEST(Progress, IsClearedBeforeTheErrorOfAFailedRun) {
  SmokeTest test(Script{.reads = {{.bytes = {}, .status = -3, .delay_ms = 700}},
                        .forever = {.bytes = {}, .status = -12, .delay_ms = 0}},
                 raw64_arguments({"capture_s=30"}));
  test.program().error_on_terminal = true;
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.error, HasSubstr("\r"));
  EXPECT_EQ(shown_on_terminal(result.error), "read_stream_bytes: status -12\n");
}

}  // namespace
}  // namespace zelk::test_support
