#include "tests/support/logged_run.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <utility>

#include "tests/support/temporary_directory.hpp"

namespace zelk::test_support {

SmokeTestResult run_logged(std::vector<std::string> arguments,
                           const std::map<std::string, std::string>& environment) {
  const TemporaryDirectory directory;
  const std::filesystem::path log = directory.path() / "calls.log";
  Program program = simulated_smoke_test(std::move(arguments));
  program.directory = directory.path();
  program.environment["LD_LIBRARY_PATH"] = ZELK_LOGGED_LIBRARY_DIRECTORY;
  program.environment["ZELK_CALL_LOG"] = log;
  program.environment.insert(environment.begin(), environment.end());
  SmokeTestResult result{run(program), {}};
  EXPECT_FALSE(result.killed_by_watchdog) << "the program did not end by itself";
  std::ifstream in(log);
  for (std::string line; std::getline(in, line);) {
    result.calls.push_back(line);
  }
  return result;
}

std::vector<std::string> calls_of_stream(const SmokeTestResult& result) {
  const auto start = std::find_if(
      result.calls.begin(), result.calls.end(),
      [](const std::string& line) { return line.starts_with("qx_start_stream_mode"); });
  return {start, result.calls.end()};
}

}  // namespace zelk::test_support
