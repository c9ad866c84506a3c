#include "smoke_test/results/result_file.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstddef>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace {

constexpr mode_t by_the_umask = 0666;
constexpr int most_links = 40;  // as many as the system follows

std::string reason_of(int error) {
  return std::generic_category().message(error);
}

// The descriptor that a path such as /dev/fd/3 stands for.
std::optional<int> named_descriptor(std::string_view path) {
  for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/"}) {
    if (!path.starts_with(folder)) {
      continue;
    }
    const std::string_view digits = path.substr(folder.size());
    int number = -1;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (read.ec == std::errc() && read.ptr == digits.data() + digits.size() && number >= 0) {
      return number;
    }
  }
  return std::nullopt;
}

// The path with everything up to its last "/", and what stands behind it.
std::pair<std::string, std::string> split(const std::string& path) {
  const std::size_t name = path.rfind('/') + 1;  // 0 when there is no "/"
  return {path.substr(0, name), path.substr(name)};
}

// What the path leads to by symbolic links, whether it exists or not. A path that
// stands for a descriptor is left as it is.
std::string follow_links(std::string path) {
  std::array<char, PATH_MAX> link{};
  for (int i = 0; i < most_links && !named_descriptor(path); ++i) {
    const ssize_t length = readlink(path.c_str(), link.data(), link.size());
    if (length < 0) {
      return path;
    }
    const std::string to(link.data(), static_cast<std::size_t>(length));
    path = to.starts_with('/') ? to : split(path).first.append(to);
  }
  return path;
}

// Waits for who reads it, also when the descriptor as it was handed over would not.
bool write_all(int descriptor, std::string_view text) {
  constexpr int for_ever = -1;
  while (!text.empty()) {
    const ssize_t count = write(descriptor, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd ready{.fd = descriptor, .events = POLLOUT, .revents = 0};
      poll(&ready, 1, for_ever);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

// Writes as much as the descriptor takes within a moment: who does not read it must
// not keep the program from ending. Safe in a signal handler.
bool write_while_ready(int descriptor, std::string_view text) {
  constexpr int patience_ms = 500;
  constexpr std::size_t most_at_once = 512;  // what a pipe that is ready takes
  while (!text.empty()) {
    pollfd ready{.fd = descriptor, .events = POLLOUT, .revents = 0};
    const int count = poll(&ready, 1, patience_ms);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count != 1 || (ready.revents & POLLOUT) == 0) {
      return false;
    }
    const ssize_t written = write(descriptor, text.data(), std::min(text.size(), most_at_once));
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

ResultFile::ResultFile(const std::string& path, std::string_view run_id,
                       std::span<const std::string> inputs)
    : path_(path),
      temporary_(".zelk-" + std::string(run_id) + ".json"),
      sudden_(".zelk-" + std::string(run_id) + "-end.json") {
  if (path.empty()) {
    throw std::runtime_error("json= needs the name of a file");
  }
  const std::string target = follow_links(path);
  if (const std::optional<int> descriptor = named_descriptor(target)) {
    duplicate(*descriptor, inputs);
    return;
  }
  struct stat status {};
  const bool exists = stat(path.c_str(), &status) == 0;
  if (!exists && errno != ENOENT) {
    fail();
  }
  if (exists && S_ISDIR(status.st_mode)) {
    fail("it is a directory");
  }
  if (exists && !S_ISREG(status.st_mode)) {
    open_straight(inputs);
  } else {
    make_temporary(target, inputs);
  }
}

ResultFile::~ResultFile() {
  if (!straight_ && !written_) {
    unlinkat(directory_.get(), temporary_.c_str(), 0);
  }
}

// A descriptor that the program was started with, at the place where it stands. What
// is opened by that path would begin at its first byte.
void ResultFile::duplicate(int descriptor, std::span<const std::string> inputs) {
  straight_ = true;
  descriptor_.reset(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
  const int flags = fcntl(descriptor_.get(), F_GETFL);
  if (flags == -1) {
    fail();
  }
  if ((flags & O_ACCMODE) == O_RDONLY || (flags & O_PATH) != 0) {
    fail("it is open for reading only");
  }
  refuse_unless_own(path_, inputs);
}

// A pipe that nobody reads would keep the program waiting for its reader.
void ResultFile::open_straight(std::span<const std::string> inputs) {
  straight_ = true;
  refuse_unless_own(path_, inputs);
  descriptor_.reset(open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (descriptor_.get() < 0) {
    errno == ENXIO ? fail("nobody reads it") : fail();
  }
  const int flags = fcntl(descriptor_.get(), F_GETFL);
  if (flags == -1 || fcntl(descriptor_.get(), F_SETFL, flags & ~O_NONBLOCK) == -1) {
    fail();
  }
}

void ResultFile::make_temporary(const std::string& target, std::span<const std::string> inputs) {
  const auto [folder, name] = split(target);
  name_ = name;
  directory_.reset(open(folder.empty() ? "." : folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (directory_.get() < 0) {
    fail();
  }
  struct stat status {};
  const bool exists = fstatat(directory_.get(), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (name_.empty() || (exists && !S_ISREG(status.st_mode))) {
    fail("it is no file");
  }
  if (exists) {
    refuse_unless_own(target, inputs);
    if (faccessat(directory_.get(), name_.c_str(), W_OK, AT_EACCESS) != 0) {
      fail();
    }
  }
  descriptor_.reset(openat(directory_.get(), temporary_.c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, by_the_umask));
  if (descriptor_.get() < 0) {
    fail();
  }
  if (exists && unlinkat(directory_.get(), name_.c_str(), 0) != 0) {
    const int error = errno;
    unlinkat(directory_.get(), temporary_.c_str(), 0);
    fail(reason_of(error));
  }
}

void ResultFile::refuse_unless_own(const std::string& place,
                                   std::span<const std::string> inputs) const {
  struct stat own {};
  const int known =
      descriptor_.get() >= 0 ? fstat(descriptor_.get(), &own) : stat(place.c_str(), &own);
  if (known != 0) {
    fail();
  }
  struct stat other {};
  for (const auto& [descriptor, name] :
       {std::pair(STDOUT_FILENO, "standard output"), std::pair(STDERR_FILENO, "standard error")}) {
    if (!S_ISCHR(own.st_mode) && fstat(descriptor, &other) == 0 && is_same_file(own, other)) {
      fail("it is " + std::string(name));
    }
  }
  for (const std::string& input : inputs) {
    if (stat(input.c_str(), &other) == 0 && is_same_file(own, other)) {
      fail("the run reads it, too");
    }
  }
}

void ResultFile::write(std::string_view text) {
  if (straight_) {
    if (begun_.exchange(true)) {
      return;  // a handler writes, and ends the process
    }
    if (!write_all(descriptor_.get(), text)) {
      fail();
    }
    written_ = true;
    return;
  }
  if (!write_all(descriptor_.get(), text) || !descriptor_.close()) {
    fail();
  }
  take_name();
}

// A handler that runs on another thread waits for a rename that has begun; one that
// begins after it would undo what the handler wrote.
void ResultFile::take_name() {
  renaming_ = true;
  if (ending_) {
    renaming_ = false;
    return;
  }
  const bool renamed =
      renameat(directory_.get(), temporary_.c_str(), directory_.get(), name_.c_str()) == 0;
  const int error = errno;
  written_ = renamed;
  renaming_ = false;
  if (!renamed) {
    fail(reason_of(error));
  }
}

void ResultFile::write_suddenly(std::string_view head, std::string_view tail) noexcept {
  if (ending_.exchange(true)) {
    return;
  }
  if (!straight_) {
    replace_suddenly(head, tail);
  } else if (!begun_.exchange(true) && write_while_ready(descriptor_.get(), head)) {
    write_while_ready(descriptor_.get(), tail);
  }
}

void ResultFile::replace_suddenly(std::string_view head, std::string_view tail) noexcept {
  constexpr timespec moment{.tv_sec = 0, .tv_nsec = 1'000'000};
  while (renaming_ && pthread_equal(pthread_self(), writer_) == 0) {
    nanosleep(&moment, nullptr);
  }
  const int directory = directory_.get();
  const int file =
      openat(directory, sudden_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, by_the_umask);
  if (file < 0) {
    return;
  }
  const bool whole = write_all(file, head) && write_all(file, tail);
  if (whole && renameat(directory, sudden_.c_str(), directory, name_.c_str()) == 0) {
    unlinkat(directory, temporary_.c_str(), 0);
  } else {
    unlinkat(directory, sudden_.c_str(), 0);
  }
}

void ResultFile::fail(const std::string& reason) const {
  throw std::runtime_error("cannot write the JSON document to " + path_ + ": " + reason);
}

void ResultFile::fail() const {
  fail(reason_of(errno));
}
