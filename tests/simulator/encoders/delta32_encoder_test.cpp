#include "simulator/encoders/delta32_encoder.hpp"

#include <gtest/gtest.h>

#include <random>

#include "tests/simulator/random_tags.hpp"
#include "tests/simulator/round_trip.hpp"
#include "tests/support/wire_words.hpp"

namespace zelk::simulator {
namespace {

using test_support::big_endian_32;
using test_support::Bytes;
using test_support::d32_announce;
using test_support::d32_overflow;
using test_support::d32_step;
using test_support::d32_tag;
using test_support::joined;
using timing::Format;
using timing::StreamMode;
using timing::TimeTag;

constexpr std::int64_t epoch_ps = 14'315'125'997'568;
constexpr std::int64_t excess_ps = 1'078'036'791'296;  // 7 * 2^41 less one epoch
constexpr std::int64_t span_ps = 2'199'023'255'552;    // 2^41
constexpr std::int64_t ten_ms_ps = 10'000'000'000;
constexpr std::int64_t unit_ps = 33'554'432;  // 2^25

Bytes words_of(const std::vector<TimeTag>& tags) {
  return encoded(tags, Format::delta32, StreamMode::external);
}

std::vector<TimeTag> seen(const std::vector<TimeTag>& tags) {
  return round_trip(tags, Format::delta32, StreamMode::external);
}

// A channel that is kept alive until `time_ps` by a tag every second.
std::vector<TimeTag> alive_until(std::uint8_t channel, std::int64_t time_ps) {
  std::vector<TimeTag> tags;
  for (std::int64_t t = 0; t < time_ps; t += 1'000'000'000'000) {
    tags.push_back({channel, t});
  }
  tags.push_back({channel, time_ps});
  return tags;
}

// Of any size but those that no words say.
std::int64_t sayable_step_ps(std::mt19937_64& random) {
  const std::int64_t step_ps = log_uniform_ps(random, 3 * epoch_ps);
  return step_ps >= excess_ps + unit_ps && step_ps <= excess_ps + ten_ms_ps ? excess_ps : step_ps;
}

TEST(Delta32Encoder, FirstTagOfAChannelComesWithItsBase) {
  EXPECT_EQ(words_of({{2, 0x0123456789}}),
            (Bytes{0xEB, 0x5A, 0x55, 0xAA,    // sync
                   0xAB, 0x45, 0x67, 0x89,    // bits 24..0 of the base: 0x1456789
                   0xCA, 0x00, 0x00, 0x91,    // bits 40..25: 0x91
                   0x54, 0x00, 0x00, 0x00}))  // tag on channel 2, 0 ps later
      << "0x0123456789 = 0x91 * 2^25 + 0x1456789";
}

TEST(Delta32Encoder, TagsInTheSameTenMillisecondsAreDeltas) {
  EXPECT_EQ(words_of({{0, 5}, {3, 6}, {0, 105}, {0, 105 + unit_ps - 1}, {0, 105 + 3 * unit_ps}}),
            joined({d32_announce(5), big_endian_32({d32_tag(0, 0)}), d32_announce(6),
                    big_endian_32({d32_tag(3, 0), d32_tag(0, 100), d32_tag(0, 33'554'431),
                                   d32_overflow(2), d32_tag(0, 1)})}));
}

TEST(Delta32Encoder, EveryTenMillisecondsEachChannelGetsABaseWithItsNextTag) {
  EXPECT_EQ(words_of({{0, 9'999'999'999}, {1, ten_ms_ps}, {0, ten_ms_ps + 1}, {1, ten_ms_ps + 2}}),
            joined({d32_announce(9'999'999'999), big_endian_32({d32_tag(0, 0)}),
                    d32_announce(10'000'000'000), big_endian_32({d32_tag(1, 0)}),
                    d32_announce(10'000'000'001), big_endian_32({d32_tag(0, 0), d32_tag(1, 2)})}));
}

TEST(Delta32Encoder, BasesCountOnAcrossEpochsModuloTheirSpan) {
  std::vector<TimeTag> tags = alive_until(1, epoch_ps + 5'000'000'000);
  const Bytes before = words_of(alive_until(1, epoch_ps - 5'000'000'000));
  tags.insert(tags.end() - 1, TimeTag{1, epoch_ps - 5'000'000'000});
  EXPECT_EQ(words_of(tags), joined({before,
                                    // 14 320 125 997 568 less 6 spans
                                    d32_announce(1'125'986'464'256), d32_step(1, 0)}));
}

TEST(Delta32Encoder, DeltasAcrossAnEpochShowTheExcess) {
  std::vector<TimeTag> tags = alive_until(1, epoch_ps - 10);
  const Bytes before = words_of(tags);
  tags.push_back({1, epoch_ps + 20});
  // 0xFB00000000 is 32128 * 2^25.
  EXPECT_EQ(words_of(tags), joined({before, big_endian_32({d32_overflow(32128), d32_tag(1, 30)})}));
}

TEST(Delta32Encoder, LongSilencesAreDeltasOfSeveralOverflowWords) {
  // 3 spans and 9 ps: 3 * 65536 units.
  EXPECT_EQ(words_of({{0, 0}, {0, 3 * span_ps + 9}}),
            joined({d32_announce(0),
                    big_endian_32({d32_tag(0, 0), d32_overflow(65535), d32_overflow(65535),
                                   d32_overflow(65535), d32_overflow(3), d32_tag(0, 9)})}));
}

TEST(Delta32Encoder, ABaseReachesALittleBeyondTheExcess) {
  EXPECT_EQ(words_of({{0, 7}, {0, 7 + excess_ps + 100}}),
            joined({d32_announce(7), big_endian_32({d32_tag(0, 0)}), d32_announce(7 + excess_ps),
                    big_endian_32({d32_tag(0, 100)})}));
}

TEST(Delta32Encoder, StepsAtTheEdgesOfItsRulesAreSeenAsTheyAre) {
  for (const std::int64_t first_ps : {std::int64_t{0}, span_ps - 1, span_ps / 2}) {
    for (const std::int64_t step_ps :
         {std::int64_t{1}, unit_ps - 1, unit_ps, ten_ms_ps - 1, ten_ms_ps, ten_ms_ps + 1,
          excess_ps - 1, excess_ps, excess_ps + 1, excess_ps + unit_ps - 1,
          excess_ps + ten_ms_ps + 1, span_ps / 2, span_ps - 1, span_ps, span_ps + 1,
          epoch_ps / 2}) {
      const std::vector<TimeTag> tags{
          {2, first_ps}, {2, first_ps + step_ps}, {2, first_ps + step_ps + 3}};
      EXPECT_EQ(seen(tags), tags) << first_ps << " + " << step_ps;
    }
  }
}

TEST(Delta32Encoder, StepsAcrossEpochsAreSeenAsTheyAre) {
  for (const std::int64_t step_ps :
       {std::int64_t{1}, unit_ps, ten_ms_ps, ten_ms_ps + 1, excess_ps, excess_ps + 1,
        excess_ps + unit_ps, excess_ps + ten_ms_ps, span_ps, epoch_ps - 1, epoch_ps, epoch_ps + 1,
        5 * epoch_ps / 2}) {
    for (const std::int64_t before_ps : {std::int64_t{1}, step_ps / 2, step_ps}) {
      std::vector<TimeTag> tags = alive_until(0, epoch_ps - before_ps);
      if (before_ps >= 1 && before_ps <= 1'000'000'000'000) {
        tags.push_back({0, epoch_ps - before_ps + step_ps});
        tags.push_back({0, epoch_ps - before_ps + step_ps + 5});
        EXPECT_EQ(seen(tags), tags) << before_ps << " before the epoch, step " << step_ps;
      }
    }
  }
}

TEST(Delta32Encoder, NoWordsSayAStepThatLooksLikeAWrap) {
  for (const std::int64_t step_ps : {excess_ps + unit_ps, excess_ps + ten_ms_ps}) {
    const TimeTag tag{0, 50 + step_ps};
    const Bytes start = joined({d32_announce(50), big_endian_32({d32_tag(0, 0)})});
    const auto step = static_cast<std::uint64_t>(step_ps);
    const auto excess = static_cast<std::uint64_t>(excess_ps);
    for (const Bytes& attempt :
         {d32_step(0, step), d32_step(0, step + excess),
          joined({d32_announce(50 + step), d32_step(0, 0)}),
          joined({d32_announce(51 + step - unit_ps), d32_step(0, unit_ps - 1)})}) {
      const auto tags = decoded(joined({start, attempt}), Format::delta32, StreamMode::external);
      EXPECT_NE(tags.back(), tag) << step_ps;
    }
  }
}

TEST(Delta32Encoder, TagsThatNoWordsSayAreLeftOutAndTheRestIsRight) {
  const std::vector<TimeTag> tags{{0, 0},
                                  {1, 0},
                                  {0, excess_ps + unit_ps},
                                  {0, excess_ps + ten_ms_ps},
                                  {1, excess_ps + ten_ms_ps},
                                  {0, excess_ps + ten_ms_ps + 1},
                                  {0, excess_ps + ten_ms_ps + 2}};
  EXPECT_EQ(seen(tags),
            (std::vector<TimeTag>{
                {0, 0}, {1, 0}, {0, excess_ps + ten_ms_ps + 1}, {0, excess_ps + ten_ms_ps + 2}}));
}

TEST(Delta32Encoder, ALateChannelIsSeenWholeSpansEarlyWithItsStepsRight) {
  std::vector<TimeTag> tags;
  std::mt19937_64 random(3);
  append_channel(
      2, 3 * span_ps + 1, 40 * epoch_ps, random, [&] { return sayable_step_ps(random); }, tags);
  std::vector<TimeTag> expected = tags;
  for (TimeTag& tag : expected) {
    tag.timestamp_ps -= 3 * span_ps;
  }
  EXPECT_EQ(seen(tags), expected);
}

TEST(Delta32Encoder, AStreamThatBeginsBeforeAWrapShowsItsExcess) {
  const std::vector<TimeTag> tags{{1, epoch_ps - 1000}, {1, epoch_ps + 500}, {1, epoch_ps + 600}};
  // Seven spans are an epoch and the excess.
  const std::int64_t seen_ps = span_ps - excess_ps - 1000;
  EXPECT_EQ(words_of(tags), joined({d32_announce(seen_ps),
                                    big_endian_32({d32_tag(1, 0), d32_overflow(excess_ps / unit_ps),
                                                   d32_tag(1, 1500), d32_tag(1, 100)})}));
  EXPECT_EQ(seen(tags),
            (std::vector<TimeTag>{{1, seen_ps}, {1, seen_ps + 1500}, {1, seen_ps + 1600}}));
}

TEST(Delta32Encoder, DecodesToTheSameTagsAcrossEpochsForEveryMask) {
  for (unsigned mask = 1; mask < 16; ++mask) {
    std::mt19937_64 random(mask);
    const auto sparse_step = [&] { return sayable_step_ps(random); };
    const auto dense_step = [&] { return log_uniform_ps(random, 100'000'000'000); };
    std::vector<TimeTag> tags;
    for (std::uint8_t channel = 0; channel < 4; ++channel) {
      if ((mask >> channel & 1) != 0) {
        const std::int64_t end_ps = 4 * epoch_ps + 1'000'000;
        if (channel % 2 == 0) {
          append_channel(channel, span_ps - 1 - channel, end_ps, random, dense_step, tags);
        } else {
          append_channel(channel, channel, end_ps, random, sparse_step, tags);
        }
      }
    }
    sort_by_time(tags);
    EXPECT_EQ(seen(tags), tags) << mask;
  }
}

}  // namespace
}  // namespace zelk::simulator
