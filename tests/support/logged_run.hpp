// Runs the smoke test on the simulated device library and keeps the calls that
// reach it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/support/smoke_test_run.hpp"

namespace zelk::test_support {

// The last line of a log: a device closed with nothing left behind.
inline constexpr const char* clean_close = "qx_close threads_left=0 descriptors_left=0";

// A run with these arguments, and these variables besides the usual ones. The
// calls are lines as tests/support/call_log.cpp describes them. Fails the
// running test when the watchdog had to end the program.
SmokeTestResult run_logged(std::vector<std::string> arguments,
                           const std::map<std::string, std::string>& environment = {});

// The log from the start of the stream on.
std::vector<std::string> calls_of_stream(const SmokeTestResult& result);

}  // namespace zelk::test_support
