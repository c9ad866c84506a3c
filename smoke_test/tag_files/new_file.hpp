// A file that did not exist before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "smoke_test/descriptor.hpp"

// Made by the constructor. Unless it is kept, the destructor removes it again. Used on
// one thread.
class NewFile {
 public:
  // Nothing that exists is touched, not even a link that leads nowhere. Throws
  // std::system_error when the file cannot be made.
  explicit NewFile(const std::string& path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  // From here on the file stays.
  void keep() { kept_ = true; }

  // Whether `path` leads to it.
  [[nodiscard]] bool is_at(const std::string& path) const;

  // What was written of the text, from its first byte on, and why no more.
  struct Written {
    std::size_t bytes = 0;
    std::error_code error{};  // none: all of it
  };
  Written write_at(std::uint64_t offset, std::string_view text);

  // Ends the file after so many bytes, if it can.
  void cut(std::uint64_t bytes);

  // The error that the system has kept for the end.
  std::error_code close();

 private:
  std::string path_;
  Descriptor descriptor_;
  bool kept_ = false;
};
