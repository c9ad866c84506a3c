// The line of progress on standard error.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using scripted_device::Script;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

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

// A run whose standard error is a terminal of this kind and width.
SmokeTestResult run_on_terminal(const Script& script, std::vector<std::string> arguments,
                                const char* kind, unsigned short columns = 0) {
  SmokeTest test(script, raw64_arguments(std::move(arguments)));
  test.program().error_on_terminal = true;
  test.program().terminal_columns = columns;
  test.program().environment["TERM"] = kind;
  return test.run();
}

// What stands between one return to the line's start and the next.
std::vector<std::string> lines_of_progress(const SmokeTestResult& result) {
  const std::string start = "\r\x1b[K";
  std::vector<std::string> lines;
  for (std::size_t at = result.error.find(start); at != std::string::npos;) {
    const std::size_t first = at + start.size();
    at = result.error.find(start, first);
    if (at != std::string::npos) {
      lines.push_back(result.error.substr(first, at - first));
    }
  }
  return lines;
}

TEST(Progress, IsNotWrittenWhenNoTerminalWatches) {
  SmokeTest test({}, raw64_arguments({"capture_s=2"}));
  test.program().environment["TERM"] = "xterm";
  expect_report(test.run(), {}, 3);
}

TEST(Progress, IsOneLineRewrittenInPlaceAndClearedBeforeTheReport) {
  const SmokeTestResult result = run_on_terminal({}, {"capture_s=2"}, "xterm");
  EXPECT_EQ(result.output, ExpectedReport{}.text());
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_GE(std::count(result.error.begin(), result.error.end(), '\r'), 3) << result.error;
  // Something can be read between two returns to the line's start.
  EXPECT_THAT(result.error, testing::ContainsRegex("[0-9]"));
  EXPECT_EQ(shown_on_terminal(result.error), verdict);
}

TEST(Progress, ShowsTheRatesOfTheStreamedChannels) {
  const SmokeTestResult result = run_on_terminal(raw64_device({{0, 5000}, {0, 6000}, {1, 7000}}),
                                                 {"capture_s=2", "channel_mask=0x09"}, "xterm");
  const std::vector<std::string> lines = lines_of_progress(result);
  EXPECT_THAT(lines, Not(IsEmpty()));
  EXPECT_THAT(lines, Each(MatchesRegex("[0-9.]+ of 2.0 s, ch0 [0-9]+/s, ch3 0/s")));
  EXPECT_THAT(lines, Contains(MatchesRegex(".*, ch0 [1-9][0-9]*/s, .*")));
}

TEST(Progress, FitsTheWidthOfTheTerminal) {
  const auto lines_at = [](unsigned short columns) {
    return lines_of_progress(
        run_on_terminal({}, {"capture_s=2", "channel_mask=0x0F"}, "xterm", columns));
  };
  const char* const all = "[0-9.]+ of 2.0 s, ch0 0/s, ch1 0/s, ch2 0/s, ch3 0/s";
  EXPECT_THAT(lines_at(20), AllOf(Not(IsEmpty()), Each(MatchesRegex("[0-9.]+ of 2.0 s"))));
  EXPECT_THAT(lines_at(80), AllOf(Not(IsEmpty()), Each(MatchesRegex(all))));
  EXPECT_THAT(lines_at(200), AllOf(Not(IsEmpty()), Each(MatchesRegex(all))));
}

TEST(Progress, IsNotWrittenToATerminalThatCannotGoBack) {
  for (const char* kind : {"dumb", ""}) {
    EXPECT_EQ(run_on_terminal({}, {"capture_s=2"}, kind).error, verdict) << kind;
  }
  SmokeTest test({}, raw64_arguments({"capture_s=2"}));
  test.program().error_on_terminal = true;
  EXPECT_EQ(test.run().error, verdict);
}

TEST(Progress, IsNotWrittenForCapturesUnderTwoSeconds) {
  const SmokeTestResult result = run_on_terminal({}, {"capture_s=1.9"}, "xterm");
  EXPECT_EQ(result.error, verdict);
  EXPECT_EQ(result.exit_status, 3);
}

TEST(Progress, IsClearedBeforeTheErrorOfAFailedRun) {
  const SmokeTestResult result =
      run_on_terminal(Script{.reads = {{.bytes = {}, .status = -3, .delay_ms = 700}},
                             .forever = {.bytes = {}, .status = -12, .delay_ms = 0}},
                      {"capture_s=30"}, "xterm");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.error, HasSubstr("\r"));
  EXPECT_EQ(shown_on_terminal(result.error), "read_stream_bytes: status -12\n");
}

}  // namespace
}  // namespace zelk::test_support
