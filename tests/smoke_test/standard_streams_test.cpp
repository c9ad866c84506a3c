#include "smoke_test/standard_streams.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <string>
#include <string_view>

namespace {

TEST(ErrorLine, KeepsOrdinaryTextAsItIs) {
  EXPECT_EQ(without_control_characters(""), "");
  EXPECT_EQ(without_control_characters("open: no such unit (ftdi://7) \\n \xC2\xB5s ~"),
            "open: no such unit (ftdi://7) \\n \xC2\xB5s ~");
}

TEST(ErrorLine, WritesControlCharactersOut) {
  EXPECT_EQ(without_control_characters("one\ntwo\r\tthree"), "one\\ntwo\\r\\tthree");
  EXPECT_EQ(without_control_characters(std::string_view("\0\x1f\x1b[2J\x7f", 7)),
            "\\x00\\x1f\\x1b[2J\\x7f");
}

TEST(StandardStreams, AClosedPipeBecomesAnErrorOfTheWrite) {
  prepare_standard_streams();
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  close(ends[0]);
  EXPECT_EQ(write(ends[1], "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  close(ends[1]);
}

// Standard error as a pipe of its own, as long as this lives.
class ErrorPipe {
 public:
  ErrorPipe() {
    EXPECT_EQ(pipe2(ends_.data(), O_NONBLOCK), 0);
    dup2(ends_[1], STDERR_FILENO);
    close(ends_[1]);
  }
  ~ErrorPipe() {
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    close(ends_[0]);
  }
  ErrorPipe(const ErrorPipe&) = delete;
  ErrorPipe& operator=(const ErrorPipe&) = delete;

  // Until it takes no more, one byte after the other.
  static void fill() {
    while (write(STDERR_FILENO, "x", 1) == 1) {
    }
  }

  // What has been written and not yet read.
  [[nodiscard]] std::string text() const {
    std::string all;
    std::array<char, 4096> part{};
    for (ssize_t count = 0; (count = read(ends_[0], part.data(), part.size())) > 0;) {
      all.append(part.data(), static_cast<std::size_t>(count));
    }
    return all;
  }

 private:
  std::array<int, 2> ends_{};
  int saved_ = dup(STDERR_FILENO);
};

TEST(Note, IsOneMarkedLine) {
  const ErrorPipe standard_error;
  print_note("a\tb\n");
  EXPECT_EQ(standard_error.text(), "note: a\\tb\\n\n");
}

TEST(Note, IsLeftOutWhileStandardErrorTakesNothing) {
  const ErrorPipe standard_error;
  ErrorPipe::fill();
  print_note("left out");
  EXPECT_EQ(standard_error.text().find_first_not_of('x'), std::string::npos);
  print_note("taken");
  EXPECT_EQ(standard_error.text(), "note: taken\n");
}

// Ends with the number that the next file gets, plus 10 for each write that
// succeeded.
[[noreturn]] void open_after_closing(std::initializer_list<int> closed) {
  for (const int descriptor : closed) {
    close(descriptor);
  }
  prepare_standard_streams();
  const int next = open("/", O_RDONLY);
  int status = next;
  for (const int descriptor : closed) {
    status += write(descriptor, "x", 1) == 1 ? 10 : 0;
  }
  _exit(status);
}

// The number of a file opened by a process that has its three descriptors.
int next_descriptor() {
  const int next = open("/", O_RDONLY);
  close(next);
  return next;
}

TEST(StandardStreamsDeathTest, NoFileGetsTheNumberOfAClosedDescriptor) {
  const int next = next_descriptor();
  ASSERT_GE(next, 3);
  EXPECT_EXIT(open_after_closing({0}), testing::ExitedWithCode(next), "");
  EXPECT_EXIT(open_after_closing({1}), testing::ExitedWithCode(next), "");
  EXPECT_EXIT(open_after_closing({2}), testing::ExitedWithCode(next), "");
  EXPECT_EXIT(open_after_closing({0, 1, 2}), testing::ExitedWithCode(next), "");
}

}  // namespace
