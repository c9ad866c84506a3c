// An open file, pipe or terminal as the system numbers it.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

// An open descriptor, closed at the end; -1: none.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] int get() const { return number_; }
  void reset(int number) {
    close();
    number_ = number;
  }
  // False when the system says, as late as that, that something was not written.
  bool close() {
    const int number = std::exchange(number_, -1);
    return number < 0 || ::close(number) == 0;
  }

 private:
  int number_;
};

// Whether what the system says of two names or descriptors is said of one file.
inline bool is_same_file(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}
