#include "simulator/unit/stream_clock.hpp"

#include <gtest/gtest.h>

namespace zelk::simulator {
namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;

const StreamClock::Clock::time_point start{std::chrono::seconds(1000)};

TEST(StreamClock, EventsBecomeVisibleInStepsOfAMillisecond) {
  const StreamClock clock(Pace::real_time, 500, start);
  EXPECT_EQ(clock.visible_before_ps(start - milliseconds(5)), 500);
  EXPECT_EQ(clock.visible_before_ps(start), 500);
  EXPECT_EQ(clock.visible_before_ps(start + microseconds(999)), 500);
  EXPECT_EQ(clock.visible_before_ps(start + milliseconds(1)), 1'000'000'500);
  EXPECT_EQ(clock.visible_before_ps(start + microseconds(2999)), 2'000'000'500);
}

TEST(StreamClock, AnEventIsVisibleAtItsMomentAndNotBefore) {
  const StreamClock clock(Pace::real_time, 500, start);
  for (const std::int64_t time_ps :
       {500LL, 501LL, 1'000'000'499LL, 1'000'000'500LL, 7'654'321'098LL}) {
    const auto moment = clock.visible_at(time_ps);
    EXPECT_LT(time_ps, clock.visible_before_ps(moment)) << time_ps;
    EXPECT_GE(time_ps, clock.visible_before_ps(moment - microseconds(1))) << time_ps;
  }
}

TEST(StreamClock, AsReadEverythingIsVisibleAtOnce) {
  const StreamClock clock(Pace::as_read, 500, start);
  EXPECT_GT(clock.visible_before_ps(start), end_of_time_ps);
  EXPECT_EQ(clock.visible_at(end_of_time_ps), start);
}

TEST(StreamClock, AfterTheEndOfTimeEverythingIsVisible) {
  const StreamClock clock(Pace::real_time, end_of_time_ps - 1, start);
  EXPECT_GT(clock.visible_before_ps(start + hours(24 * 365 * 50)), end_of_time_ps);
}

}  // namespace
}  // namespace zelk::simulator
