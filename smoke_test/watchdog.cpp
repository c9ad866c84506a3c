#include "smoke_test/watchdog.hpp"

#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string_view>

#include "smoke_test/verdict.hpp"
#include "timing/detail/standard_error.hpp"

namespace {

constexpr int unsettled = -1;

// A signal handler can reach nothing but globals of lock-free types.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic<int> ticks_left{0};  // of the call that is under way; 0: none is
std::atomic<int> settled_status{unsettled};
std::atomic<bool> giving_up{false};
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

// The next tick ends the process if the line should keep this one waiting.
[[noreturn]] void give_up() {
  const int status = settled_status;
  if (status != unsettled) {
    _exit(status);
  }
  constexpr std::string_view text = "the device library does not answer\n";
  if (!giving_up.exchange(true) && zelk::timing::detail::standard_error_is_ready()) {
    [[maybe_unused]] const auto written = write(STDERR_FILENO, text.data(), text.size());
  }
  _exit(exit_failure);
}

// What is safe in a signal handler: lock-free atomics, poll, write and _exit.
extern "C" void count_tick(int /*signal*/) {
  const int saved_errno = errno;
  int left = ticks_left;
  if (giving_up || left == 1) {
    give_up();
  }
  // A call that begins or ends meanwhile has the last word.
  if (left > 1) {
    ticks_left.compare_exchange_strong(left, left - 1);
  }
  errno = saved_errno;
}

void set_timer(std::chrono::microseconds interval) {
  itimerval timer{};
  timer.it_value.tv_usec = static_cast<suseconds_t>(interval.count());
  timer.it_interval = timer.it_value;
  setitimer(ITIMER_REAL, &timer, nullptr);
}

// Whoever started the program may have left the signal blocked.
void let_in(int signal) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, signal);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

}  // namespace

Watchdog::Watchdog() {
  ticks_left = 0;
  settled_status = unsettled;
  struct sigaction action {};
  action.sa_handler = &count_tick;
  action.sa_flags = SA_RESTART | SA_NODEFER;
  sigemptyset(&action.sa_mask);
  sigaction(SIGALRM, &action, nullptr);
  let_in(SIGALRM);
  set_timer(tick);
}

Watchdog::~Watchdog() {
  set_timer(std::chrono::microseconds{0});  // no time at all stops the timer
}

// The first tick may come at once: it does not count.
void Watchdog::begin_call(std::chrono::milliseconds limit) {
  ticks_left = static_cast<int>((limit + tick - std::chrono::milliseconds{1}) / tick) + 1;
}

void Watchdog::end_call() {
  ticks_left = 0;
}

void Watchdog::settle(int status) {
  settled_status = status;
}
