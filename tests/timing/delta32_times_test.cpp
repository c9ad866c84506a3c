// The times of delta32 tags: deltas, removal of the wrap excess, and the
// lifting of a 41-bit time base to the channel's present time.
//
// Sizes used below, in ps: counter span S = 2 199 023 255 552, coarse epoch
// E = 14 315 125 997 568, wrap excess g = 7 S - E = 1 078 036 791 296.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "tests/support/delta32_fixture.hpp"

namespace zelk::timing {
namespace {

using test_support::big_endian_32;
using test_support::Bytes;
using test_support::d32_announce;
using test_support::d32_overflow;
using test_support::d32_step;
using test_support::d32_tag;
using test_support::delta32_decoder;
using test_support::delta32_decoder_at;
using test_support::feed;
using test_support::feed_words;
using test_support::joined;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint64_t excess = 1'078'036'791'296;
constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

// The time of a channel-0 tag `delta_ps` after `last_ps`, without a base.
std::int64_t relative_time(std::int64_t last_ps, std::uint64_t delta_ps) {
  StreamDecoder decoder = delta32_decoder_at(0, last_ps);
  const std::vector<TimeTag> tags = feed(decoder, d32_step(0, delta_ps));
  EXPECT_EQ(tags.size(), 1U);
  EXPECT_TRUE(decoder.d32_locked);
  EXPECT_EQ(tags.at(0).timestamp_ps, decoder.last_ps[0]);
  return tags.at(0).timestamp_ps;
}

// What a channel-0 tag `delta_ps` after an announced base gives when the
// channel's last time is `last_ps`.
std::vector<TimeTag> based_tags(std::int64_t last_ps, std::uint64_t base_ps,
                                std::uint32_t delta_ps) {
  StreamDecoder decoder = delta32_decoder_at(0, last_ps);
  const std::vector<TimeTag> tags =
      feed(decoder, joined({d32_announce(base_ps), big_endian_32({d32_tag(0, delta_ps)})}));
  EXPECT_EQ(decoder.d32_locked, !tags.empty());
  EXPECT_EQ(decoder.last_ps[0], tags.empty() ? last_ps : tags.at(0).timestamp_ps);
  EXPECT_FALSE(decoder.d32_base_valid);
  return tags;
}

// ---- Deltas ----------------------------------------------------------------

TEST(Delta32DeltaTest, TagOnAChannelThatNeverHadABaseIsDroppedSilently) {
  StreamDecoder decoder = delta32_decoder_at(0, 100);
  EXPECT_THAT(feed_words(decoder, {d32_tag(1, 5), d32_tag(0, 5)}), ElementsAre(TimeTag{0, 105}));
  EXPECT_TRUE(decoder.d32_locked);
  EXPECT_FALSE(decoder.has_time[1]);
  EXPECT_EQ(decoder.last_ps[1], 0);
}

TEST(Delta32DeltaTest, ADroppedTagUsesUpThePendingOverflow) {
  StreamDecoder decoder = delta32_decoder_at(0, 100);
  EXPECT_THAT(feed_words(decoder, {d32_overflow(1), d32_tag(1, 5), d32_tag(0, 5)}),
              ElementsAre(TimeTag{0, 105}));
}

TEST(Delta32DeltaTest, EachChannelAddsToItsOwnTime) {
  StreamDecoder decoder = delta32_decoder_at(0, 100);
  decoder.has_time[3] = true;
  decoder.last_ps[3] = 7'000;
  EXPECT_THAT(feed_words(decoder, {d32_tag(3, 1), d32_tag(0, 2), d32_tag(3, 4)}),
              ElementsAre(TimeTag{3, 7'001}, TimeTag{0, 102}, TimeTag{3, 7'005}));
}

TEST(Delta32DeltaTest, OverflowUnitsAddUpUntilTheNextTag) {
  StreamDecoder decoder = delta32_decoder_at(0, 0);
  // 3 x 33 554 432 + 7
  EXPECT_THAT(feed_words(decoder, {d32_overflow(1), d32_overflow(2), d32_tag(0, 7), d32_tag(0, 1)}),
              ElementsAre(TimeTag{0, 100'663'303}, TimeTag{0, 100'663'304}));
}

TEST(Delta32DeltaTest, PayloadHas25Bits) {
  EXPECT_EQ(relative_time(0, 33'554'431), 33'554'431);
}

TEST(Delta32DeltaTest, ZeroDeltaRepeatsTheChannelsTime) {
  EXPECT_EQ(relative_time(500, 0), 500);
}

TEST(Delta32DeltaTest, OverflowBeyond64BitsKeepsTheLowOnes) {
  StreamDecoder decoder = delta32_decoder_at(0, 100);
  decoder.d32_overflow = std::uint64_t{1} << 39;  // 2^64 ps
  EXPECT_THAT(feed_words(decoder, {d32_tag(0, 9)}), ElementsAre(TimeTag{0, 109}));
}

TEST(Delta32DeltaTest, TimeBeyondTheSignedRangeWrapsAround) {
  EXPECT_EQ(relative_time(highest, 5), lowest + 4);
}

// ---- Removing the wrap excess from a delta ---------------------------------

TEST(Delta32ExcessTest, DeltaEqualToTheExcessStays) {
  EXPECT_EQ(relative_time(1'000, excess), 1'078'036'792'296);
}

TEST(Delta32ExcessTest, DeltaOneAboveTheExcessIsCorrected) {
  EXPECT_EQ(relative_time(1'000, excess + 1), 1'001);
}

TEST(Delta32ExcessTest, CorrectedDeltaOfTenMillisecondsIsAlwaysTaken) {
  EXPECT_EQ(relative_time(1'000, excess + 10'000'000'000), 10'000'001'000);
}

TEST(Delta32ExcessTest, CorrectedDeltaAboveTenMillisecondsNeedsAnEpochCrossing) {
  EXPECT_EQ(relative_time(1'000, excess + 10'000'000'001), 1'088'036'792'297);
}

TEST(Delta32ExcessTest, StepThatEndsExactlyOnTheEpochCrosses) {
  // 14 305 125 997 567 + 10 000 000 001 = E
  EXPECT_EQ(relative_time(14'305'125'997'567, excess + 10'000'000'001), 14'315'125'997'568);
}

TEST(Delta32ExcessTest, StepThatEndsOneBeforeTheEpochDoesNotCross) {
  EXPECT_EQ(relative_time(14'305'125'997'566, excess + 10'000'000'001), 15'393'162'788'863);
}

TEST(Delta32ExcessTest, CrossingIsJudgedWithinThePresentEpoch) {
  // 3 E = 42 945 377 992 704 later than the two steps above.
  EXPECT_EQ(relative_time(57'250'503'990'271, excess + 10'000'000'001), 57'260'503'990'272);
  EXPECT_EQ(relative_time(57'250'503'990'270, excess + 10'000'000'001), 58'338'540'781'567);
}

TEST(Delta32ExcessTest, ExcessIsRemovedOnlyOnce) {
  // 2 g + 1 leaves g + 1, which is too large and crosses nothing.
  EXPECT_EQ(relative_time(0, 2 * excess + 1), 2'156'073'582'593);
}

TEST(Delta32ExcessTest, NegativeTimeStillAdvancesByTheDelta) {
  EXPECT_EQ(relative_time(-5, 3), -2);
  EXPECT_EQ(relative_time(-5, excess + 1), -4);
}

TEST(Delta32ExcessTest, NegativeTimeCountsAsZeroForTheCrossing) {
  // A delta of g + E leaves E, which crosses from 0 but not from -1.
  EXPECT_EQ(relative_time(-1, 15'393'162'788'864), 14'315'125'997'567);
  // One less crosses from any time above 0.
  EXPECT_EQ(relative_time(-1, 15'393'162'788'863), 15'393'162'788'862);
  EXPECT_EQ(relative_time(lowest, 15'393'162'788'863), lowest + 15'393'162'788'863);
}

// ---- Tags relative to a base -----------------------------------------------

TEST(Delta32BaseTest, FirstTagOfAChannelIsTheBasePlusItsDelta) {
  StreamDecoder decoder = delta32_decoder();
  EXPECT_THAT(
      feed(decoder, joined({d32_announce(1'000'000'000'000), big_endian_32({d32_tag(2, 9)})})),
      ElementsAre(TimeTag{2, 1'000'000'000'009}));
  EXPECT_TRUE(decoder.has_time[2]);
  EXPECT_EQ(decoder.last_ps[2], 1'000'000'000'009);
}

TEST(Delta32BaseTest, LargestBaseHas41Bits) {
  StreamDecoder decoder = delta32_decoder();
  EXPECT_THAT(
      feed(decoder, joined({d32_announce(2'199'023'255'551), big_endian_32({d32_tag(0, 0)})})),
      ElementsAre(TimeTag{0, 2'199'023'255'551}));
}

TEST(Delta32BaseTest, OnlyTheLow41BitsOfABaseCount) {
  StreamDecoder decoder = delta32_decoder();
  decoder.d32_locked = true;
  decoder.d32_base = (std::uint64_t{1} << 41) + 5;
  decoder.d32_base_valid = true;
  EXPECT_THAT(feed_words(decoder, {d32_tag(0, 1)}), ElementsAre(TimeTag{0, 6}));
}

TEST(Delta32BaseTest, OneTagUsesUpTheBase) {
  StreamDecoder decoder = delta32_decoder();
  EXPECT_THAT(feed(decoder, joined({d32_announce(1'000),
                                    big_endian_32({d32_tag(0, 1), d32_tag(1, 2), d32_tag(0, 3)})})),
              ElementsAre(TimeTag{0, 1'001}, TimeTag{0, 1'004}));
  EXPECT_EQ(decoder.d32_base, 0U);
  EXPECT_FALSE(decoder.d32_base_valid);
}

TEST(Delta32BaseTest, FirstTagOfAChannelIsNotLiftedToAnotherChannelsTime) {
  StreamDecoder decoder = delta32_decoder_at(0, 12'000'000'000'000);
  EXPECT_THAT(feed(decoder, joined({d32_announce(70), big_endian_32({d32_tag(1, 7)})})),
              ElementsAre(TimeTag{1, 77}));
}

TEST(Delta32BaseTest, BaseIsLiftedIntoTheSpanOfTheChannelsTime) {
  // 5 S = 10 995 116 277 760
  EXPECT_THAT(based_tags(10'995'116'277'767, 10, 1), ElementsAre(TimeTag{0, 10'995'116'277'771}));
}

TEST(Delta32BaseTest, BaseHalfASpanBehindIsNotLiftedFurther) {
  // Last time 5 S + S/2 + 100, base 5 S + 100: exactly half a span behind, so
  // it stays there and the tag is late.
  EXPECT_THAT(based_tags(12'094'627'905'636, 100, 3), IsEmpty());
}

TEST(Delta32BaseTest, BaseMoreThanHalfASpanBehindIsInTheNextSpan) {
  // 6 S + 99 + 3. The step of S/2 - 1 exceeds g by 21 474 836 479, which is
  // more than 10 ms and ends before E, so nothing is removed from it.
  EXPECT_THAT(based_tags(12'094'627'905'636, 99, 3), ElementsAre(TimeTag{0, 13'194'139'533'414}));
}

TEST(Delta32BaseTest, BaseBeforeTheLastTimeServesWhenTheTagIsLater) {
  EXPECT_THAT(based_tags(5'000, 4'000, 1'001), ElementsAre(TimeTag{0, 5'001}));
}

TEST(Delta32BaseTest, BaseAheadByTheExcessStays) {
  EXPECT_THAT(based_tags(1'000, 1'078'036'792'296, 3), ElementsAre(TimeTag{0, 1'078'036'792'299}));
}

TEST(Delta32BaseTest, BaseAheadByOneMoreThanTheExcessIsCorrected) {
  EXPECT_THAT(based_tags(1'000, 1'078'036'792'297, 3), ElementsAre(TimeTag{0, 1'004}));
}

TEST(Delta32BaseTest, CorrectedStepOfTenMillisecondsIsAlwaysTaken) {
  EXPECT_THAT(based_tags(1'000, 1'088'036'792'296, 3), ElementsAre(TimeTag{0, 10'000'001'003}));
}

TEST(Delta32BaseTest, CorrectedStepAboveTenMillisecondsNeedsAnEpochCrossing) {
  EXPECT_THAT(based_tags(1'000, 1'088'036'792'297, 3), ElementsAre(TimeTag{0, 1'088'036'792'300}));
}

TEST(Delta32BaseTest, CorrectedStepThatEndsExactlyOnTheEpochCrosses) {
  // The base is 7 S = E + g; the last time is 10 ms and 1 ps before E.
  EXPECT_THAT(based_tags(14'305'125'997'567, 0, 3), ElementsAre(TimeTag{0, 14'315'125'997'571}));
}

TEST(Delta32BaseTest, CorrectedStepThatEndsOneBeforeTheEpochDoesNotCross) {
  // The base is 7 S - 1; the last time is 10 ms and 2 ps before E.
  EXPECT_THAT(based_tags(14'305'125'997'566, 2'199'023'255'551, 3),
              ElementsAre(TimeTag{0, 15'393'162'788'866}));
}

TEST(Delta32BaseTest, NegativeLastTimeCountsAsZero) {
  EXPECT_THAT(based_tags(-5, 100, 1), ElementsAre(TimeTag{0, 101}));
  EXPECT_THAT(based_tags(-5, 0, 0), ElementsAre(TimeTag{0, 0}));
  EXPECT_THAT(based_tags(lowest, 1'078'036'791'297, 0), ElementsAre(TimeTag{0, 1}));
}

TEST(Delta32BaseTest, TagNotLaterThanTheLastTimeIsDroppedAndLosesTheLock) {
  EXPECT_THAT(based_tags(5'000, 5'000, 0), IsEmpty());
  EXPECT_THAT(based_tags(5'000, 4'000, 1'000), IsEmpty());
  EXPECT_THAT(based_tags(5'000, 3'000, 7), IsEmpty());
  EXPECT_THAT(based_tags(5'000, 5'000, 1), ElementsAre(TimeTag{0, 5'001}));
}

TEST(Delta32BaseTest, DecodingResumesAtTheNextSyncWordAfterALateTag) {
  StreamDecoder decoder = delta32_decoder_at(0, 5'000);
  EXPECT_THAT(
      feed(decoder, joined({d32_announce(4'000), big_endian_32({d32_tag(0, 0), d32_tag(0, 9)}),
                            d32_announce(6'000), big_endian_32({d32_tag(0, 1), d32_tag(0, 9)})})),
      ElementsAre(TimeTag{0, 6'001}, TimeTag{0, 6'010}));
}

}  // namespace
}  // namespace zelk::timing
