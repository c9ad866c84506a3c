#include "smoke_test/watchdog.hpp"

#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "smoke_test/sudden_end.hpp"
#include "smoke_test/verdict.hpp"
#include "timing/detail/standard_error.hpp"

namespace {

constexpr int unsettled = -1;

// A signal handler can reach nothing but globals of lock-free types.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic<int> ticks_left{0};              // of the call that is under way; 0: none is
std::atomic<int> ticks_of_call{0};           // all that it may take
std::atomic<std::int64_t> first_tick_ms{0};  // when it is due; 0: it has come
std::atomic<int> settled_status{unsettled};
std::atomic<bool> giving_up{false};
std::atomic<bool> last_things_begun{false};
std::atomic<int> ticks_for_last_things{8};
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free &&
              std::atomic<std::int64_t>::is_always_lock_free);

std::int64_t now_ms() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

int ticks_in(std::chrono::milliseconds time) {
  return static_cast<int>((time + Watchdog::tick - std::chrono::milliseconds{1}) / Watchdog::tick);
}

// The next tick goes on from here if the line should keep this one waiting, and a
// later one ends the process if the last things do. Returns only while these have
// time.
void give_up() {
  const int settled = settled_status;
  const int status = settled != unsettled ? settled : exit_failure;
  constexpr std::string_view text = "the device library does not answer\n";
  if (!giving_up.exchange(true) && settled == unsettled &&
      zelk::timing::detail::standard_error_is_ready()) {
    [[maybe_unused]] const auto written = write(STDERR_FILENO, text.data(), text.size());
  }
  if (!last_things_begun.exchange(true)) {
    before_sudden_end(status, 0);
    _exit(status);
  }
  if (!sudden_end_takes_time() || ticks_for_last_things.fetch_sub(1) <= 1) {
    _exit(status);
  }
}

// What is safe in a signal handler: lock-free atomics, the clock, poll, write, what
// before_sudden_end() does, and _exit.
extern "C" void count_tick(int /*signal*/) {
  const int saved_errno = errno;
  int left = ticks_left;
  const std::int64_t due_ms = first_tick_ms.exchange(0);
  if (left > 0 && due_ms != 0 && now_ms() - due_ms > Watchdog::tick.count()) {
    // The process did not run for a part of the first half: all of it counts anew.
    ticks_left.compare_exchange_strong(left, ticks_of_call);
  } else if (giving_up || left == 1) {
    give_up();
  } else if (left > 1) {
    // A call that begins or ends meanwhile has the last word.
    ticks_left.compare_exchange_strong(left, left - 1);
  }
  errno = saved_errno;
}

void set_timer(std::chrono::milliseconds first, std::chrono::milliseconds interval) {
  itimerval timer{};
  timer.it_value.tv_sec = first.count() / 1000;
  timer.it_value.tv_usec = first.count() % 1000 * 1000;
  timer.it_interval.tv_usec = interval.count() * 1000;
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
}

Watchdog::~Watchdog() {
  set_timer(std::chrono::milliseconds{0}, tick);  // no time at all stops the timer
}

void Watchdog::begin_call(std::chrono::milliseconds limit) {
  const std::chrono::milliseconds quiet = limit / 2 + std::chrono::milliseconds{1};
  ticks_left = 0;
  first_tick_ms = now_ms() + quiet.count();
  ticks_of_call = ticks_in(limit);
  ticks_left = ticks_in(limit - limit / 2) + 1;  // and the first one
  set_timer(quiet, tick);
}

void Watchdog::end_call() {
  ticks_left = 0;
}

void Watchdog::settle(int status) {
  settled_status = status;
}
