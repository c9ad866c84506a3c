// The file that a run leaves behind. It appears whole or not at all.
#pragma once

#include <pthread.h>

#include <atomic>
#include <span>
#include <string>
#include <string_view>

#include "smoke_test/descriptor.hpp"

// A regular file, or a name that does not exist yet: links are followed to the final
// target, a temporary file is made beside it at once, and what has the name so far is
// removed. The text goes into the temporary file, which then takes the name. It is
// removed when the object is destroyed without that.
//
// Anything else, such as a pipe, a terminal or /dev/fd/3, is opened at once and
// written straight.
//
// Made and written on one thread, while a signal handler on any thread may call
// write_suddenly().
class ResultFile {
 public:
  // `run_id` makes the names of temporary files unique. `inputs` are paths of files
  // that the run reads: none of them may be the place of its result, nor may
  // standard output and standard error, unless they are a device such as /dev/null.
  // Throws std::runtime_error with a line that names the place that cannot be
  // written, and the reason.
  ResultFile(const std::string& path, std::string_view run_id, std::span<const std::string> inputs);
  ~ResultFile();
  ResultFile(const ResultFile&) = delete;
  ResultFile& operator=(const ResultFile&) = delete;

  // Writes the whole text. To be called once. Throws std::runtime_error.
  void write(std::string_view text);

  // Writes head and tail in the place of what write() has written or is writing, when
  // the process is about to end; nothing may be written after it. A straight
  // destination gets them only if nothing was written to it, and as much of them as
  // it takes without delay. Safe in a signal handler.
  void write_suddenly(std::string_view head, std::string_view tail) noexcept;

  // Whether the text is in its place.
  [[nodiscard]] bool is_written() const { return written_; }

 private:
  void duplicate(int descriptor, std::span<const std::string> inputs);
  void open_straight(std::span<const std::string> inputs);
  void make_temporary(const std::string& target, std::span<const std::string> inputs);
  void refuse_unless_own(const std::string& place, std::span<const std::string> inputs) const;
  void take_name();
  void replace_suddenly(std::string_view head, std::string_view tail) noexcept;
  [[noreturn]] void fail(const std::string& reason) const;
  [[noreturn]] void fail() const;  // with the reason that errno gives

  std::string path_;  // as given
  bool straight_ = false;
  Descriptor descriptor_;  // of the temporary file, or of a straight destination
  Descriptor directory_;   // where the target is or will be
  std::string name_;       // of the target in it
  std::string temporary_;  // names of files in it
  std::string sudden_;
  pthread_t writer_ = pthread_self();

  // What a handler on another thread needs to know.
  std::atomic<bool> begun_{false};     // of a straight destination: somebody writes
  std::atomic<bool> renaming_{false};  // the writer's thread is about it
  std::atomic<bool> written_{false};
  std::atomic<bool> ending_{false};  // the handler has the last word
  static_assert(std::atomic<bool>::is_always_lock_free);
};
