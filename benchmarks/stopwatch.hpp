// Processor time of this thread, so that other work on the machine does not count.
#pragma once

#include <ctime>

inline double processor_seconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

// What the action takes.
template <typename Action>
double seconds(Action&& action) {
  const double start = processor_seconds();
  action();
  return processor_seconds() - start;
}
