#include "smoke_test/watchdog.hpp"

#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <string_view>

#include "smoke_test/verdict.hpp"

namespace {

// A signal handler may call only what is safe in one: write and _exit are.
extern "C" void give_up(int /*signal*/) {
  constexpr std::string_view text = "the device library does not answer\n";
  [[maybe_unused]] const auto written = write(STDERR_FILENO, text.data(), text.size());
  _exit(exit_failure);
}

}  // namespace

Watchdog::Watchdog() {
  struct sigaction action {};
  action.sa_handler = &give_up;
  sigemptyset(&action.sa_mask);
  sigaction(SIGALRM, &action, nullptr);
}

Watchdog::~Watchdog() {
  rest();
}

void Watchdog::kick(std::chrono::milliseconds limit) {
  itimerval timer{};
  timer.it_value.tv_sec = limit.count() / 1000;
  timer.it_value.tv_usec = limit.count() % 1000 * 1000;
  setitimer(ITIMER_REAL, &timer, nullptr);
}

void Watchdog::rest() {
  kick(std::chrono::milliseconds{0});  // no time at all stops the timer
}
