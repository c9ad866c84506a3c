// A reader on a scripted device, and what its tests need around it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

#include "tests/scripted_device/scripted_device.hpp"
#include "tests/support/wire_words.hpp"
#include "timing/tag_stream_reader.hpp"

namespace zelk::timing {

inline constexpr std::size_t chunk = 262'144;

inline StreamFileHeader external_raw64() {
  StreamFileHeader header;
  header.format = Format::raw64;
  header.mode = StreamMode::external;
  header.timestamp_layout = "ps";
  return header;
}

// Records of channel 0 with the times first, first + 1, ... ps.
inline scripted_device::Bytes records(std::uint64_t first, std::uint64_t count) {
  scripted_device::Bytes bytes;
  for (std::uint64_t i = 0; i < count; ++i) {
    test_support::append_big_endian(bytes, test_support::ps_record(0, first + i), 8);
  }
  return bytes;
}

// Whether the condition has come true within ten seconds.
inline bool wait_until(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

inline std::size_t queued(TagStreamReader& reader) {
  const std::lock_guard lock(reader.mutex);
  return reader.queue.size();
}

// Loads the script before the device is opened.
struct Bench {
  explicit Bench(scripted_device::Script script)
      : device(open(std::move(script))), reader(device) {}

  static Device open(scripted_device::Script script) {
    scripted_device::load(std::move(script));
    return Device::open("ftdi://", Device::standard_rate);
  }

  // The script's reads have all been taken and a time-out has followed.
  static bool all_reads_taken() {
    return wait_until(
        [] { return scripted_device::calls().back().ends_with(" -> -3 received=0"); });
  }

  Device device;
  TagStreamReader reader;
};

}  // namespace zelk::timing
