// An open file of the operating system, closed when the object is destroyed.
#pragma once

#include <unistd.h>

#include <utility>

namespace zelk::simulator {

class FileDescriptor {
 public:
  // Takes over `number`; negative for no file.
  explicit FileDescriptor(int number = -1) noexcept : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~FileDescriptor() {
    if (number_ >= 0) {
      ::close(number_);
    }
  }

  [[nodiscard]] int get() const noexcept { return number_; }
  [[nodiscard]] bool is_open() const noexcept { return number_ >= 0; }

 private:
  int number_;
};

}  // namespace zelk::simulator
