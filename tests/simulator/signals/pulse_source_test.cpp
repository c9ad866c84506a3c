#include "simulator/signals/pulse_source.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace zelk::simulator {
namespace {

TEST(PulseSource, PulsesComeAtWholePeriodsAfterTheDelay) {
  PulseSource source({.channel = 3, .frequency_hz = 3e6, .delay_ps = 1000}, 1);
  // A third of a microsecond: 333333 1/3 ps.
  for (const std::int64_t expected_ps : {334'333, 667'666, 1'001'000, 1'334'333}) {
    ASSERT_NE(source.peek(), nullptr);
    EXPECT_NEAR(static_cast<double>(source.peek()->time_ps), static_cast<double>(expected_ps), 1);
    EXPECT_EQ(source.peek()->channel, 3);
    source.pop();
  }
}

TEST(PulseSource, PeriodsDoNotAddUpTheirFractions) {
  PulseSource source({.frequency_hz = 3e6}, 1);
  for (int i = 1; i < 300'000; ++i) {
    source.peek();
    source.pop();
  }
  EXPECT_NEAR(static_cast<double>(source.peek()->time_ps), 1e11, 1);
}

TEST(PulseSource, JitterKeepsPulsesInOrder) {
  PulseSource source({.frequency_hz = 1e7, .jitter_rms_ps = 1e6}, 2);
  std::int64_t latest_ps = 0;
  for (int i = 0; i < 10'000; ++i) {
    EXPECT_GE(source.peek()->time_ps, latest_ps);
    latest_ps = source.peek()->time_ps;
    source.pop();
  }
}

TEST(PulseSource, EndsAtTheEndOfTime) {
  PulseSource source({.frequency_hz = 1e-9, .delay_ps = 5, .jitter_rms_ps = 1}, 1);
  EXPECT_EQ(source.peek(), nullptr);
  EXPECT_EQ(source.peek(), nullptr);
}

}  // namespace
}  // namespace zelk::simulator
