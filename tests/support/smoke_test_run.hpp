// Runs the smoke test program against a scripted device library.
#pragma once

#include <string>
#include <vector>

#include "tests/scripted_device/script.hpp"
#include "tests/support/program.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::test_support {

struct SmokeTestResult : ProgramResult {
  std::vector<std::string> calls;  // the device library's call log
};

// One run in a directory of its own. Set what differs from a plain run, then
// call run() once.
class SmokeTest {
 public:
  // The calibration directory lies below this one; it need not exist.
  static constexpr const char* home = "/home/operator";

  explicit SmokeTest(const scripted_device::Script& script,
                     std::vector<std::string> arguments = {});

  // Everything but the script: directory, output, signals, environment.
  [[nodiscard]] Program& program() { return program_; }
  [[nodiscard]] std::filesystem::path log_file() const { return directory_.path() / "calls.log"; }

  // Fails the running test when the watchdog had to end the program.
  SmokeTestResult run();

 private:
  TemporaryDirectory directory_;
  Program program_;
};

// A plain run with these arguments.
SmokeTestResult run_smoke_test(const scripted_device::Script& script,
                               std::vector<std::string> arguments);

// The same, with a terminal for standard error.
SmokeTestResult run_on_terminal(const scripted_device::Script& script,
                                std::vector<std::string> arguments);

// The program with the simulated device library that it finds by itself.
Program simulated_smoke_test(std::vector<std::string> arguments);

}  // namespace zelk::test_support
