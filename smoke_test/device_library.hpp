// Which device library the loader found for the program.
#pragma once

#include <optional>
#include <string>

struct DeviceLibrary {
  std::string path;           // without links
  bool is_simulated = false;  // it says so itself; of a real one nothing is known
};

// Calls nothing in the library. Nothing: its file cannot be found.
std::optional<DeviceLibrary> loaded_device_library();
