#include "smoke_test/standard_streams.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <string>
#include <string_view>
#include <thread>

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

void do_nothing(int /*signal*/) {}

// Prints to a pipe that is full for a while, in which signals are handled.
std::string printed_while_interrupted(int descriptor_flags) {
  struct sigaction action {};
  action.sa_handler = &do_nothing;  // and interrupts what waits
  sigaction(SIGUSR1, &action, nullptr);
  const ErrorPipe standard_error;
  ErrorPipe::fill();
  fcntl(STDERR_FILENO, F_SETFL, descriptor_flags);
  std::string text;
  const std::thread::native_handle_type printer = pthread_self();
  std::thread reader([&] {
    for (int i = 0; i < 20; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      pthread_kill(printer, SIGUSR1);
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!text.ends_with('\n') && std::chrono::steady_clock::now() < end) {
      text += standard_error.text();
    }
  });
  print_error("the reason");
  reader.join();
  return text.substr(std::min(text.size(), text.find_first_not_of('x')));
}

TEST(ErrorLine, IsNotLostWhenSignalsInterruptItsWait) {
  EXPECT_EQ(printed_while_interrupted(0), "the reason\n");
  EXPECT_EQ(printed_while_interrupted(O_NONBLOCK), "the reason\n");
}

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
