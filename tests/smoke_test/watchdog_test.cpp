#include "smoke_test/watchdog.hpp"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <thread>

#include "smoke_test/sudden_end.hpp"
#include "tests/support/thread_sanitizer.hpp"

namespace {

using namespace std::chrono_literals;

bool timer_runs() {
  itimerval timer{};
  getitimer(ITIMER_REAL, &timer);
  return timer.it_value.tv_sec != 0 || timer.it_value.tv_usec != 0;
}

[[noreturn]] void hang() {
  for (;;) {
    std::this_thread::sleep_for(1s);
  }
}

TEST(WatchdogDeathTest, EndsTheProgramWithOneLineAndStatus2) {
  EXPECT_EXIT(
      {
        Watchdog watchdog;
        watchdog.begin_call(20ms);
        hang();
      },
      testing::ExitedWithCode(2), "^the device library does not answer\n$");
}

TEST(WatchdogDeathTest, WatchesACallOfAnotherThread) {
  EXPECT_EXIT(
      {
        Watchdog watchdog;
        std::thread([&] {
          watchdog.begin_call(20ms);
          hang();
        }).detach();
        hang();
      },
      testing::ExitedWithCode(2), "^the device library does not answer\n$");
}

// Ends with 7 when the watchdog lets the calls be.
[[noreturn]] void end_after(void (*calls)(Watchdog& watchdog)) {
  Watchdog watchdog;
  calls(watchdog);
  _exit(7);
}

TEST(WatchdogDeathTest, LetsACallTakeItsLimit) {
  const auto calls = [](Watchdog& watchdog) {
    watchdog.begin_call(8s);
    std::this_thread::sleep_for(7600ms);
    watchdog.end_call();
  };
  EXPECT_EXIT(end_after(calls), testing::ExitedWithCode(7), "^$");
}

TEST(WatchdogDeathTest, CountsEachCallAnew) {
  const auto calls = [](Watchdog& watchdog) {
    for (int i = 0; i < 4; ++i) {
      watchdog.begin_call(1s);
      std::this_thread::sleep_for(700ms);
    }
  };
  EXPECT_EXIT(end_after(calls), testing::ExitedWithCode(7), "^$");
}

TEST(WatchdogDeathTest, CountsNothingBetweenCalls) {
  const auto calls = [](Watchdog& watchdog) {
    watchdog.begin_call(20ms);
    watchdog.end_call();
    std::this_thread::sleep_for(1s);
  };
  EXPECT_EXIT(end_after(calls), testing::ExitedWithCode(7), "^$");
}

TEST(WatchdogDeathTest, ASettledRunEndsWithItsOwnStatusAndWithoutALine) {
  EXPECT_EXIT(
      {
        Watchdog watchdog;
        watchdog.settle(3);
        watchdog.begin_call(20ms);
        hang();
      },
      testing::ExitedWithCode(3), "^$");
}

TEST(WatchdogDeathTest, WakesUpAlsoWhenItsSignalWasBlocked) {
  EXPECT_EXIT(
      {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGALRM);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        Watchdog watchdog;
        watchdog.begin_call(20ms);
        hang();
      },
      testing::ExitedWithCode(2), "^the device library does not answer\n$");
}

void sleep_in_handler(std::time_t seconds) {
  timespec left{};
  left.tv_sec = seconds;
  while (nanosleep(&left, &left) != 0) {  // ticks come meanwhile
  }
}

TEST(WatchdogDeathTest, LeavesTheLastThingsMoreThanATick) {
  EXPECT_EXIT(
      {
        set_before_sudden_end([](int exit_status, int signal) {
          sleep_in_handler(1);
          _exit(10 * exit_status + signal + 7);
        });
        Watchdog watchdog;
        watchdog.begin_call(20ms);
        hang();
      },
      testing::ExitedWithCode(27), "^the device library does not answer\n$");
}

TEST(WatchdogDeathTest, DoesNotWaitForEverForTheLastThings) {
  if (zelk::test_support::under_thread_sanitizer) {
    GTEST_SKIP() << "the sanitizer delivers no tick while another one is handled";
  }
  EXPECT_EXIT(
      {
        set_before_sudden_end([](int, int) { sleep_in_handler(3600); });
        Watchdog watchdog;
        watchdog.settle(3);
        watchdog.begin_call(20ms);
        hang();
      },
      testing::ExitedWithCode(3), "^$");
}

// Ends with the number of calls that a signal disturbed.
[[noreturn]] void make_calls_of_a_second() {
  Watchdog watchdog;
  timespec second{};
  second.tv_sec = 1;
  int disturbed = 0;
  for (int i = 0; i < 2; ++i) {
    watchdog.begin_call(60s);
    disturbed += nanosleep(&second, nullptr) != 0 ? 1 : 0;
    watchdog.end_call();
  }
  _exit(disturbed);
}

TEST(WatchdogDeathTest, DisturbsNoCallThatAnswersInTime) {
  EXPECT_EXIT(make_calls_of_a_second(), testing::ExitedWithCode(0), "^$");
}

TEST(Watchdog, TakesItsTimerWithIt) {
  {
    Watchdog watchdog;
    watchdog.begin_call(60s);
    EXPECT_TRUE(timer_runs());
  }
  EXPECT_FALSE(timer_runs());
}

}  // namespace
