#include "smoke_test/watchdog.hpp"

#include <gtest/gtest.h>
#include <sys/time.h>

#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;

bool timer_runs() {
  itimerval timer{};
  getitimer(ITIMER_REAL, &timer);
  return timer.it_value.tv_sec != 0 || timer.it_value.tv_usec != 0;
}

TEST(WatchdogDeathTest, EndsTheProgramWithOneLineAndStatus2) {
  EXPECT_EXIT(
      {
        Watchdog watchdog;
        watchdog.kick(20ms);
        std::this_thread::sleep_for(30s);
      },
      testing::ExitedWithCode(2), "^the device library does not answer\n$");
}

TEST(WatchdogDeathTest, AKickStartsTheTimeAnew) {
  EXPECT_EXIT(
      {
        Watchdog watchdog;
        watchdog.kick(20ms);
        watchdog.kick(60s);
        std::this_thread::sleep_for(100ms);
        std::_Exit(7);
      },
      testing::ExitedWithCode(7), "^$");
}

TEST(Watchdog, SleepsUntilItIsKicked) {
  const Watchdog watchdog;
  EXPECT_FALSE(timer_runs());
}

TEST(Watchdog, RestsWhenItIsToldTo) {
  Watchdog watchdog;
  watchdog.kick(60s);
  EXPECT_TRUE(timer_runs());
  watchdog.rest();
  EXPECT_FALSE(timer_runs());
}

TEST(Watchdog, RestsWhenItIsGone) {
  {
    Watchdog watchdog;
    watchdog.kick(60s);
  }
  EXPECT_FALSE(timer_runs());
}

}  // namespace
