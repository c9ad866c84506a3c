#include "smoke_test/progress.hpp"

#include <unistd.h>

#include <cstdio>
#include <ratio>

#include "timing/detail/standard_error.hpp"

namespace {

constexpr std::chrono::milliseconds update_interval{200};
constexpr const char* erase_line = "\r\x1b[K";

using zelk::timing::detail::standard_error_is_ready;

}  // namespace

Progress::Progress(double capture_s)
    : capture_s_(capture_s),
      enabled_(capture_s >= shortest_capture_s && isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
  if (shown_ && standard_error_is_ready()) {
    std::fputs(erase_line, stderr);
  }
}

void Progress::update(std::chrono::steady_clock::duration elapsed, std::uint64_t tags) {
  if (!enabled_ || elapsed < next_update_) {
    return;
  }
  next_update_ = elapsed + update_interval;
  if (!standard_error_is_ready()) {
    return;
  }
  shown_ = true;
  const double elapsed_s = std::chrono::duration<double>(elapsed).count();
  const double rate = elapsed_s > 0 ? static_cast<double>(tags) / elapsed_s : 0.0;
  std::fprintf(stderr, "%s%.1f of %.1f s, %llu tags, %.0f tags/s", erase_line, elapsed_s,
               capture_s_, static_cast<unsigned long long>(tags), rate);
}
