// The raw64 path: which words are records, how timestamps are reduced and
// unwrapped, and what the coarse/fine layout subtracts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "tests/support/stream_headers.hpp"
#include "tests/support/wire_words.hpp"
#include "timing/stream_decoder.hpp"

namespace zelk::timing {
namespace {

using test_support::big_endian_64;
using test_support::Bytes;
using test_support::cf_record;
using test_support::joined;
using test_support::ps_record;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::int64_t epoch = 14'315'125'997'568;
constexpr std::int64_t half_epoch = 7'157'562'998'784;

StreamDecoder ps_decoder() {
  return StreamDecoder(test_support::stream_header(Format::raw64, StreamMode::external));
}

StreamDecoder cf_decoder(const std::string& layout = "raw_cf") {
  StreamFileHeader header = test_support::stream_header(Format::raw64, StreamMode::internal);
  header.timestamp_layout = layout;
  return StreamDecoder(header);
}

std::vector<TimeTag> feed(StreamDecoder& decoder, const Bytes& bytes) {
  return decoder.feed(bytes.data(), bytes.size());
}

std::vector<TimeTag> feed(StreamDecoder& decoder, std::initializer_list<std::uint64_t> words) {
  return feed(decoder, big_endian_64(words));
}

TEST(Raw64PsTest, RecordIsReadBigEndian) {
  StreamDecoder decoder = ps_decoder();
  EXPECT_THAT(feed(decoder, Bytes{0x40, 0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06}),
              ElementsAre(TimeTag{2, 0x10203040506}));
  EXPECT_THAT(decoder.pending, IsEmpty());
}

TEST(Raw64PsTest, ChannelComesFromBits62And61) {
  StreamDecoder decoder = ps_decoder();
  EXPECT_THAT(
      feed(decoder, {ps_record(0, 10), ps_record(1, 11), ps_record(2, 12), ps_record(3, 13)}),
      ElementsAre(TimeTag{0, 10}, TimeTag{1, 11}, TimeTag{2, 12}, TimeTag{3, 13}));
}

TEST(Raw64PsTest, PendingBytesAreDecodedByThemselves) {
  StreamDecoder decoder = ps_decoder();
  decoder.pending = joined({big_endian_64({ps_record(1, 30)}), Bytes{0x40}});
  EXPECT_THAT(decoder.feed_raw64(), ElementsAre(TimeTag{1, 30}));
  EXPECT_THAT(decoder.pending, ElementsAre(0x40));
}

TEST(Raw64PsTest, FifteenBytesGiveOneTagAndLeaveSevenPending) {
  StreamDecoder decoder = ps_decoder();
  Bytes bytes = big_endian_64({ps_record(1, 5), ps_record(2, 6)});
  bytes.pop_back();
  EXPECT_THAT(feed(decoder, bytes), ElementsAre(TimeTag{1, 5}));
  EXPECT_THAT(decoder.pending, ElementsAre(0x40, 0, 0, 0, 0, 0, 0));
}

TEST(Raw64PsTest, LastByteCompletesAPendingRecord) {
  StreamDecoder decoder = ps_decoder();
  Bytes bytes = big_endian_64({ps_record(3, 0x1234)});
  bytes.pop_back();
  EXPECT_THAT(feed(decoder, bytes), IsEmpty());
  EXPECT_THAT(feed(decoder, Bytes{0x34}), ElementsAre(TimeTag{3, 0x1234}));
}

TEST(Raw64PsTest, AnyFixedBitThatIsSetMakesTheWordNoRecord) {
  for (int bit = 44; bit <= 63; ++bit) {
    if (bit == 61 || bit == 62) {
      continue;
    }
    StreamDecoder decoder = ps_decoder();
    const Bytes bytes = big_endian_64({std::uint64_t{1} << bit});
    EXPECT_THAT(feed(decoder, bytes), IsEmpty()) << "bit " << bit;
    EXPECT_EQ(decoder.pending, Bytes(bytes.begin() + 1, bytes.end())) << "bit " << bit;
  }
}

TEST(Raw64PsTest, RecordWithBit63SetIsInvalidSoChannelsFourToSevenNeverOccur) {
  for (unsigned channel = 0; channel < 4; ++channel) {
    StreamDecoder decoder = ps_decoder();
    EXPECT_THAT(feed(decoder, {ps_record(channel, 0xFFFFFFFFFFF) | std::uint64_t{1} << 63}),
                IsEmpty());
  }
}

TEST(Raw64PsTest, ResynchronisesOneByteAtATime) {
  StreamDecoder decoder = ps_decoder();
  const Bytes record = big_endian_64({ps_record(1, 0x0ABBCCDDEEFF)});
  EXPECT_THAT(feed(decoder, joined({{0xFF, 0xFF, 0xFF}, record})),
              ElementsAre(TimeTag{1, 0x0ABBCCDDEEFF}));
  EXPECT_THAT(decoder.pending, IsEmpty());
}

TEST(Raw64PsTest, ATailThatMatchesNothingStaysPending) {
  StreamDecoder decoder = ps_decoder();
  EXPECT_THAT(feed(decoder, Bytes(20, 0xFF)), IsEmpty());
  EXPECT_EQ(decoder.pending, Bytes(7, 0xFF));
}

TEST(Raw64PsTest, TimestampIsReducedModuloTheEpochWhich44BitsExceed) {
  StreamDecoder decoder = ps_decoder();
  // 2^44 - 1 = 17 592 186 044 415, less one epoch 3 277 060 046 847.
  EXPECT_THAT(
      feed(decoder, {ps_record(0, 14'315'125'997'567), ps_record(1, 14'315'125'997'568),
                     ps_record(2, 17'592'186'044'415)}),
      ElementsAre(TimeTag{0, 14'315'125'997'567}, TimeTag{1, 0}, TimeTag{2, 3'277'060'046'847}));
  EXPECT_EQ(decoder.raw64[2].last_raw, 3'277'060'046'847U);
}

TEST(Raw64PsTest, BackwardStepIsMeasuredBetweenReducedValues) {
  StreamDecoder decoder = ps_decoder();
  // From 3 277 060 046 847 back to 0: less than half an epoch, so no wrap.
  EXPECT_THAT(feed(decoder, {ps_record(0, 17'592'186'044'415), ps_record(0, 0)}),
              ElementsAre(TimeTag{0, 3'277'060'046'847}, TimeTag{0, 0}));
}

TEST(Raw64PsTest, StepBackByExactlyHalfAnEpochIsALateTag) {
  StreamDecoder decoder = ps_decoder();
  EXPECT_THAT(feed(decoder, {ps_record(1, half_epoch + 100), ps_record(1, 100)}),
              ElementsAre(TimeTag{1, 7'157'562'998'884}, TimeTag{1, 100}));
  EXPECT_EQ(decoder.epoch_offset_ps[1], 0);
}

TEST(Raw64PsTest, StepBackByOneMoreThanHalfAnEpochIsAWrap) {
  StreamDecoder decoder = ps_decoder();
  EXPECT_THAT(feed(decoder, {ps_record(1, half_epoch + 100), ps_record(1, 99)}),
              ElementsAre(TimeTag{1, 7'157'562'998'884}, TimeTag{1, 14'315'125'997'667}));
  EXPECT_EQ(decoder.epoch_offset_ps[1], epoch);
}

TEST(Raw64PsTest, FirstTagOfAChannelNeverWraps) {
  StreamDecoder decoder = ps_decoder();
  decoder.raw64[0].last_raw = 14'315'125'997'567;  // without has_last
  EXPECT_THAT(feed(decoder, {ps_record(0, 0)}), ElementsAre(TimeTag{0, 0}));
  EXPECT_TRUE(decoder.raw64[0].has_last);
}

TEST(Raw64PsTest, StepForwardOfAnySizeIsNoWrap) {
  StreamDecoder decoder = ps_decoder();
  EXPECT_THAT(feed(decoder, {ps_record(0, 0), ps_record(0, 14'315'125'997'567)}),
              ElementsAre(TimeTag{0, 0}, TimeTag{0, 14'315'125'997'567}));
}

TEST(Raw64PsTest, EqualTimestampsAreNoWrap) {
  StreamDecoder decoder = ps_decoder();
  EXPECT_THAT(feed(decoder, {ps_record(0, 9'000'000'000'000), ps_record(0, 9'000'000'000'000)}),
              ElementsAre(TimeTag{0, 9'000'000'000'000}, TimeTag{0, 9'000'000'000'000}));
}

TEST(Raw64PsTest, OnlyTheChannelThatFallsBackIsUnwrapped) {
  StreamDecoder decoder = ps_decoder();
  EXPECT_THAT(
      feed(decoder, {ps_record(0, 14'000'000'000'000), ps_record(1, 14'000'000'000'000),
                     ps_record(0, 1'000), ps_record(1, 14'000'000'000'500), ps_record(0, 2'000)}),
      ElementsAre(TimeTag{0, 14'000'000'000'000}, TimeTag{1, 14'000'000'000'000},
                  TimeTag{0, 14'315'125'998'568}, TimeTag{1, 14'000'000'000'500},
                  TimeTag{0, 14'315'125'999'568}));
  EXPECT_THAT(decoder.epoch_offset_ps, ElementsAre(epoch, 0, 0, 0));
}

TEST(Raw64PsTest, WrapsAddUp) {
  StreamDecoder decoder = ps_decoder();
  EXPECT_THAT(feed(decoder, {ps_record(3, 14'000'000'000'000), ps_record(3, 7),
                             ps_record(3, 14'000'000'000'000), ps_record(3, 8)}),
              ElementsAre(TimeTag{3, 14'000'000'000'000}, TimeTag{3, 14'315'125'997'575},
                          TimeTag{3, 28'315'125'997'568}, TimeTag{3, 28'630'251'995'144}));
}

TEST(Raw64PsTest, TimeBeyondTheSignedRangeWrapsAround) {
  StreamDecoder decoder = ps_decoder();
  decoder.epoch_offset_ps[0] = std::numeric_limits<std::int64_t>::max();
  EXPECT_THAT(feed(decoder, {ps_record(0, 1)}),
              ElementsAre(TimeTag{0, std::numeric_limits<std::int64_t>::min()}));
}

TEST(Raw64PsTest, CoarseFineRecordIsNoPsRecord) {
  StreamDecoder decoder = ps_decoder();
  EXPECT_THAT(feed(decoder, {cf_record(0, 0xFFFFFFFF, 0x1FFF)}), IsEmpty());
}

TEST(Raw64CoarseFineTest, RecordCarriesMarkerCoarseCountAndFineCode) {
  StreamDecoder decoder = cf_decoder();
  // Channel 1, marker A5C3, coarse 1, fine 0: bit 13 is the coarse count's lowest.
  EXPECT_THAT(feed(decoder, Bytes{0x34, 0xB8, 0x60, 0x00, 0x00, 0x00, 0x20, 0x00}),
              ElementsAre(TimeTag{1, 3333}));
}

TEST(Raw64CoarseFineTest, FineCodeZeroGivesAWholeNumberOfClockPeriods) {
  StreamDecoder decoder = cf_decoder();
  EXPECT_THAT(
      feed(decoder, {cf_record(0, 0, 0), cf_record(1, 1000, 0), cf_record(2, 0xFFFFFFFF, 0)}),
      ElementsAre(TimeTag{0, 0}, TimeTag{1, 3'333'000}, TimeTag{2, 14'315'125'994'235}));
}

TEST(Raw64CoarseFineTest, FineCorrectionIsSubtracted) {
  StreamDecoder decoder = cf_decoder();
  EXPECT_THAT(feed(decoder, {cf_record(0, 1000, 1), cf_record(0, 1000, 2), cf_record(0, 1000, 180),
                             cf_record(0, 1000, 181), cf_record(0, 1000, 8191)}),
              ElementsAre(TimeTag{0, 3'332'981}, TimeTag{0, 3'332'963}, TimeTag{0, 3'329'670},
                          TimeTag{0, 3'329'668}, TimeTag{0, 3'329'668}));
}

TEST(Raw64CoarseFineTest, EveryFineCodeFrom181OnSubtracts3332Ps) {
  StreamDecoder decoder = cf_decoder();
  for (std::uint64_t fine = 181; fine < 8192; ++fine) {
    ASSERT_THAT(feed(decoder, {cf_record(3, 10, fine)}), ElementsAre(TimeTag{3, 29'998}))
        << "fine code " << fine;
  }
}

TEST(Raw64CoarseFineTest, CorrectionLargerThanTheCoarseTimeGivesANegativeTime) {
  StreamDecoder decoder = cf_decoder();
  EXPECT_THAT(feed(decoder, {cf_record(0, 0, 8191)}), ElementsAre(TimeTag{0, -3332}));
}

TEST(Raw64CoarseFineTest, StepBackByExactlyHalfTheCounterIsALateTag) {
  StreamDecoder decoder = cf_decoder();
  EXPECT_THAT(feed(decoder, {cf_record(2, 2'147'483'653, 0), cf_record(2, 5, 0)}),
              ElementsAre(TimeTag{2, 7'157'563'015'449}, TimeTag{2, 16'665}));
  EXPECT_EQ(decoder.epoch_offset_ps[2], 0);
}

TEST(Raw64CoarseFineTest, StepBackByOneMoreThanHalfTheCounterIsAWrap) {
  StreamDecoder decoder = cf_decoder();
  EXPECT_THAT(feed(decoder, {cf_record(2, 2'147'483'653, 0), cf_record(2, 4, 0)}),
              ElementsAre(TimeTag{2, 7'157'563'015'449}, TimeTag{2, 14'315'126'010'900}));
  EXPECT_EQ(decoder.epoch_offset_ps[2], 4'294'967'296);  // clock periods
  EXPECT_EQ(decoder.raw64[2].last_raw, 4U);
}

TEST(Raw64CoarseFineTest, OnlyTheChannelThatFallsBackIsUnwrapped) {
  StreamDecoder decoder = cf_decoder();
  feed(decoder, {cf_record(0, 4'000'000'000, 0), cf_record(1, 4'000'000'000, 0)});
  EXPECT_THAT(feed(decoder, {cf_record(0, 1, 2), cf_record(1, 4'000'000'001, 0)}),
              ElementsAre(TimeTag{0, 14'315'126'000'864}, TimeTag{1, 13'332'000'003'333}));
}

TEST(Raw64CoarseFineTest, FineCodeDoesNotCountForTheWrap) {
  StreamDecoder decoder = cf_decoder();
  EXPECT_THAT(feed(decoder, {cf_record(0, 50, 0), cf_record(0, 50, 8191)}),
              ElementsAre(TimeTag{0, 166'650}, TimeTag{0, 163'318}));
}

TEST(Raw64CoarseFineTest, AnyWrongMarkerBitMakesTheWordNoRecord) {
  for (int bit = 45; bit <= 63; ++bit) {
    if (bit == 61 || bit == 62) {
      continue;
    }
    StreamDecoder decoder = cf_decoder();
    const Bytes bytes = big_endian_64({cf_record(1, 7, 7) ^ std::uint64_t{1} << bit});
    EXPECT_THAT(feed(decoder, bytes), IsEmpty()) << "bit " << bit;
    EXPECT_EQ(decoder.pending, Bytes(bytes.begin() + 1, bytes.end())) << "bit " << bit;
  }
}

TEST(Raw64CoarseFineTest, PsRecordIsNoCoarseFineRecord) {
  StreamDecoder decoder = cf_decoder();
  EXPECT_THAT(feed(decoder, {ps_record(0, 123)}), IsEmpty());
}

TEST(Raw64CoarseFineTest, ResynchronisesOneByteAtATime) {
  StreamDecoder decoder = cf_decoder();
  EXPECT_THAT(feed(decoder, joined({{0x14, 0xB8, 0x00}, big_endian_64({cf_record(0, 2, 0)})})),
              ElementsAre(TimeTag{0, 6666}));
  EXPECT_THAT(decoder.pending, IsEmpty());
}

TEST(Raw64CoarseFineTest, ACodeOutsideAShorterTableGetsNoCorrection) {
  StreamDecoder decoder = cf_decoder();
  decoder.fine_correction_ps = {0, 100};
  EXPECT_THAT(feed(decoder, {cf_record(0, 10, 1), cf_record(0, 10, 2), cf_record(0, 10, 8191)}),
              ElementsAre(TimeTag{0, 33'230}, TimeTag{0, 33'330}, TimeTag{0, 33'330}));
}

TEST(Raw64CoarseFineTest, AnEmptyTableCorrectsNothing) {
  StreamDecoder decoder = cf_decoder();
  decoder.fine_correction_ps.clear();
  EXPECT_THAT(feed(decoder, {cf_record(0, 10, 0), cf_record(0, 11, 8191)}),
              ElementsAre(TimeTag{0, 33'330}, TimeTag{0, 36'663}));
}

TEST(Raw64CoarseFineTest, TimeBeyondTheSignedRangeWrapsAround) {
  StreamDecoder decoder = cf_decoder();
  decoder.epoch_offset_ps[0] = std::numeric_limits<std::int64_t>::max();
  decoder.fine_correction_ps = {0, 1};
  // 2^63 x 3333 keeps only bit 63 of its low 64 bits, for 3333 is odd.
  EXPECT_THAT(feed(decoder, {cf_record(0, 1, 0), cf_record(0, 1, 1)}),
              ElementsAre(TimeTag{0, std::numeric_limits<std::int64_t>::min()},
                          TimeTag{0, std::numeric_limits<std::int64_t>::max()}));
}

TEST(Raw64LayoutTest, LayoutNameIsComparedWithoutRegardToCase) {
  for (const char* name : {"raw_cf", "RAW_CF", "Raw_Cf", "rAW_cF"}) {
    StreamDecoder decoder = cf_decoder(name);
    decoder.timestamp_layout = name;
    EXPECT_THAT(feed(decoder, {cf_record(1, 3, 0)}), ElementsAre(TimeTag{1, 9999})) << name;
  }
}

TEST(Raw64LayoutTest, AnyOtherNameIsThePsLayout) {
  for (const char* name : {"ps", "", "raw_cf ", "raw_c", "rawcf", "something"}) {
    StreamDecoder decoder = ps_decoder();
    decoder.timestamp_layout = name;
    EXPECT_THAT(feed(decoder, {cf_record(1, 3, 0)}), IsEmpty()) << name;
    decoder.pending.clear();
    EXPECT_THAT(feed(decoder, {ps_record(1, 3)}), ElementsAre(TimeTag{1, 3})) << name;
  }
}

}  // namespace
}  // namespace zelk::timing
