// Runs with the simulated device library that the program finds by itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/smoke_test_run.hpp"

namespace zelk::test_support {
namespace {

TEST(SimulatedDevice, BacksAnyNumberOfRunsOneAfterTheOther) {
  for (int i = 0; i < 20; ++i) {
    const ProgramResult result = run(simulated_smoke_test({"capture_s=0.01"}));
    EXPECT_TRUE(result.exit_status == 0 || result.exit_status == 3) << result.error;
    EXPECT_EQ(result.error, "");
    EXPECT_THAT(result.output, testing::HasSubstr("\ntags_total="));
  }
}

}  // namespace
}  // namespace zelk::test_support
