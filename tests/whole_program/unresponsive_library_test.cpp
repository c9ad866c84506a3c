// A device library that never comes back from a call must not keep the program,
// and the test station behind it, waiting for ever.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

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

}  // namespace
}  // namespace zelk::test_support
