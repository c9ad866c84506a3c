// The line of progress: its text, and what reaches a terminal.
#include "smoke_test/progress.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using zelk::timing::TimeTag;

const std::vector<ChannelRate> two_rates{{2, 9998.4}, {3, 10001.6}};

TEST(ProgressLine, GivesTimeAndRatesOfTheChannels) {
  EXPECT_EQ(progress_line(1.44, 5.0, two_rates, 80), "1.4 of 5.0 s, ch2 9998/s, ch3 10002/s");
  EXPECT_EQ(progress_line(0.0, 2.0, {}, 80), "0.0 of 2.0 s");
}

// It is 37 characters long.
TEST(ProgressLine, LeavesTheLastColumnFree) {
  EXPECT_EQ(progress_line(1.44, 5.0, two_rates, 38), "1.4 of 5.0 s, ch2 9998/s, ch3 10002/s");
  EXPECT_EQ(progress_line(1.44, 5.0, two_rates, 37), "1.4 of 5.0 s, ch2 9998/s");
}

TEST(ProgressLine, IsCutBetweenItsParts) {
  EXPECT_EQ(progress_line(1.44, 5.0, two_rates, 25), "1.4 of 5.0 s, ch2 9998/s");
  EXPECT_EQ(progress_line(1.44, 5.0, two_rates, 24), "1.4 of 5.0 s");
  EXPECT_EQ(progress_line(1.44, 5.0, two_rates, 13), "1.4 of 5.0 s");
  EXPECT_EQ(progress_line(1.44, 5.0, two_rates, 12), "1.4 s");
  EXPECT_EQ(progress_line(1.44, 5.0, two_rates, 6), "1.4 s");
  EXPECT_EQ(progress_line(1.44, 5.0, two_rates, 5), "");
  EXPECT_EQ(progress_line(1.44, 5.0, two_rates, 0), "");
}

// A slow channel behind a fast one that does not fit would look like the fast one.
TEST(ProgressLine, PassesOverNoChannel) {
  const std::vector<ChannelRate> rates{{0, 30'000'000.0}, {1, 1.0}};
  EXPECT_EQ(progress_line(1.0, 2.0, rates, 25), "1.0 of 2.0 s");
}

TEST(ProgressLine, TakesAnyLengthOfTheCapture) {
  EXPECT_EQ(progress_line(1.0, 1e300, {}, 80), "1.0 s");
  EXPECT_EQ(progress_line(1.0, HUGE_VAL, {}, 80), "1.0 of inf s");
}

TEST(ProgressLine, OfFourFastChannelsFitsAnOrdinaryTerminal) {
  const std::vector<ChannelRate> rates{{0, 3e7}, {1, 3e7}, {2, 3e7}, {3, 3e7}};
  EXPECT_EQ(progress_line(12.5, 60.0, rates, 80),
            "12.5 of 60.0 s, ch0 30000000/s, ch1 30000000/s, ch2 30000000/s, ch3 30000000/s");
}

// While it exists, standard error is a terminal, in raw mode.
class Terminal {
 public:
  explicit Terminal(const char* name) {
    setenv("TERM", name, 1);
    ours_ = posix_openpt(O_RDWR | O_NOCTTY);
    grantpt(ours_);
    unlockpt(ours_);
    theirs_ = open(ptsname(ours_), O_RDWR | O_NOCTTY);
    termios settings{};
    tcgetattr(theirs_, &settings);
    cfmakeraw(&settings);
    tcsetattr(theirs_, TCSANOW, &settings);
    dup2(theirs_, STDERR_FILENO);
  }
  ~Terminal() {
    dup2(former_, STDERR_FILENO);
    for (const int descriptor : {former_, theirs_, ours_}) {
      close(descriptor);
    }
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  void set_columns(unsigned short columns) const {
    const winsize size{.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    ASSERT_EQ(ioctl(theirs_, TIOCSWINSZ, &size), 0);
  }

  // What was written since the last time, each piece without the return to the
  // line's start that it begins with.
  std::vector<std::string> take() const {
    const std::string start = "\r\x1b[K";
    std::string text;
    std::array<char, 4096> buffer{};
    for (pollfd source{ours_, POLLIN, 0}; poll(&source, 1, 50) == 1;) {
      text.append(buffer.data(),
                  static_cast<std::size_t>(read(ours_, buffer.data(), buffer.size())));
    }
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find(start, at + 1), text.size());
      lines.push_back(text.substr(at, end - at));
      EXPECT_TRUE(lines.back().starts_with(start)) << lines.back();
      lines.back().erase(0, start.size());
      at = end;
    }
    return lines;
  }

 private:
  int former_ = dup(STDERR_FILENO);
  int ours_ = -1;
  int theirs_ = -1;
};

void add(CaptureStatistics& statistics, std::uint8_t channel, int tags) {
  for (int i = 0; i < tags; ++i) {
    statistics.add(TimeTag{channel, 1000 * i});
  }
}

// All tags come between 0 and 0.2 s. The rates are those since the oldest of the
// last five lines, or since the start.
TEST(Progress, ShowsTheRatesOfTheLastSecondOfTheStreamedChannels) {
  const Terminal terminal("xterm");
  Progress progress(10.0, 0x05);
  CaptureStatistics statistics(0.1);
  progress.update(0ms, statistics);
  add(statistics, 0, 100);
  add(statistics, 1, 10);
  add(statistics, 2, 40);
  for (int ms = 100; ms <= 1200; ms += 100) {
    progress.update(std::chrono::milliseconds(ms), statistics);
  }
  EXPECT_THAT(
      terminal.take(),
      ElementsAre("0.0 of 10.0 s, ch0 0/s, ch2 0/s", "0.2 of 10.0 s, ch0 500/s, ch2 200/s",
                  "0.4 of 10.0 s, ch0 250/s, ch2 100/s", "0.6 of 10.0 s, ch0 167/s, ch2 67/s",
                  "0.8 of 10.0 s, ch0 125/s, ch2 50/s", "1.0 of 10.0 s, ch0 100/s, ch2 40/s",
                  "1.2 of 10.0 s, ch0 0/s, ch2 0/s"));
}

TEST(Progress, FollowsTheWidthOfTheTerminal) {
  const Terminal terminal("xterm");
  Progress progress(10.0, 0x0F);
  const CaptureStatistics statistics(0.1);
  std::chrono::milliseconds elapsed = 0ms;
  const auto line_at = [&](unsigned short columns) {
    terminal.set_columns(columns);
    progress.update(elapsed, statistics);
    elapsed += 1s;
    std::vector<std::string> lines = terminal.take();
    EXPECT_EQ(lines.size(), 1U);
    return lines.empty() ? "" : lines.front();
  };
  EXPECT_EQ(line_at(200), "0.0 of 10.0 s, ch0 0/s, ch1 0/s, ch2 0/s, ch3 0/s");
  EXPECT_EQ(line_at(20), "1.0 of 10.0 s");
  EXPECT_EQ(line_at(80), "2.0 of 10.0 s, ch0 0/s, ch1 0/s, ch2 0/s, ch3 0/s");
  EXPECT_EQ(line_at(33), "3.0 of 10.0 s, ch0 0/s, ch1 0/s");
  EXPECT_EQ(line_at(0), "4.0 of 10.0 s, ch0 0/s, ch1 0/s, ch2 0/s, ch3 0/s");
  EXPECT_EQ(line_at(1), "");
}

TEST(Progress, ClearsItsLineInTheEnd) {
  const Terminal terminal("xterm");
  {
    Progress progress(10.0, 0x01);
    progress.update(0ms, CaptureStatistics(0.1));
    EXPECT_THAT(terminal.take(), ElementsAre("0.0 of 10.0 s, ch0 0/s"));
  }
  EXPECT_THAT(terminal.take(), ElementsAre(""));
}

TEST(Progress, StaysAwayFromATerminalThatCannotGoBack) {
  for (const char* name : {"dumb", ""}) {
    const Terminal terminal(name);
    {
      Progress progress(10.0, 0x0F);
      progress.update(1s, CaptureStatistics(0.1));
    }
    EXPECT_THAT(terminal.take(), IsEmpty()) << name;
  }
  const Terminal terminal("xterm");
  unsetenv("TERM");
  Progress progress(10.0, 0x0F);
  progress.update(1s, CaptureStatistics(0.1));
  EXPECT_THAT(terminal.take(), IsEmpty());
}

TEST(Progress, IsForCapturesOfTwoSecondsAndMore) {
  const Terminal terminal("xterm");
  const CaptureStatistics statistics(0.1);
  for (const double capture_s : {1.9, 0.0, -1.0, std::nan("")}) {
    Progress progress(capture_s, 0x0F);
    progress.update(1s, statistics);
  }
  EXPECT_THAT(terminal.take(), IsEmpty());
  Progress progress(2.0, 0x00);
  progress.update(1s, statistics);
  EXPECT_THAT(terminal.take(), ElementsAre("1.0 of 2.0 s"));
}

}  // namespace
