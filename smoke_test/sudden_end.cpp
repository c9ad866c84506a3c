#include "smoke_test/sudden_end.hpp"

#include <atomic>

namespace {

// A signal handler can reach nothing but globals of lock-free types.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic<BeforeSuddenEnd> to_be_done{nullptr};
static_assert(std::atomic<BeforeSuddenEnd>::is_always_lock_free);

}  // namespace

void set_before_sudden_end(BeforeSuddenEnd function) {
  to_be_done = function;
}

void before_sudden_end(int exit_status, int signal) {
  if (const BeforeSuddenEnd function = to_be_done; function != nullptr) {
    function(exit_status, signal);
  }
}

bool sudden_end_takes_time() {
  return to_be_done != nullptr;
}
