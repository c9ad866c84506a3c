#include "smoke_test/interrupt.hpp"

#include <array>
#include <atomic>
#include <csignal>

namespace {

constexpr std::array<int, 2> watched_signals{SIGINT, SIGTERM};

// A signal handler can reach nothing but a global of a lock-free type.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic<int> received_signal{0};
static_assert(std::atomic<int>::is_always_lock_free);

void set_disposition(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(signal, &action, nullptr);
}

void set_unless_ignored(void (*handler)(int)) {
  for (const int signal : watched_signals) {
    struct sigaction current {};
    sigaction(signal, nullptr, &current);
    if (current.sa_handler != SIG_IGN) {
      set_disposition(signal, handler);
    }
  }
}

extern "C" void remember_signal(int signal) {
  received_signal.store(signal);
  set_unless_ignored(SIG_DFL);
}

}  // namespace

InterruptWatch::InterruptWatch() {
  received_signal = 0;
  set_unless_ignored(&remember_signal);
}

InterruptWatch::~InterruptWatch() {
  set_unless_ignored(SIG_DFL);
}

int InterruptWatch::signal_number() const {
  return received_signal;
}

void ignore_closed_pipes() {
  set_disposition(SIGPIPE, SIG_IGN);
}
