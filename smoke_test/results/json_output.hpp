// The JSON document of a run on its way into the file that json= names.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "smoke_test/results/result_file.hpp"
#include "smoke_test/results/run_record.hpp"

// Without json= it does nothing at all. While it exists the document is written also
// when a signal handler ends the program: what it says then was prepared before. One
// at a time, on the main thread.
class JsonOutput {
 public:
  // Looks for json= in the record's arguments, wherever it stands, and opens the file.
  // Completes the record, which is borrowed, by what a document needs although a later
  // argument may be refused. Throws what ResultFile throws.
  explicit JsonOutput(RunRecord& record);
  ~JsonOutput();
  JsonOutput(const JsonOutput&) = delete;
  JsonOutput& operator=(const JsonOutput&) = delete;

  // Keeps what the record says now for a sudden end.
  void prepare();

  // Writes the document of a run that has an exit status. Throws std::runtime_error
  // when it cannot be written; then, and once it is written, it does nothing more.
  void conclude();

  // A document without its end, or all of it.
  struct Prepared {
    std::string head;
    std::string whole;     // empty: none yet
    int exit_status = -1;  // that it names
  };

 private:
  void publish(Prepared text);

  const RunRecord& record_;
  std::unique_ptr<ResultFile> file_;  // null: none is wanted
  // A handler on another thread may still read an earlier one.
  std::vector<std::unique_ptr<const Prepared>> prepared_;
  bool is_over_ = false;
};
