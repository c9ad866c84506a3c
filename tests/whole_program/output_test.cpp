// A standard output that takes nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using scripted_device::Script;
using testing::IsEmpty;

constexpr const char* write_message = "cannot write the report to standard output\n";

class BrokenOutput : public testing::TestWithParam<Program::Output> {};

TEST_P(BrokenOutput, FailsTheRunWithOneErrorLine) {
  SmokeTest test(raw64_device({{0, 5000}, {1, 5100}}), raw64_arguments());
  test.program().output = GetParam();
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, write_message);
  EXPECT_EQ(
      std::count(result.calls.begin(), result.calls.end(), "qx_stop_stream_mode flag=true -> 0"),
      1);
  EXPECT_EQ(result.calls.back(), "qx_close");
}

// More text than any buffer of the output stream holds.
TEST_P(BrokenOutput, FailsTheRunForALongReportToo) {
  SmokeTest test(raw64_device({{0, 0}, {1, 4'095'999'999'999}}), raw64_arguments({"bin_s=0.001"}));
  test.program().output = GetParam();
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, write_message);
}

TEST_P(BrokenOutput, AddsNothingToAnEarlierFailure) {
  SmokeTest test(Script{.statuses = {{"qx_start_stream_mode", {-1}}}}, raw64_arguments());
  test.program().output = GetParam();
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, "start_stream(mode): status -1\n");
}

TEST_P(BrokenOutput, FailsHelpAndVersionToo) {
  for (const char* argument : {"--help", "--version"}) {
    SmokeTest test({}, {argument});
    test.program().output = GetParam();
    const SmokeTestResult result = test.run();
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.error, write_message);
    EXPECT_THAT(result.calls, IsEmpty());
  }
}

std::string output_name(const testing::TestParamInfo<Program::Output>& output) {
  switch (output.param) {
    case Program::Output::closed_pipe:
      return "closed_pipe";
    case Program::Output::full_device:
      return "full_device";
    default:
      return "closed";
  }
}

INSTANTIATE_TEST_SUITE_P(ByKind, BrokenOutput,
                         testing::Values(Program::Output::closed_pipe, Program::Output::full_device,
                                         Program::Output::closed),
                         output_name);

}  // namespace
}  // namespace zelk::test_support
