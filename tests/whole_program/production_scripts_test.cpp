// The scripts of docs/production.md test every attached unit and read what the runs
// leave behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/whole_program/production_page.hpp"

namespace zelk::test_support {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr const char* weak_detector = "ftdi://?pace=max&efficiency=1,0.05,1,1";

class ProductionScripts : public ProductionPage {};

class ProductionScriptsInPython : public ProductionPage {
 protected:
  void SetUp() override {
    if (run_in_shell("command -v python3").exit_status != 0) {
      GTEST_SKIP() << "there is no python3";
    }
  }
};

TEST_F(ProductionScripts, TestEveryAttachedUnit) {
  const ProgramResult result = run_in_shell("sh test_all");
  EXPECT_EQ(result.output, "ZK4-0001: status 0\n");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_GT(std::filesystem::file_size(directory() / "ZK4-0001.json"), 0U);
  EXPECT_GT(std::filesystem::file_size(directory() / "ZK4-0001.txt"), 0U);
}

TEST_F(ProductionScripts, NameTheStatusOfABadUnit) {
  const ProgramResult result = run_in_shell("sh test_all", weak_detector);
  EXPECT_EQ(result.output, "ZK4-0001: status 4\n");
  EXPECT_THAT(result.error, HasSubstr("not met: rate_hz>=22500 (channel 1: "));
}

TEST_F(ProductionScripts, EndWithTheStatusOfAListThatFails) {
  const ProgramResult result = run_in_shell("ZELK_SIM_DISCOVERY=fail:-7 sh test_all");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exit_status, 2);
}

TEST_F(ProductionScriptsInPython, TestEveryAttachedUnit) {
  const ProgramResult result = run_in_shell("python3 test_all.py");
  EXPECT_THAT(result.output,
              MatchesRegex("ZK4-0001: status 0, all limits met\n"
                           "  offset 120 ps, rates \\[25193.284, 25077.649\\] Hz, host pause "
                           "[0-9.]+ ms\n"));
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 0);
}

TEST_F(ProductionScriptsInPython, NameTheLimitsThatABadUnitMisses) {
  const ProgramResult result = run_in_shell("python3 test_all.py", weak_detector);
  EXPECT_THAT(result.output,
              MatchesRegex("ZK4-0001: status 4, rate_hz>=22500\n"
                           "  offset 112 ps, rates \\[25066.934, 1332.439\\] Hz, host pause "
                           "[0-9.]+ ms\n"));
}

TEST_F(ProductionScriptsInPython, SayWhyThereIsNoList) {
  const ProgramResult result = run_in_shell("ZELK_SIM_DISCOVERY=fail:-7 python3 test_all.py");
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.error, ContainsRegex("discover: .+\n"));
  EXPECT_EQ(result.exit_status, 1);
}

}  // namespace
}  // namespace zelk::test_support
