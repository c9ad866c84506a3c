#include "smoke_test/standard_streams.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>

#include "timing/detail/standard_error.hpp"

namespace {

void ignore(int signal) {
  struct sigaction action {};
  action.sa_handler = SIG_IGN;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

// Opening gives the lowest free number. What is opened can neither be read nor
// be written.
void occupy_standard_descriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) == -1) {
      open("/", O_PATH);
    }
  }
}

}  // namespace

void prepare_standard_streams() {
  occupy_standard_descriptors();
  ignore(SIGPIPE);
  ignore(SIGXFSZ);
}

std::string without_control_characters(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  constexpr unsigned char first_printable = 0x20;
  constexpr unsigned char del = 0x7F;
  std::string printable;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= first_printable && byte != del) {
      printable += c;
    } else if (c == '\n') {
      printable += "\\n";
    } else if (c == '\r') {
      printable += "\\r";
    } else if (c == '\t') {
      printable += "\\t";
    } else {
      printable += "\\x";
      printable += digits[byte >> 4];
      printable += digits[byte & 0xF];
    }
  }
  return printable;
}

// A stream would give the line up when a signal interrupts its wait, or when whoever
// shares the descriptor made it one that does not wait.
void print_error(std::string_view text) {
  const std::string line = without_control_characters(text) + '\n';
  for (std::string_view rest = line; !rest.empty();) {
    const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd descriptor{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
      poll(&descriptor, 1, -1);
    } else if (errno != EINTR) {
      return;
    }
  }
}

void print_if_ready(std::string_view text) {
  if (zelk::timing::detail::standard_error_is_ready()) {
    [[maybe_unused]] const auto written = write(STDERR_FILENO, text.data(), text.size());
  }
}

void print_note(std::string_view text) {
  print_if_ready("note: " + without_control_characters(text) + '\n');
}
