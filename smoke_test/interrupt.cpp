#include "smoke_test/interrupt.hpp"

#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>

#include "smoke_test/sudden_end.hpp"
#include "smoke_test/verdict.hpp"

namespace {

constexpr std::array<int, 3> watched_signals{SIGHUP, SIGINT, SIGTERM};

// A signal handler can reach nothing but globals of lock-free types.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic<int> received_signal{0};
std::atomic<bool> ends_at_once{false};
std::atomic<bool> ending{false};
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

void set_unless_ignored(void (*handler)(int), int flags) {
  for (const int signal : watched_signals) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler != SIG_IGN) {
      action.sa_handler = handler;
      action.sa_flags = flags;
      sigemptyset(&action.sa_mask);
      sigaction(signal, &action, nullptr);
    }
  }
}

extern "C" void take_signal(int signal) {
  if (ends_at_once) {
    // One that comes meanwhile ends the program without the rest.
    if (!ending.exchange(true)) {
      before_sudden_end(exit_signal_base + signal, signal);
    }
    _exit(exit_signal_base + signal);
  }
  received_signal = signal;
  set_unless_ignored(SIG_DFL, 0);
}

// A signal in the midst of it leaves its ordinary effect to the next one.
void handle_again(int flags) {
  if (received_signal == 0) {
    set_unless_ignored(&take_signal, flags);
  }
  if (received_signal != 0) {
    set_unless_ignored(SIG_DFL, 0);
  }
}

}  // namespace

InterruptWatch::InterruptWatch() {
  received_signal = 0;
  ends_at_once = false;
  set_unless_ignored(&take_signal, 0);
}

InterruptWatch::~InterruptWatch() {
  set_unless_ignored(SIG_DFL, 0);
}

int InterruptWatch::signal_number() const {
  return received_signal;
}

void InterruptWatch::check() const {
  if (signal_number() != 0) {
    throw Interrupted();
  }
}

void InterruptWatch::end_set_up() {
  handle_again(SA_RESTART);
}

void InterruptWatch::end_at_once_from_now_on() {
  ends_at_once = true;
  handle_again(0);
}

SignalsForMainThread::SignalsForMainThread() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : watched_signals) {
    sigaddset(&signals, signal);
  }
  sigaddset(&signals, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &signals, &before_);
}

SignalsForMainThread::~SignalsForMainThread() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}
