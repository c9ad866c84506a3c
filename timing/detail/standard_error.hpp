// Lines that are welcome on standard error, but for which nobody waits.
#pragma once

#include <poll.h>

namespace zelk::timing::detail {

// Whether standard error takes a line at once. A full pipe does not, nor does a
// terminal that was stopped. The descriptor's flags are left as they are: they
// belong to whoever started the program, too. Safe in a signal handler.
inline bool standard_error_is_ready() {
  constexpr int standard_error = 2;
  pollfd descriptor{.fd = standard_error, .events = POLLOUT, .revents = 0};
  return poll(&descriptor, 1, 0) == 1 && (descriptor.revents & POLLOUT) != 0;
}

}  // namespace zelk::timing::detail
