// Runs a program to its end and keeps apart what it wrote to standard output
// and to standard error. A watchdog kills a program that does not end. To be
// called from a test's main thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zelk::test_support {

// A signal for the running program: sent once when `text` is in the file and
// the delay has passed since. An empty file name counts as found at the start.
struct SignalPlan {
  int signal = 0;
  std::filesystem::path file;
  std::string text;
  std::chrono::milliseconds delay{0};
};

// A span of the run in which the terminal takes nothing, as after Ctrl-S.
struct TerminalStop {
  std::chrono::milliseconds from{0};
  std::chrono::milliseconds to{0};
};

struct Program {
  enum class Output {
    captured,
    closed_pipe,  // a pipe whose reader has gone before the program starts
    full_device,  // /dev/full: every write fails
    unread_pipe,  // a pipe that nobody reads
    full_pipe,    // the same, which takes nothing any more
    closed,       // no descriptor at all
    file,         // "output" in the program's directory
  };

  std::filesystem::path file;
  std::vector<std::string> arguments;
  std::map<std::string, std::string> environment;  // all of it, nothing is inherited
  std::filesystem::path directory;                 // to run in; empty: the test's own
  Output output = Output::captured;
  Output error = Output::captured;
  bool error_on_terminal = false;       // standard error is a pseudo-terminal, in raw mode
  unsigned short terminal_columns = 0;  // of that terminal; 0: it does not tell
  std::optional<TerminalStop> terminal_stop;
  bool ignore_interrupt = false;                    // started with SIGINT ignored
  bool ignore_hangup = false;                       // started with SIGHUP ignored
  bool block_alarm = false;                         // started with SIGALRM blocked
  std::optional<std::uint64_t> largest_file_bytes;  // the limit for files written
  std::vector<SignalPlan> signals;
  std::chrono::seconds watchdog{30};
};

struct ProgramResult {
  std::string output;
  std::string error;
  std::optional<int> exit_status;      // when it ended by itself
  std::optional<int> ended_by_signal;  // when a signal ended it
  bool killed_by_watchdog = false;
  std::chrono::milliseconds duration{0};
};

// Throws std::system_error when the program cannot be run.
ProgramResult run(const Program& program);

// The variables that the sanitizers' run-time libraries read, as this process
// has them.
std::map<std::string, std::string> sanitizer_environment();

}  // namespace zelk::test_support
