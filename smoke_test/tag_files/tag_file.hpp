// The file of a run's captured tags, which save_tags= names.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "smoke_test/tag_files/new_file.hpp"
#include "smoke_test/tag_sink.hpp"

// What was added is in the file when add() returns; nothing waits in the program for
// its end. First the rows are written, and then the number of rows that the header
// tells. So whatever ends the program, and at whatever moment, the header promises no
// row that is not there, and there are at most one batch's rows that it does not tell.
// A signal handler has nothing to do. The price is one call of the system more per
// batch, 0.3 to 1 µs: next to nothing beside the 65536 rows of a batch at high rates, and
// half a millisecond of each second at low ones.
//
// The file is removed again by the destructor if the capture never began: nobody misses
// it then, and the next run can have the name.
class TagFile final : public TagSink {
 public:
  // Makes the file, with no row in it. `path` has a layout. `result_path` is where the
  // run's result goes, which must be another file; empty: nowhere. Throws
  // std::runtime_error with a line that names the file and the reason.
  TagFile(const std::string& path, const std::string& result_path);

  // From here on the file stays, whatever the run comes to.
  void begin_capture() { file_.keep(); }

  void add(std::span<const zelk::timing::TimeTag> tags) override;
  void finish() override;

 private:
  struct Kind;

  static const Kind& kind_of(const std::string& path);
  static NewFile make_file(const std::string& path);
  void append(std::string_view rows);
  std::error_code write_header();

  std::string path_;
  const Kind& kind_;
  std::vector<char> room_;  // for the rows of some tags
  NewFile file_;
  std::uint64_t header_bytes_;
  std::uint64_t row_bytes_ = 0;  // written so far, whole rows all of them
};
