#include "simulator/signals/random_source.hpp"

#include <gtest/gtest.h>

namespace zelk::simulator {
namespace {

TEST(RandomSource, HasItsRateAndNoMemory) {
  RandomSource source(2, 1e6, 5);
  const int count = 100'000;
  std::int64_t last_ps = 0;
  int long_waits = 0;
  for (int i = 0; i < count; ++i) {
    const Event event = *source.peek();
    EXPECT_EQ(event.channel, 2);
    EXPECT_GE(event.time_ps, last_ps);
    long_waits += event.time_ps - last_ps > 1'000'000 ? 1 : 0;
    last_ps = event.time_ps;
    source.pop();
  }
  // 100 ms, with a spread of 1/sqrt(count) = 0.3 %; a share of 1/e waits for
  // longer than the mean.
  EXPECT_NEAR(static_cast<double>(last_ps), 1e11, 1.5e9);
  EXPECT_NEAR(long_waits, 36788, 800);
}

TEST(RandomSource, SeedNamesTheSignal) {
  RandomSource one(0, 1e3, 9);
  RandomSource same(0, 1e3, 9);
  RandomSource other(0, 1e3, 10);
  EXPECT_EQ(one.peek()->time_ps, same.peek()->time_ps);
  EXPECT_NE(one.peek()->time_ps, other.peek()->time_ps);
}

TEST(RandomSource, EndsAtTheEndOfTime) {
  RandomSource source(0, 1e-9, 1);  // one event in 1e21 ps: past the end of time
  EXPECT_EQ(source.peek(), nullptr);
  EXPECT_EQ(source.peek(), nullptr);
}

}  // namespace
}  // namespace zelk::simulator
