#include "smoke_test/progress.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>
#include <vector>

#include "smoke_test/standard_streams.hpp"
#include "smoke_test/text.hpp"

namespace {

constexpr std::chrono::milliseconds update_interval{200};
constexpr const char* erase_line = "\r\x1b[K";

// Whether standard error can show a line that is rewritten in place.
bool is_shown() {
  const char* const name = std::getenv("TERM");
  const std::string_view terminal = name != nullptr ? name : "";
  return !terminal.empty() && terminal != "dumb" && isatty(STDERR_FILENO) != 0;
}

// Of the terminal as it is now: its window may have changed.
std::size_t terminal_columns() {
  constexpr std::size_t usual_columns = 80;
  winsize size{};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
  return known ? size.ws_col : usual_columns;
}

}  // namespace

std::string progress_line(double elapsed_s, double capture_s, std::span<const ChannelRate> rates,
                          std::size_t columns) {
  const std::string elapsed = fixed_text(elapsed_s, 1);
  std::string line = elapsed + " of " + fixed_text(capture_s, 1) + " s";
  if (line.size() >= columns) {
    line = elapsed + " s";
  }
  if (line.size() >= columns) {
    return "";
  }
  for (const ChannelRate& rate : rates) {
    const std::string next =
        ", ch" + std::to_string(rate.channel) + " " + fixed_text(rate.tags_per_s, 0) + "/s";
    if (line.size() + next.size() >= columns) {
      break;
    }
    line += next;
  }
  return line;
}

Progress::Progress(double capture_s, std::uint8_t channel_mask)
    : capture_s_(capture_s),
      channel_mask_(channel_mask),
      next_update_(capture_s >= shortest_capture_s && is_shown()
                       ? std::chrono::steady_clock::duration::zero()
                       : std::chrono::steady_clock::duration::max()) {}

Progress::~Progress() {
  if (shown_) {
    print_if_ready(erase_line);
  }
}

void Progress::rewrite(std::chrono::steady_clock::duration elapsed,
                       const CaptureStatistics& statistics) {
  next_update_ = elapsed + update_interval;
  Sample now{.elapsed_s = std::chrono::duration<double>(elapsed).count()};
  Sample& before = samples_[oldest_];
  const double span_s = now.elapsed_s - before.elapsed_s;
  const auto times_ps = statistics.times_ps();
  std::vector<ChannelRate> rates;
  for (std::size_t channel = 0; channel < now.tags.size(); ++channel) {
    now.tags[channel] = times_ps[channel].size();
    if ((channel_mask_ >> channel & 1U) != 0) {
      const auto tags = static_cast<double>(now.tags[channel] - before.tags[channel]);
      rates.push_back({channel, span_s > 0 ? tags / span_s : 0.0});
    }
  }
  before = now;
  oldest_ = (oldest_ + 1) % samples_.size();
  const std::string line = progress_line(now.elapsed_s, capture_s_, rates, terminal_columns());
  print_if_ready(erase_line + line);
  shown_ = true;
}
