// A stream that goes on and on, and a program that may not have the memory for
// what it brings.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using scripted_device::Script;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::StartsWith;

// 32768 tags with every read, and no end.
Script endless_stream() {
  Bytes bytes;
  for (std::uint64_t i = 0; i < 32'768; ++i) {
    append_big_endian(bytes, ps_record(0, 1000 * i), 8);
  }
  return {.forever = {.bytes = std::move(bytes), .status = 0, .delay_ms = 0}};
}

SmokeTestResult run_with_address_space(const std::string& kib, std::vector<std::string> arguments) {
  SmokeTest test(endless_stream(), {});
  Program& program = test.program();
  program.arguments = {"-c", "ulimit -v " + kib + R"( && exec "$0" "$@")", program.file};
  program.arguments.insert(program.arguments.end(), arguments.begin(), arguments.end());
  program.file = "/bin/sh";
  return test.run();
}

TEST(ScarceMemory, EndsTheRunWithOneLineAndStatus2) {
  const SmokeTestResult result =
      run_with_address_space("400000", raw64_arguments({"capture_s=60"}));
  EXPECT_EQ(result.error, "not enough memory for the captured tags\n");
  EXPECT_EQ(result.output, internal_reference_line);
  EXPECT_EQ(result.exit_status, 2);
  ASSERT_GE(result.calls.size(), 2U);
  EXPECT_EQ(result.calls[result.calls.size() - 2], "qx_stop_stream_mode flag=true -> 0");
  EXPECT_EQ(result.calls.back(), "qx_close");
}

TEST(ScarceMemory, IsEnoughForAShortCapture) {
  const SmokeTestResult result =
      run_with_address_space("400000", raw64_arguments({"capture_s=0.01"}));
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 3);
}

// From too little for the program to be loaded to enough for the whole run. The
// reader's thread wants the most at one time.
TEST(ScarceMemory, IsOneLineThatSaysWhatWasTried) {
  std::set<std::string> errors;
  bool complete = false;
  for (int kib = 8'000; kib < 60'000 && !complete; kib += 500) {
    const SmokeTestResult result =
        run_with_address_space(std::to_string(kib), raw64_arguments({"capture_s=0.01"}));
    complete = result.exit_status == 3 && result.error.empty();
    if (result.exit_status == 2) {
      errors.insert(result.error);
    }
  }
  EXPECT_TRUE(complete);
  EXPECT_THAT(errors,
              Contains("cannot start the reader thread: Resource temporarily unavailable\n"));
  EXPECT_THAT(errors, Each(AnyOf(StartsWith("cannot start the reader thread: "),
                                 StartsWith("not enough memory for "))));
}

}  // namespace
}  // namespace zelk::test_support
