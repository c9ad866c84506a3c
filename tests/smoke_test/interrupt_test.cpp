#include "smoke_test/interrupt.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace {

using Handler = void (*)(int);

// Sets what a signal does for the length of a test.
class SignalSetting {
 public:
  SignalSetting(int signal, Handler handler)
      : signal_(signal), before_(std::signal(signal, handler)) {}
  ~SignalSetting() { std::signal(signal_, before_); }
  SignalSetting(const SignalSetting&) = delete;
  SignalSetting& operator=(const SignalSetting&) = delete;

 private:
  int signal_;
  Handler before_;
};

Handler handler_of(int signal) {
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler;
}

TEST(InterruptWatch, ReportsNoSignalUntilOneArrives) {
  const InterruptWatch watch;
  EXPECT_EQ(watch.signal_number(), 0);
}

TEST(InterruptWatch, RemembersTheFirstSignalInsteadOfEnding) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const InterruptWatch watch;
    std::raise(signal);
    EXPECT_EQ(watch.signal_number(), signal);
    EXPECT_EQ(watch.signal_number(), signal);
  }
}

TEST(InterruptWatch, StartsWithoutTheSignalOfAnEarlierWatch) {
  {
    const InterruptWatch watch;
    std::raise(SIGINT);
  }
  const InterruptWatch watch;
  EXPECT_EQ(watch.signal_number(), 0);
}

TEST(InterruptWatch, LeavesAnIgnoredSignalIgnored) {
  const SignalSetting ignored(SIGINT, SIG_IGN);
  {
    const InterruptWatch watch;
    std::raise(SIGINT);
    EXPECT_EQ(watch.signal_number(), 0);
    EXPECT_EQ(handler_of(SIGINT), SIG_IGN);
    std::raise(SIGTERM);
    EXPECT_EQ(watch.signal_number(), SIGTERM);
  }
  EXPECT_EQ(handler_of(SIGINT), SIG_IGN);
}

TEST(InterruptWatch, LeavesTheOrdinaryEffectOfSignalsBehind) {
  const SignalSetting ignored(SIGTERM, SIG_IGN);
  const SignalSetting ordinary(SIGINT, SIG_DFL);
  {
    const InterruptWatch watch;
    EXPECT_NE(handler_of(SIGINT), SIG_DFL);
    std::raise(SIGINT);
  }
  EXPECT_EQ(handler_of(SIGINT), SIG_DFL);
  EXPECT_EQ(handler_of(SIGTERM), SIG_IGN);
}

// Returns only when the signals did not end the program.
void receive(int first, int second) {
  const InterruptWatch watch;
  std::raise(first);
  std::raise(second);
  std::_Exit(0);
}

TEST(InterruptWatchDeathTest, TheSecondSignalEndsTheProgram) {
  EXPECT_EXIT(receive(SIGINT, SIGINT), testing::KilledBySignal(SIGINT), "");
  EXPECT_EXIT(receive(SIGTERM, SIGTERM), testing::KilledBySignal(SIGTERM), "");
}

TEST(InterruptWatchDeathTest, TheSecondSignalMayBeTheOtherOne) {
  EXPECT_EXIT(receive(SIGINT, SIGTERM), testing::KilledBySignal(SIGTERM), "");
  EXPECT_EXIT(receive(SIGTERM, SIGINT), testing::KilledBySignal(SIGINT), "");
}

TEST(ClosedPipe, BecomesAnErrorOfTheWrite) {
  const SignalSetting ordinary(SIGPIPE, SIG_DFL);
  ignore_closed_pipes();
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  close(ends[0]);
  EXPECT_EQ(write(ends[1], "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  close(ends[1]);
}

}  // namespace
