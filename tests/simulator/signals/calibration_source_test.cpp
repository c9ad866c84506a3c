#include "simulator/signals/calibration_source.hpp"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <set>

#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator {
namespace {

TEST(CalibrationDivider, IsTheNearestOfTheDeviceClock) {
  // 1e12 / 3333 Hz = 300.030003 MHz.
  EXPECT_EQ(calibration_divider(10e3), 30003U);  // 30003.0003
  EXPECT_EQ(calibration_divider(1e6), 300U);     // 300.03
  EXPECT_EQ(calibration_divider(70e6), 4U);      // 4.286
  EXPECT_EQ(calibration_divider(66e6), 5U);      // 4.546
  EXPECT_EQ(calibration_divider(300e6), 1U);
  EXPECT_EQ(calibration_divider(0.1), 3000300030U);
}

TEST(CalibrationDivider, ReachesBothEndsOfItsRange) {
  EXPECT_EQ(calibration_divider(device_clock_hz), 1U);
  EXPECT_EQ(calibration_divider(device_clock_hz / 4294967295.0), 4294967295U);
  failure_text(Status::out_of_range, [] { calibration_divider(device_clock_hz * 1.0001); });
  failure_text(Status::out_of_range, [] { calibration_divider(device_clock_hz / 4294967297.0); });
}

TEST(CalibrationDivider, RefusalsNameTheFrequency) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const auto& [frequency_hz, text] : {std::pair{0.0, "of 0 Hz"},
                                           {-5.5, "of -5.5 Hz"},
                                           {std::numeric_limits<double>::quiet_NaN(), "of nan Hz"},
                                           {infinity, "of inf Hz"},
                                           {-infinity, "of -inf Hz"},
                                           {1e300, "of 1e+300 Hz"},
                                           {5e-324, "of 4.940656458e-324 Hz"}}) {
    const std::string reason =
        failure_text(Status::out_of_range, [f = frequency_hz] { calibration_divider(f); });
    EXPECT_NE(reason.find(text), reason.npos) << reason;
  }
}

TEST(CalibrationSource, PulsesEveryChannelAtTheDividedClock) {
  CalibrationSource source(100);
  for (int pulse = 1; pulse <= 1000; ++pulse) {
    std::set<int> channels;
    for (int i = 0; i < 4; ++i) {
      const Event* event = source.peek();
      ASSERT_NE(event, nullptr);
      channels.insert(event->channel);
      // Within the skew and jitter, all far below one nanosecond.
      EXPECT_NEAR(static_cast<double>(event->time_ps), pulse * 333300.0 + 40, 60);
      EXPECT_EQ(event->amplitude_v, 3.3);
      source.pop();
    }
    EXPECT_EQ(channels.size(), 4U);
  }
}

TEST(CalibrationSource, TimesRiseOnEveryChannelAtTheFullClock) {
  CalibrationSource source(1);
  std::array<std::int64_t, 4> last_ps{-1, -1, -1, -1};
  std::int64_t latest_ps = 0;
  for (int i = 0; i < 40'000; ++i) {
    const Event event = *source.peek();
    EXPECT_GE(event.time_ps, latest_ps);
    EXPECT_GT(event.time_ps, last_ps[event.channel]);
    latest_ps = last_ps[event.channel] = event.time_ps;
    source.pop();
  }
}

TEST(CalibrationSource, JitterIsSmallButThere) {
  CalibrationSource source(10);
  double sum = 0;
  double squares = 0;
  const int count = 20'000;
  for (int i = 0; i < 4 * count; ++i) {
    if (source.peek()->channel == 0) {
      const double error = static_cast<double>(source.peek()->time_ps % 33330);
      const double centred = error > 16665 ? error - 33330 : error;
      sum += centred;
      squares += centred * centred;
    }
    source.pop();
  }
  EXPECT_NEAR(sum / count, 0, 0.2);
  EXPECT_NEAR(std::sqrt(squares / count), 4, 0.2);
}

TEST(CalibrationSource, IsRepeatable) {
  CalibrationSource one(7);
  CalibrationSource two(7);
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(one.peek()->time_ps, two.peek()->time_ps);
    EXPECT_EQ(one.peek()->channel, two.peek()->channel);
    one.pop();
    two.pop();
  }
}

}  // namespace
}  // namespace zelk::simulator
