// A file whose contents are those of the input that is run, in a directory of the
// process's own that is gone when it ends.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <span>
#include <string>

#include "fuzz/input.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::fuzz {

class ScratchFile {
 public:
  explicit ScratchFile(const char* name)
      : path_((directory_.path() / name).string()),
        file_(::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    expect(file_ >= 0, "a scratch file is made");
  }
  ~ScratchFile() { ::close(file_); }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const std::filesystem::path& directory() const { return directory_.path(); }

  // Makes the file these bytes, and `zeros` bytes of 0 behind them. Written in
  // place: some file systems write a file that was cut to nothing and filled
  // again to the disk at once.
  void fill(std::span<const std::uint8_t> bytes, std::size_t zeros = 0) {
    const auto size = static_cast<ssize_t>(bytes.size());
    expect(::pwrite(file_, bytes.data(), bytes.size(), 0) == size, "a scratch file is written");
    expect(::ftruncate(file_, size) == 0, "a scratch file is cut");
    expect(::ftruncate(file_, static_cast<off_t>(bytes.size() + zeros)) == 0,
           "a scratch file is extended");
  }

 private:
  test_support::TemporaryDirectory directory_;
  std::string path_;
  int file_;
};

// Makes a directory the working directory for its own lifetime.
class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::filesystem::path& directory) {
    std::filesystem::current_path(directory);
  }
  ~WorkingDirectory() { std::filesystem::current_path(former_); }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  std::filesystem::path former_ = std::filesystem::current_path();
};

}  // namespace zelk::fuzz
