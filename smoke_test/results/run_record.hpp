// Everything that is known about a run, filled in while it goes on. What judges a
// run or writes it down reads this.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "smoke_test/analysis.hpp"
#include "smoke_test/byte_probe.hpp"
#include "smoke_test/config.hpp"
#include "smoke_test/device_settings.hpp"
#include "smoke_test/results/condition.hpp"
#include "timing/device.hpp"

struct RunRecord {
  std::vector<std::string> arguments;  // as given
  std::chrono::system_clock::time_point start = std::chrono::system_clock::now();
  Config config;  // as far as the arguments could be applied

  std::string run_id;           // random; empty: nobody writes the record down
  bool set_up_is_done = false;  // all that the settings say is known

  DeviceSettings settings;                            // as far as the set-up came
  std::optional<Analysis> analysis;                   // of a capture
  std::optional<ByteProbe> byte_probe;                // in its place
  std::vector<zelk::timing::DiscoveredDevice> units;  // of a run that lists them
  std::vector<Limit> limits;                          // in the order of the arguments

  std::optional<int> exit_status;  // none: still running
  std::string error;               // the one line of a failed run
};
