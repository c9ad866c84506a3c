// Reads a recording file. Opening one checks every record of it, so that what
// is wrong with a file is said before anything is played, and keeps the calls
// in memory; stream data stay in the file. A file, however hostile, costs at
// most one record's payload besides its calls. Owns the file; used by one
// thread at a time. Everything throws Failure with a status of its own for
// each kind of damage and a text that names the record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "simulator/recordings/file_descriptor.hpp"
#include "simulator/recordings/record_parser.hpp"
#include "simulator/recordings/recording_format.hpp"

namespace zelk::simulator {

// A place in the file between two records.
struct RecordPlace {
  std::uint64_t offset = recording_format::file_header_bytes;
  std::uint32_t number = 0;
};

class RecordingFile {
 public:
  struct IndexedCall : RecordedCall {
    RecordPlace after;  // the record that follows
  };

  // A recording whose end is missing, because the recording host died or the
  // disk was full, is taken only when `cut_short_allowed`; what remains of an
  // unfinished last record is then left out.
  RecordingFile(const std::string& path, bool cut_short_allowed);

  [[nodiscard]] const RecordedOpening& opening() const { return opening_; }
  [[nodiscard]] const std::vector<IndexedCall>& calls() const { return calls_; }

  // The record at `place`, which moves on to the next; none behind the last
  // whole record that was there when the file was opened. A file that has lost
  // it since is damaged; what it has gained since is not looked at.
  std::optional<Record> next(RecordPlace& place) const;

 private:
  void check_file_header() const;
  void index(bool cut_short_allowed);
  void take(const Record& record, const RecordPlace& after);
  std::optional<Record> read_record(RecordPlace& place) const;
  [[noreturn]] void refuse_damage(std::uint32_t number, const char* what) const;
  [[nodiscard]] std::size_t read_at(std::uint64_t offset, std::span<std::uint8_t> bytes) const;

  FileDescriptor file_;
  std::string path_;
  RecordedOpening opening_;
  std::vector<IndexedCall> calls_;
  RecordPlace end_;  // behind the last whole record
};

}  // namespace zelk::simulator
