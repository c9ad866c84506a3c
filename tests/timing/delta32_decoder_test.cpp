// The delta32 path's lock and word handling: where a sync word is found, what
// each word does in each state, and what losing the lock clears.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "tests/support/delta32_fixture.hpp"

namespace zelk::timing {
namespace {

using test_support::big_endian_32;
using test_support::Bytes;
using test_support::d32_announce;
using test_support::d32_base_high;
using test_support::d32_base_low;
using test_support::d32_control;
using test_support::d32_overflow;
using test_support::d32_sync;
using test_support::d32_tag;
using test_support::d32_word;
using test_support::delta32_decoder;
using test_support::feed;
using test_support::feed_words;
using test_support::joined;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// ---- Finding the sync word -------------------------------------------------

TEST(Delta32LockTest, BytesWithoutSyncWordEmitNothingAndLeaveAtMostThreePending) {
  StreamDecoder decoder = delta32_decoder();
  EXPECT_THAT(feed(decoder, Bytes{1, 2}), IsEmpty());
  EXPECT_THAT(decoder.pending, ElementsAre(1, 2));
  EXPECT_THAT(feed(decoder, Bytes{3, 4, 5, 6, 7}), IsEmpty());
  EXPECT_THAT(decoder.pending, ElementsAre(5, 6, 7));
  EXPECT_THAT(feed(decoder, big_endian_32({d32_tag(0, 1), d32_base_low(5), d32_tag(1, 2)})),
              IsEmpty());
  EXPECT_EQ(decoder.pending.size(), 3U);
  EXPECT_FALSE(decoder.d32_locked);
}

TEST(Delta32LockTest, SyncWordIsTheBytesEb5a55AaInThatOrder) {
  StreamDecoder decoder = delta32_decoder();
  feed(decoder, Bytes{0xAA, 0x55, 0x5A, 0xEB});
  EXPECT_FALSE(decoder.d32_locked);
  feed(decoder, Bytes{0xEB, 0x5A, 0x55, 0xAA});
  EXPECT_TRUE(decoder.d32_locked);
  EXPECT_EQ(decoder.d32_state, 1U);
  EXPECT_THAT(decoder.pending, IsEmpty());
}

TEST(Delta32LockTest, SyncWordIsFoundAtAnyByteOffset) {
  for (std::size_t noise = 0; noise < 9; ++noise) {
    StreamDecoder decoder = delta32_decoder();
    const Bytes bytes =
        joined({Bytes(noise, 0xEB), d32_announce(1000), big_endian_32({d32_tag(2, 7)})});
    EXPECT_THAT(feed(decoder, bytes), ElementsAre(TimeTag{2, 1007})) << noise << " bytes of noise";
    EXPECT_THAT(decoder.pending, IsEmpty());
  }
}

TEST(Delta32LockTest, SyncWordIsFoundAcrossCalls) {
  StreamDecoder decoder = delta32_decoder();
  for (const std::uint8_t byte : Bytes{0x00, 0xEB, 0x5A, 0x55}) {
    feed(decoder, Bytes{byte});
    EXPECT_FALSE(decoder.d32_locked);
  }
  feed(decoder, Bytes{0xAA});
  EXPECT_TRUE(decoder.d32_locked);
}

TEST(Delta32LockTest, LockingForgetsAnEarlierBaseAndOverflow) {
  StreamDecoder decoder = delta32_decoder();
  decoder.d32_base = 5;
  decoder.d32_base_valid = true;
  decoder.d32_overflow = 6;
  feed_words(decoder, {d32_sync});
  EXPECT_EQ(decoder.d32_base, 0U);
  EXPECT_FALSE(decoder.d32_base_valid);
  EXPECT_EQ(decoder.d32_overflow, 0U);
}

TEST(Delta32LockTest, AnIncompleteWordStaysPendingWhileLocked) {
  StreamDecoder decoder = delta32_decoder();
  Bytes bytes = joined({d32_announce(1000), big_endian_32({d32_tag(0, 7), d32_tag(0, 8)})});
  bytes.pop_back();
  EXPECT_THAT(feed(decoder, bytes), ElementsAre(TimeTag{0, 1007}));
  EXPECT_THAT(decoder.pending, ElementsAre(0x14, 0, 0));
  EXPECT_THAT(feed(decoder, Bytes{8}), ElementsAre(TimeTag{0, 1015}));
}

TEST(Delta32LockTest, FeedDelta32DecodesWhatIsPending) {
  StreamDecoder decoder = delta32_decoder();
  decoder.pending = joined({d32_announce(20), big_endian_32({d32_tag(3, 2)})});
  EXPECT_THAT(decoder.feed_delta32(), ElementsAre(TimeTag{3, 22}));
  EXPECT_THAT(decoder.pending, IsEmpty());
}

// ---- Losing the lock -------------------------------------------------------

constexpr std::uint32_t not_allowed = d32_word(0, 0, 5, 0);

TEST(Delta32LockTest, LosingTheLockClearsBaseOverflowAndState) {
  StreamDecoder decoder = delta32_decoder();
  feed_words(decoder, {d32_sync, d32_base_low(1), d32_base_high(1), not_allowed});
  EXPECT_FALSE(decoder.d32_locked);
  EXPECT_EQ(decoder.d32_state, 0U);
  EXPECT_EQ(decoder.d32_base, 0U);
  EXPECT_FALSE(decoder.d32_base_valid);

  decoder = test_support::delta32_decoder_at(0, 100);
  feed_words(decoder, {d32_overflow(3), not_allowed});
  EXPECT_EQ(decoder.d32_overflow, 0U);
}

TEST(Delta32LockTest, LosingTheLockKeepsTheChannelsTimes) {
  StreamDecoder decoder = test_support::delta32_decoder_at(2, 100);
  feed_words(decoder, {not_allowed});
  EXPECT_TRUE(decoder.has_time[2]);
  EXPECT_EQ(decoder.last_ps[2], 100);
}

TEST(Delta32LockTest, WordsAfterTheLostLockAreIgnoredUntilTheNextSyncWord) {
  StreamDecoder decoder = delta32_decoder();
  const Bytes bytes =
      joined({d32_announce(1000), big_endian_32({d32_tag(0, 7), not_allowed, d32_tag(0, 8)}),
              Bytes{0x12}, d32_announce(2000), big_endian_32({d32_tag(0, 9)})});
  EXPECT_THAT(feed(decoder, bytes), ElementsAre(TimeTag{0, 1007}, TimeTag{0, 2009}));
}

TEST(Delta32LockTest, SyncWordRightAfterTheOffendingWordIsFound) {
  StreamDecoder decoder = delta32_decoder();
  const Bytes bytes = joined(
      {big_endian_32({d32_sync, not_allowed}), d32_announce(40), big_endian_32({d32_tag(1, 2)})});
  EXPECT_THAT(feed(decoder, bytes), ElementsAre(TimeTag{1, 42}));
}

TEST(Delta32LockTest, SearchDoesNotReachBackIntoTheOffendingWord) {
  StreamDecoder decoder = delta32_decoder();
  // The offending word ends with the first three bytes of a sync word.
  const Bytes bytes = joined({big_endian_32({d32_sync, 0x00EB5A55}), Bytes{0xAA},
                              big_endian_32({d32_base_low(9), d32_base_high(9), d32_tag(0, 1)})});
  EXPECT_THAT(feed(decoder, bytes), IsEmpty());
  EXPECT_FALSE(decoder.d32_locked);
  EXPECT_EQ(decoder.pending.size(), 3U);
}

// Nothing but the last three bytes is kept while no sync word is in sight, and
// the bytes of the offending word are among them.
TEST(Delta32LockTest, BytesOfTheOffendingWordAtTheEndOfACallAreSearchedAgainInTheNext) {
  StreamDecoder decoder = delta32_decoder();
  feed_words(decoder, {d32_sync, 0x00EB5A55});
  EXPECT_FALSE(decoder.d32_locked);
  EXPECT_THAT(decoder.pending, ElementsAre(0xEB, 0x5A, 0x55));
  const Bytes rest =
      joined({Bytes{0xAA}, big_endian_32({d32_base_low(9), d32_base_high(9), d32_tag(0, 1)})});
  EXPECT_THAT(feed(decoder, rest), SizeIs(1));
  EXPECT_TRUE(decoder.d32_locked);
}

TEST(Delta32LockTest, BytesAfterTheOffendingWordWaitForTheRestOfASyncWord) {
  StreamDecoder decoder = delta32_decoder();
  feed(decoder, joined({big_endian_32({d32_sync, 0x00000077}), Bytes{0xEB, 0x5A}}));
  EXPECT_THAT(decoder.pending, ElementsAre(0x77, 0xEB, 0x5A));
  feed(decoder, Bytes{0x55, 0xAA});
  EXPECT_TRUE(decoder.d32_locked);
}

// ---- What each word does in each state -------------------------------------

// Where a word leaves the decoder.
enum class After { lost, data, expect_low, expect_high };

After after(const StreamDecoder& decoder) {
  if (!decoder.d32_locked) {
    return After::lost;
  }
  constexpr std::array by_state = {After::data, After::expect_low, After::expect_high};
  return by_state.at(decoder.d32_state);
}

struct WordRow {
  const char* name;
  std::uint32_t word;
  After in_data;
  After in_data_with_base;
  After expecting_low;
  After expecting_high;
};

constexpr auto lost = After::lost;
constexpr auto data = After::data;
constexpr auto low = After::expect_low;
constexpr auto high = After::expect_high;

constexpr std::array word_rows = {
    WordRow{"tag", d32_tag(0, 1), data, data, lost, lost},
    WordRow{"tag on a channel without time", d32_tag(3, 1), data, data, lost, lost},
    WordRow{"overflow", d32_overflow(1), data, lost, lost, lost},
    WordRow{"overflow of nothing", d32_overflow(0), data, lost, lost, lost},
    WordRow{"largest overflow", d32_overflow(0xFFFF), data, lost, lost, lost},
    WordRow{"overflow beyond 16 bits", d32_control(0, 0x10000), lost, lost, lost, lost},
    WordRow{"overflow with the top bit", d32_control(0, 0x1000000), lost, lost, lost, lost},
    WordRow{"base low", d32_control(1, 0x1FFFFFF), lost, lost, high, lost},
    WordRow{"base low of nothing", d32_control(1, 0), lost, lost, high, lost},
    WordRow{"base high", d32_control(2, 0xFFFF), lost, lost, lost, data},
    WordRow{"base high of nothing", d32_control(2, 0), lost, lost, lost, data},
    WordRow{"base high beyond 16 bits", d32_control(2, 0x10000), lost, lost, lost, lost},
    WordRow{"base high with the top bit", d32_control(2, 0x1000000), lost, lost, lost, lost},
    WordRow{"sync", d32_sync, low, low, low, low},
    WordRow{"sync sub-type, payload 0", d32_control(3, 0), data, data, lost, lost},
    WordRow{"sync sub-type, one bit off", d32_control(3, 0x15A55AB), data, data, lost, lost},
};

StreamDecoder decoder_in_data() {
  return test_support::delta32_decoder_at(0, 100);
}

StreamDecoder decoder_with_base() {
  StreamDecoder decoder = decoder_in_data();
  feed(decoder, d32_announce(5000));
  EXPECT_TRUE(decoder.d32_base_valid);
  return decoder;
}

StreamDecoder decoder_expecting_low() {
  StreamDecoder decoder = decoder_in_data();
  feed_words(decoder, {d32_sync});
  return decoder;
}

StreamDecoder decoder_expecting_high() {
  StreamDecoder decoder = decoder_in_data();
  feed_words(decoder, {d32_sync, d32_base_low(5000)});
  return decoder;
}

TEST(Delta32WordTest, EachWordLeadsFromEachStateToTheStateOfTheTable) {
  for (const WordRow& row : word_rows) {
    SCOPED_TRACE(row.name);
    StreamDecoder decoder = decoder_in_data();
    feed_words(decoder, {row.word});
    EXPECT_EQ(after(decoder), row.in_data) << "in data";
    decoder = decoder_with_base();
    feed_words(decoder, {row.word});
    EXPECT_EQ(after(decoder), row.in_data_with_base) << "in data with a base";
    decoder = decoder_expecting_low();
    feed_words(decoder, {row.word});
    EXPECT_EQ(after(decoder), row.expecting_low) << "expecting the low part";
    decoder = decoder_expecting_high();
    feed_words(decoder, {row.word});
    EXPECT_EQ(after(decoder), row.expecting_high) << "expecting the high part";
  }
}

TEST(Delta32WordTest, AnyOtherKindLosesTheLockInEveryState) {
  for (unsigned kind = 0; kind < 16; ++kind) {
    for (unsigned class_and_subtype = 0; class_and_subtype < 8; ++class_and_subtype) {
      const unsigned class_bit = class_and_subtype >> 2;
      if (kind == (class_bit == 0 ? 10U : 5U)) {
        continue;
      }
      const std::uint32_t word = d32_word(class_bit, class_and_subtype & 3, kind, 1);
      for (StreamDecoder decoder : {decoder_in_data(), decoder_with_base(), decoder_expecting_low(),
                                    decoder_expecting_high()}) {
        EXPECT_THAT(feed_words(decoder, {word}), IsEmpty());
        EXPECT_EQ(after(decoder), lost) << std::hex << word;
      }
    }
  }
}

TEST(Delta32WordTest, OverflowWhileABaseIsPendingLosesTheLock) {
  StreamDecoder decoder = decoder_with_base();
  EXPECT_THAT(feed_words(decoder, {d32_overflow(1), d32_tag(0, 1)}), IsEmpty());
  EXPECT_FALSE(decoder.d32_locked);
  EXPECT_FALSE(decoder.d32_base_valid);
}

TEST(Delta32WordTest, SyncSubTypeWithAnotherPayloadIsSkippedInData) {
  StreamDecoder decoder = decoder_in_data();
  EXPECT_THAT(feed_words(decoder, {d32_overflow(1), d32_control(3, 1), d32_tag(0, 1)}),
              ElementsAre(TimeTag{0, 33'554'533}));
  decoder = decoder_with_base();
  EXPECT_THAT(feed_words(decoder, {d32_control(3, 1), d32_tag(0, 1)}),
              ElementsAre(TimeTag{0, 5001}));
}

TEST(Delta32WordTest, SyncSubTypeWithAnotherPayloadLosesTheLockWhileABaseIsExpected) {
  StreamDecoder expecting_low = decoder_expecting_low();
  feed_words(expecting_low, {d32_control(3, 1)});
  EXPECT_FALSE(expecting_low.d32_locked);
  StreamDecoder expecting_high = decoder_expecting_high();
  feed_words(expecting_high, {d32_control(3, 1)});
  EXPECT_FALSE(expecting_high.d32_locked);
}

TEST(Delta32WordTest, SyncInDataForgetsAPendingBase) {
  StreamDecoder decoder = decoder_with_base();
  feed_words(decoder, {d32_sync});
  EXPECT_FALSE(decoder.d32_base_valid);
  EXPECT_EQ(decoder.d32_base, 0U);
}

TEST(Delta32WordTest, SyncInDataForgetsPendingOverflow) {
  StreamDecoder decoder = decoder_in_data();
  feed_words(decoder, {d32_overflow(9)});
  EXPECT_EQ(decoder.d32_overflow, 9U);
  feed_words(decoder, {d32_sync});
  EXPECT_EQ(decoder.d32_overflow, 0U);
}

TEST(Delta32WordTest, SyncWhileABaseIsExpectedStartsTheAnnouncementAgain) {
  StreamDecoder decoder = delta32_decoder();
  EXPECT_THAT(feed_words(decoder, {d32_sync, d32_sync, d32_base_low(1), d32_sync, d32_base_low(7),
                                   d32_base_high(7), d32_tag(1, 1)}),
              ElementsAre(TimeTag{1, 8}));
}

TEST(Delta32WordTest, SyncWhileABaseIsExpectedForgetsBaseAndOverflow) {
  for (StreamDecoder decoder : {decoder_expecting_low(), decoder_expecting_high()}) {
    decoder.d32_base = 1;
    decoder.d32_base_valid = true;
    decoder.d32_overflow = 2;
    feed_words(decoder, {d32_sync});
    EXPECT_EQ(decoder.d32_state, 1U);
    EXPECT_EQ(decoder.d32_base, 0U);
    EXPECT_FALSE(decoder.d32_base_valid);
    EXPECT_EQ(decoder.d32_overflow, 0U);
  }
}

TEST(Delta32WordTest, BaseIsTheHighPartTimesTwoToThe25PlusTheLowPart) {
  StreamDecoder decoder = delta32_decoder();
  feed_words(decoder, {d32_sync, d32_control(1, 0x1234567), d32_control(2, 0x8001)});
  EXPECT_EQ(decoder.d32_base_low, 0x1234567U);
  EXPECT_EQ(decoder.d32_base, 0x8001U * std::uint64_t{33'554'432} + 0x1234567U);
  EXPECT_TRUE(decoder.d32_base_valid);
}

TEST(Delta32WordTest, CompletedBaseForgetsOverflow) {
  StreamDecoder decoder = decoder_expecting_high();
  decoder.d32_overflow = 4;
  feed_words(decoder, {d32_base_high(0)});
  EXPECT_EQ(decoder.d32_overflow, 0U);
}

}  // namespace
}  // namespace zelk::timing
