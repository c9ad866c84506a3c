// The bytes of a tag file, whatever its layout, read from front to back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>

#include "simulator/failure.hpp"

namespace zelk::simulator {

// Why a tag file that is open cannot be read.
Failure unreadable_tag_file(const std::string& path, const std::string& reason);

class TagFileBytes {
 public:
  // Opens the file. Throws Failure when that fails, and for what is no plain file.
  explicit TagFileBytes(const std::string& path);

  [[nodiscard]] const std::string& path() const { return path_; }

  // Of the whole file, at the moment.
  [[nodiscard]] std::uint64_t size_bytes() const;

  // The next bytes, to the front of `bytes`. Returns their number, which is
  // smaller than asked for only at the end of the file. Throws Failure.
  std::size_t read(std::span<char> bytes);

  // The next read() starts at the front again.
  void rewind() { std::rewind(file_.get()); }

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  std::string path_;
  std::unique_ptr<std::FILE, Closer> file_;
};

}  // namespace zelk::simulator
