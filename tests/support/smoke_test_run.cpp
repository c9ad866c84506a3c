#include "tests/support/smoke_test_run.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <utility>

namespace zelk::test_support {
namespace {

std::vector<std::string> lines_of(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

}  // namespace

SmokeTest::SmokeTest(const scripted_device::Script& script, std::vector<std::string> arguments) {
  const std::filesystem::path script_file = directory_.path() / "device.script";
  std::ofstream(script_file, std::ios::binary) << scripted_device::to_text(script);
  program_.file = ZELK_SMOKE_TEST_PROGRAM;
  program_.arguments = std::move(arguments);
  program_.directory = directory_.path();
  program_.environment = sanitizer_environment();
  program_.environment["HOME"] = home;
  program_.environment["LD_LIBRARY_PATH"] = ZELK_SCRIPTED_LIBRARY_DIRECTORY;
  program_.environment["ZELK_SCRIPT"] = script_file;
  program_.environment["ZELK_SCRIPT_LOG"] = log_file();
}

SmokeTestResult SmokeTest::run() {
  SmokeTestResult result{test_support::run(program_), lines_of(log_file())};
  EXPECT_FALSE(result.killed_by_watchdog) << "the program did not end by itself";
  return result;
}

SmokeTestResult run_smoke_test(const scripted_device::Script& script,
                               std::vector<std::string> arguments) {
  return SmokeTest(script, std::move(arguments)).run();
}

SmokeTestResult run_on_terminal(const scripted_device::Script& script,
                                std::vector<std::string> arguments) {
  SmokeTest test(script, std::move(arguments));
  test.program().error_on_terminal = true;
  return test.run();
}

Program simulated_smoke_test(std::vector<std::string> arguments) {
  Program program;
  program.file = ZELK_SMOKE_TEST_PROGRAM;
  program.arguments = std::move(arguments);
  program.environment = sanitizer_environment();
  program.environment["HOME"] = SmokeTest::home;
  return program;
}

}  // namespace zelk::test_support
