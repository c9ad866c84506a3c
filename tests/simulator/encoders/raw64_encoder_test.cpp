#include "simulator/encoders/raw64_encoder.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tests/simulator/random_tags.hpp"
#include "tests/simulator/round_trip.hpp"
#include "tests/support/wire_words.hpp"

namespace zelk::simulator {
namespace {

using test_support::big_endian_64;
using test_support::cf_record;
using test_support::ps_record;
using timing::Format;
using timing::StreamMode;
using timing::TimeTag;

constexpr std::int64_t epoch_ps = 14'315'125'997'568;

TEST(Raw64Encoder, WritesChannelAndTimeBigEndian) {
  EXPECT_EQ(encoded({{2, 0x0123456789A}}, Format::raw64, StreamMode::external),
            (std::vector<std::uint8_t>{0x40, 0x00, 0x00, 0x12, 0x34, 0x56, 0x78, 0x9A}));
}

TEST(Raw64Encoder, TimesWrapAtTheCoarseEpoch) {
  EXPECT_EQ(encoded({{3, epoch_ps - 1}, {3, epoch_ps}, {3, 5 * epoch_ps + 7}}, Format::raw64,
                    StreamMode::external),
            big_endian_64({ps_record(3, 14'315'125'997'567), ps_record(3, 0), ps_record(3, 7)}));
}

TEST(Raw64Encoder, DecodesToTheSameTagsAcrossEpochsForEveryMask) {
  for (unsigned mask = 1; mask < 16; ++mask) {
    std::mt19937_64 random(mask);
    std::vector<TimeTag> tags;
    for (std::uint8_t channel = 0; channel < 4; ++channel) {
      if ((mask >> channel & 1) != 0) {
        // Silences up to just below half an epoch on the sparsest channel.
        const std::int64_t largest_ps = channel == 3 ? epoch_ps / 2 - 1 : 100'000'000'000;
        append_channel(
            channel, channel, 4 * epoch_ps + 1'000'000, random,
            [&] { return log_uniform_ps(random, largest_ps); }, tags);
      }
    }
    sort_by_time(tags);
    EXPECT_EQ(round_trip(tags, Format::raw64, StreamMode::external), tags) << mask;
  }
}

TEST(CoarseFineEncoder, WritesTheEdgeNotBeforeTheEventAndTheNearestTap) {
  // Corrections of the first taps: 0, 19, 37, 56 ps; the last ones: 180 is
  // 3330 ps, 181 is 3332 ps.
  EXPECT_EQ(
      encoded({{1, 0},
               {1, 3333},
               {1, 6666 - 9},
               {1, 9999 - 10},
               {1, 13332 - 37},
               {1, 16665 - 3330},
               {1, 19998 - 3332}},
              Format::raw64, StreamMode::internal),
      big_endian_64({cf_record(1, 0, 0), cf_record(1, 1, 0), cf_record(1, 2, 0), cf_record(1, 3, 1),
                     cf_record(1, 4, 2), cf_record(1, 5, 180), cf_record(1, 6, 181)}));
}

TEST(CoarseFineEncoder, CoarseCountWrapsAtThirtyTwoBits) {
  EXPECT_EQ(encoded({{0, epoch_ps - 1}, {0, epoch_ps + 3333}}, Format::raw64, StreamMode::internal),
            big_endian_64({cf_record(0, 0, 0), cf_record(0, 1, 0)}));
}

TEST(CoarseFineEncoder, DecodesToWithinHalfATap) {
  std::mt19937_64 random(1);
  std::vector<TimeTag> tags;
  for (std::uint8_t channel = 0; channel < 4; ++channel) {
    append_channel(
        channel, 1 + channel, 3 * epoch_ps, random,
        [&] { return log_uniform_ps(random, 500'000'000'000); }, tags);
  }
  // Every time from event to edge: one more picosecond with each clock period.
  const std::int64_t last_ps = tags.back().timestamp_ps;
  for (std::int64_t i = 1; i <= 3333; ++i) {
    tags.push_back({3, last_ps + i * 3334});
  }
  const std::vector<TimeTag> seen = round_trip(tags, Format::raw64, StreamMode::internal);
  ASSERT_EQ(seen.size(), tags.size());
  for (std::size_t i = 0; i < tags.size(); ++i) {
    ASSERT_EQ(seen[i].channel, tags[i].channel) << i;
    ASSERT_LE(std::abs(seen[i].timestamp_ps - tags[i].timestamp_ps), 9) << i;
  }
}

}  // namespace
}  // namespace zelk::simulator
