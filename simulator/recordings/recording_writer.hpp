// Writes a recording file. Every record reaches the operating system in one
// write of its own before the function returns, so that a host that dies loses
// nothing that was recorded. A record that cannot be written in full is taken
// back, and nothing is written after it: the file then ends with its last
// whole record. Owns the file; used by one thread at a time.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/recordings/file_descriptor.hpp"
#include "simulator/recordings/recording_format.hpp"

namespace zelk::simulator {

class RecordingWriter {
 public:
  // Creates the file, which must not exist yet: a recording is never
  // overwritten. Throws Failure when that cannot be done; no file is left.
  RecordingWriter(const std::string& path, const RecordedOpening& opening);

  void add(const RecordedCall& call) noexcept;
  void add(const RecordedQuiet& quiet) noexcept;
  void add(const RecordedFailedRead& failed) noexcept;
  // More bytes than a record holds become several records.
  void add_chunk(std::uint64_t time_ns, std::span<const std::uint8_t> bytes) noexcept;
  // The recording is whole; nothing may be added afterwards.
  void finish(std::uint64_t time_ns) noexcept;

  // What went wrong; empty as long as everything added is in the file.
  [[nodiscard]] const std::string& error() const noexcept { return error_; }
  void fail(const char* reason) noexcept;

 private:
  template <typename Fill>
  void append(RecordType type, Fill fill) noexcept;
  void write_out();

  FileDescriptor file_;
  std::string path_;
  std::vector<std::uint8_t> bytes_;  // of the record being made
  std::uint64_t file_bytes_ = 0;     // up to the end of the last whole record
  std::uint32_t next_number_ = 0;
  std::string error_;
};

}  // namespace zelk::simulator
