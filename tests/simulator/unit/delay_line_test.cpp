#include "simulator/unit/delay_line.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <map>

namespace zelk::simulator {
namespace {

// How many picoseconds before the clock edge fall to each place.
std::map<std::int64_t, int> widths_of(const DelayLine& line) {
  std::map<std::int64_t, int> widths;
  for (std::int64_t time_ps = 3334; time_ps <= 6666; ++time_ps) {
    ++widths[6666 - line.measured_ps(time_ps)];
  }
  return widths;
}

TEST(DelayLine, EvenTapsAreEighteenAndAHalfPicosecondsWide) {
  const auto widths = widths_of(DelayLine(0, 1));
  EXPECT_EQ(widths.size(), 180U);
  for (const auto& [place_ps, width_ps] : widths) {
    EXPECT_TRUE(width_ps == 18 || width_ps == 19) << place_ps;
    // Tap n is 18.5 n ps before the edge, halves rounded up.
    const auto tap = static_cast<std::int64_t>(std::llround(static_cast<double>(place_ps) / 18.5));
    EXPECT_EQ(place_ps, (37 * tap + 1) / 2);
  }
}

TEST(DelayLine, AnEvenLineIsExactToATap) {
  const DelayLine line(0, 1);
  for (std::int64_t time_ps = 0; time_ps < 10'000; ++time_ps) {
    EXPECT_GE(line.measured_ps(time_ps), time_ps);
    EXPECT_LE(line.measured_ps(time_ps), time_ps + 21);
  }
}

TEST(DelayLine, WidthsDifferByTheNonuniformityAtMost) {
  const auto widths = widths_of(DelayLine(0.5, 7));
  EXPECT_EQ(widths.size(), 180U);
  double squares = 0;
  for (const auto& [place_ps, width_ps] : widths) {
    // Half of 18.5 to one and a half, 10 % for the stretch and 1 ps for the
    // whole picoseconds.
    EXPECT_GE(width_ps, 7);
    EXPECT_LE(width_ps, 31);
    squares += (width_ps - 18.5) * (width_ps - 18.5);
  }
  // An even distribution from -9.25 to 9.25 has 5.3 rms; whole picoseconds add
  // little. 180 of them say it to within 3 %.
  EXPECT_NEAR(std::sqrt(squares / 180), 5.3, 0.9);
}

TEST(DelayLine, TimesNeverFallHoweverUnevenItIs) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    const DelayLine line(1, seed);
    std::int64_t latest_ps = 0;
    for (std::int64_t time_ps = 0; time_ps < 10'000; ++time_ps) {
      EXPECT_GE(line.measured_ps(time_ps), latest_ps);
      latest_ps = line.measured_ps(time_ps);
    }
  }
}

}  // namespace
}  // namespace zelk::simulator
