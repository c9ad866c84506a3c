#include "smoke_test/interrupt.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <thread>

#include "smoke_test/sudden_end.hpp"
#include "tests/support/thread_sanitizer.hpp"

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
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const SignalSetting ordinary(signal, SIG_DFL);
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

TEST(InterruptWatch, LeavesAHangupIgnoredAsUnderNohup) {
  const SignalSetting ignored(SIGHUP, SIG_IGN);
  const InterruptWatch watch;
  std::raise(SIGHUP);
  EXPECT_EQ(watch.signal_number(), 0);
  EXPECT_EQ(handler_of(SIGHUP), SIG_IGN);
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
  const SignalSetting ordinary(first, SIG_DFL);
  const InterruptWatch watch;
  std::raise(first);
  std::raise(second);
  std::_Exit(0);
}

TEST(InterruptWatchDeathTest, TheSecondSignalEndsTheProgram) {
  EXPECT_EXIT(receive(SIGINT, SIGINT), testing::KilledBySignal(SIGINT), "");
  EXPECT_EXIT(receive(SIGTERM, SIGTERM), testing::KilledBySignal(SIGTERM), "");
  EXPECT_EXIT(receive(SIGHUP, SIGHUP), testing::KilledBySignal(SIGHUP), "");
}

TEST(InterruptWatchDeathTest, TheSecondSignalMayBeTheOtherOne) {
  EXPECT_EXIT(receive(SIGINT, SIGTERM), testing::KilledBySignal(SIGTERM), "");
  EXPECT_EXIT(receive(SIGTERM, SIGINT), testing::KilledBySignal(SIGINT), "");
}

// Returns only when the signal did not end the program.
void receive_at_the_end(int signal) {
  const SignalSetting ordinary(signal, SIG_DFL);
  InterruptWatch watch;
  watch.end_at_once_from_now_on();
  std::raise(signal);
  std::_Exit(0);
}

TEST(InterruptWatchDeathTest, NearTheEndASignalEndsTheProgramWithItsStatus) {
  EXPECT_EXIT(receive_at_the_end(SIGINT), testing::ExitedWithCode(128 + SIGINT), "^$");
  EXPECT_EXIT(receive_at_the_end(SIGTERM), testing::ExitedWithCode(128 + SIGTERM), "^$");
  EXPECT_EXIT(receive_at_the_end(SIGHUP), testing::ExitedWithCode(128 + SIGHUP), "^$");
}

TEST(InterruptWatchDeathTest, NearTheEndTheLastThingsAreDone) {
  set_before_sudden_end([](int exit_status, int signal) { _exit(exit_status - 2 * signal); });
  EXPECT_EXIT(receive_at_the_end(SIGTERM), testing::ExitedWithCode(128 - SIGTERM), "^$");
  set_before_sudden_end(nullptr);
  EXPECT_EXIT(receive_at_the_end(SIGTERM), testing::ExitedWithCode(128 + SIGTERM), "^$");
}

TEST(InterruptWatchDeathTest, AnotherSignalEndsTheProgramInTheMidstOfTheLastThings) {
  if (zelk::test_support::under_thread_sanitizer) {
    GTEST_SKIP() << "the sanitizer delivers no signal while another one is handled";
  }
  set_before_sudden_end([](int, int) { std::raise(SIGINT); });
  EXPECT_EXIT(receive_at_the_end(SIGTERM), testing::ExitedWithCode(128 + SIGINT), "^$");
  set_before_sudden_end(nullptr);
}

TEST(InterruptWatch, NearTheEndStillKnowsAnEarlierSignal) {
  InterruptWatch watch;
  std::raise(SIGTERM);
  watch.end_at_once_from_now_on();
  EXPECT_EQ(watch.signal_number(), SIGTERM);
}

TEST(InterruptWatch, CheckThrowsOnceASignalHasArrived) {
  const InterruptWatch watch;
  EXPECT_NO_THROW(watch.check());
  std::raise(SIGINT);
  EXPECT_THROW(watch.check(), Interrupted);
  EXPECT_STREQ(Interrupted().what(), "interrupted during set-up");
}

TEST(SignalsForMainThread, KeepsThemFromThreadsThatBeginMeanwhile) {
  sigset_t in_thread;
  sigset_t before;
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  {
    const SignalsForMainThread handled_here;
    std::thread([&] { pthread_sigmask(SIG_SETMASK, nullptr, &in_thread); }).join();
  }
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM}) {
    EXPECT_EQ(sigismember(&in_thread, signal), 1);
    EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal));
  }
}

}  // namespace
