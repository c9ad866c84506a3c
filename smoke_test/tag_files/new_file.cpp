#include "smoke_test/tag_files/new_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr mode_t by_the_umask = 0666;

std::error_code last_error() {
  return {errno, std::generic_category()};
}

}  // namespace

NewFile::NewFile(const std::string& path) : path_(path) {
  int number = -1;
  do {
    number = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, by_the_umask);
  } while (number < 0 && errno == EINTR);
  if (number < 0) {
    throw std::system_error(last_error());
  }
  descriptor_.reset(number);
}

NewFile::~NewFile() {
  if (!kept_ && is_at(path_)) {
    unlink(path_.c_str());
  }
}

bool NewFile::is_at(const std::string& path) const {
  struct stat own {};
  struct stat other {};
  return fstat(descriptor_.get(), &own) == 0 && stat(path.c_str(), &other) == 0 &&
         is_same_file(own, other);
}

NewFile::Written NewFile::write_at(std::uint64_t offset, std::string_view text) {
  std::size_t bytes = 0;
  while (bytes < text.size()) {
    const ssize_t count = pwrite(descriptor_.get(), text.data() + bytes, text.size() - bytes,
                                 static_cast<off_t>(offset + bytes));
    if (count > 0) {
      bytes += static_cast<std::size_t>(count);
    } else if (count == 0) {
      return {bytes, std::make_error_code(std::errc::io_error)};
    } else if (errno != EINTR) {
      return {bytes, last_error()};
    }
  }
  return {bytes, {}};
}

void NewFile::cut(std::uint64_t bytes) {
  [[maybe_unused]] const int result = ftruncate(descriptor_.get(), static_cast<off_t>(bytes));
}

std::error_code NewFile::close() {
  return descriptor_.close() ? std::error_code() : last_error();
}
