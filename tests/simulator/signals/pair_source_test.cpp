#include "simulator/signals/pair_source.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace zelk::simulator {
namespace {

constexpr PairSettings settings{
    .first_channel = 2, .second_channel = 1, .rate_hz = 1e3, .delay_ps = -300, .jitter_rms_ps = 50};

TEST(PairSource, SecondEventFollowsByTheDelayWithJitter) {
  PairSource source(settings, 3);
  const int count = 20'000;
  double sum = 0;
  double squares = 0;
  std::int64_t latest_ps = 0;
  for (int i = 0; i < count; ++i) {
    std::int64_t time_ps[4]{};
    for (int k = 0; k < 2; ++k) {
      const Event event = *source.peek();
      ASSERT_TRUE(event.channel == 1 || event.channel == 2);
      EXPECT_GE(event.time_ps, latest_ps);
      EXPECT_EQ(event.amplitude_v, 2.5);
      latest_ps = time_ps[event.channel] = event.time_ps;
      source.pop();
    }
    const auto difference = static_cast<double>(time_ps[1] - time_ps[2]);
    EXPECT_LT(std::abs(difference + 300), 350);  // twice 3.5 times 50
    sum += difference;
    squares += (difference + 300) * (difference + 300);
  }
  EXPECT_NEAR(sum / count, -300, 2);
  EXPECT_NEAR(std::sqrt(squares / count), 50 * std::sqrt(2.0), 2);
  // A spread of 1/sqrt(count) = 0.7 %.
  EXPECT_NEAR(static_cast<double>(latest_ps), count * 1e9, count * 2.8e7);
}

TEST(PairSource, EventsStayInOrderAndAtTheirRateHoweverMuchPairsOverlap) {
  PairSettings fast = settings;
  fast.rate_hz = 1e7;
  fast.delay_ps = 50'000'000;  // 500 pairs
  PairSource source(fast, 4);
  std::int64_t latest_ps = 0;
  int early_partners = 0;
  const int count = 100'000;
  for (int i = 0; i < count; ++i) {
    const Event event = *source.peek();
    EXPECT_GE(event.time_ps, latest_ps);
    latest_ps = event.time_ps;
    early_partners += event.channel == 1 && event.time_ps < 49'999'000 ? 1 : 0;
    source.pop();
  }
  EXPECT_EQ(early_partners, 0);
  // Half of the events per channel, less the 500 that wait for their partners; a
  // spread of sqrt(50000) = 224.
  EXPECT_NEAR(static_cast<double>(latest_ps) * 1e-5, (count + 500) / 2.0, 4 * 224);
}

TEST(PairSource, APairMayMeetOnOneChannel) {
  PairSettings same = settings;
  same.second_channel = 2;
  PairSource source(same, 5);
  for (int i = 0; i < 100; ++i) {
    const std::int64_t first_ps = source.peek()->time_ps;
    source.pop();
    EXPECT_EQ(source.peek()->channel, 2);
    EXPECT_NEAR(static_cast<double>(source.peek()->time_ps - first_ps), 300, 350);
    source.pop();
  }
}

TEST(PairSource, EndsAtTheEndOfTime) {
  PairSettings slow = settings;
  slow.rate_hz = 1e-9;
  PairSource source(slow, 1);
  EXPECT_EQ(source.peek(), nullptr);
  EXPECT_EQ(source.peek(), nullptr);
}

}  // namespace
}  // namespace zelk::simulator
