#include "simulator/unit/time_base.hpp"

#include <gtest/gtest.h>

#include <algorithm>

#include "simulator/signals/signal_source.hpp"

namespace zelk::simulator {
namespace {

constexpr std::int64_t second_ps = 1'000'000'000'000;

TEST(TimeBase, WithoutDriftOnlyTheBeginningIsMoved) {
  EXPECT_EQ(TimeBase().shown_at(17), 17);
  const TimeBase moved(100, 7000, 0);
  EXPECT_EQ(moved.shown_at(100), 7000);
  EXPECT_EQ(moved.shown_at(end_of_time_ps), end_of_time_ps + 6900);
}

TEST(TimeBase, AFastClockGainsFromItsOriginOn) {
  const TimeBase fast(second_ps, second_ps, 20);
  EXPECT_EQ(fast.shown_at(second_ps), second_ps);
  EXPECT_EQ(fast.shown_at(2 * second_ps), 2 * second_ps + 20'000'000);
  const TimeBase slow(second_ps, 0, -0.5);
  EXPECT_EQ(slow.shown_at(3 * second_ps), 2 * second_ps - 1'000'000);
}

TEST(TimeBase, NeverFallsAndStaysInsideTheRangeOfTimes) {
  for (const double drift_ppm : {-1000.0, -3.3, 3.3, 1000.0}) {
    const TimeBase base(0, 0, drift_ppm);
    for (const std::int64_t from_ps : {std::int64_t{0}, second_ps, end_of_time_ps - 20'000}) {
      for (std::int64_t time_ps = from_ps; time_ps < from_ps + 20'000; ++time_ps) {
        ASSERT_GE(base.shown_at(time_ps + 1), base.shown_at(time_ps));
      }
    }
    EXPECT_LT(base.shown_at(end_of_time_ps), std::int64_t{1} << 62);
  }
}

}  // namespace
}  // namespace zelk::simulator
