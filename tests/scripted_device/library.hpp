// The state behind the scripted device's C functions. One object a process,
// shared by all threads and guarded by one mutex that is never held while a
// read waits.
#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tests/scripted_device/script.hpp"

struct qx_device {
  bool open = false;
};

struct qx_discovery {
  bool freed = false;
};

namespace scripted_device {

class Library {
 public:
  static Library& instance();

  void load(Script script);
  std::vector<std::string> calls();

  [[nodiscard]] const Script& script() const { return script_; }  // constant between loads

  // The next status of this function, after the delay of the call; takes both off
  // the script.
  qx_status next_status(const std::string& function);

  // Logs a call; a note on a bad handle and on a concurrent
  // read is added.
  void log(const qx_device* device, const std::string& line);
  void log(const std::string& line);

  // Takes the next read off the script, at most `capacity` bytes of it.
  Read next_read(std::size_t capacity);
  void enter_read() { ++reads_under_way_; }
  void leave_read() { --reads_under_way_; }

  qx_device* open_device();
  void close_device(qx_device* device);
  qx_discovery* discover();
  void free_discovery(qx_discovery* list);
  // " list=freed" or " list=foreign" for a list that must not be used.
  std::string note_on(const qx_discovery* list);

  const char* status_text(qx_status status);

  std::array<std::uint8_t, 4> masks{};  // as last set

 private:
  Library();
  std::string note_on(const qx_device* device);
  void append(const std::string& line);
  int next_delay_ms(const std::string& function);

  std::mutex mutex_;
  Script script_;
  std::map<std::string, std::size_t> calls_made_;
  std::map<std::string, std::size_t> delays_taken_;
  std::size_t reads_taken_ = 0;
  Bytes left_over_;
  std::map<qx_status, std::string> status_texts_;
  std::deque<qx_device> devices_;  // closed ones stay, so that their addresses stay theirs
  std::deque<qx_discovery> lists_;
  std::vector<std::string> log_;
  std::ofstream log_file_;
  std::atomic<int> reads_under_way_{0};
};

}  // namespace scripted_device
