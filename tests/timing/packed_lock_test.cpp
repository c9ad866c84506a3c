// The lock of a packed_delta stream: what costs it, what is consumed and
// returned then, what happens while there is none, and the debug lines.
#include <numeric>

#include "tests/timing/packed_decoder_harness.hpp"

namespace zelk::timing {
namespace {

using namespace test_support;

using Bytes = std::vector<std::uint8_t>;

template <typename Decoder>
class PackedLockTest : public ::testing::Test {};
TYPED_TEST_SUITE(PackedLockTest, BothPackedDecoders);

TYPED_TEST(PackedLockTest, DroppingTheLockClearsAllItLearntAndKeepsTheBytes) {
  auto decoder = make_locked_decoder<TypeParam>({});
  decoder.pending = {1, 2, 3};
  decoder.bit_offset = 5;
  decoder.packed_last_ps = {1, 2, 3, 4};
  decoder.packed_has_time = {true, true, true, true};
  decoder.packed_overflow = {1, 2, 3, 4};
  decoder.packed_last_delta = {1, 2, 3, 4};
  decoder.packed_last_emitted_ps = {1, 2, 3, 4};
  decoder.packed_emitted = {true, true, true, true};
  decoder.sync_chunks_left = 2;
  decoder.sync_channel = 3;
  decoder.sync_value = 99;
  decoder.sync_value_bits = 16;
  decoder.pending_sync_channel = 1;
  decoder.pending_sync_base_ps = 77;
  decoder.debug_lines = 12;
  decoder.drop_packed_lock();
  expect_unlocked_state(decoder);
  EXPECT_EQ(decoder.pending, (Bytes{1, 2, 3}));
  EXPECT_EQ(decoder.packed_shift, 3);
  EXPECT_EQ(decoder.debug_lines, 12U);
}

TYPED_TEST(PackedLockTest, InactiveChannelCostsTheLockAndReturnsTheTagsBeforeIt) {
  auto decoder = make_locked_decoder<TypeParam>({.mask = 0xB});
  decoder.packed_has_time[3] = true;
  const Fed fed = feed(
      decoder, PackedStreamBuilder(16).tag(3, 1).tag(3, 2).tag(2, 9).tag(3, 3).tag(3, 4).bytes());
  EXPECT_EQ(fed.tags, (Tags{{3, 8}, {3, 24}}));
  EXPECT_EQ(fed.lines,
            (Lines{"packed-decoder: drop inactive ch=2 active_mask=0xb record=2 records=5"}));
  expect_unlocked_state(decoder);
  EXPECT_EQ(decoder.pending.size(), 5U);  // 12 bytes less the 7 whole ones of 57 bits
}

TYPED_TEST(PackedLockTest, DropConsumesFromTheBitOffsetOn) {
  auto decoder = make_locked_decoder<TypeParam>({.mask = 1});
  decoder.bit_offset = 7;
  decoder.pending = PackedStreamBuilder(16).raw_bits(0, 7).tag(1, 0).bytes();  // 26 bits
  decoder.pending.push_back(0x5A);
  feed(decoder, {});
  EXPECT_EQ(decoder.pending.size(), 2U);
  EXPECT_EQ(decoder.pending.back(), 0x5A);
  EXPECT_EQ(decoder.bit_offset, 0U);
}

TYPED_TEST(PackedLockTest, OnlyTheLowFourMaskBitsNameChannels) {
  auto decoder = make_locked_decoder<TypeParam>({.mask = 0xF4, .bits = 5});
  EXPECT_EQ(feed(decoder, PackedStreamBuilder(5).tag(2, 0).tag(0, 0).bytes()).lines,
            (Lines{"packed-decoder: drop inactive ch=0 active_mask=0x4 record=1 records=2"}));
  auto none = make_locked_decoder<TypeParam>({.mask = 0xF0, .bits = 5});
  EXPECT_EQ(feed(none, PackedStreamBuilder(5).tag(3, 0).bytes()).lines,
            (Lines{"packed-decoder: drop inactive ch=3 active_mask=0x0 record=0 records=1"}));
}

TYPED_TEST(PackedLockTest, ZeroMaskMeansAllChannels) {
  auto decoder = make_locked_decoder<TypeParam>({.mask = 0, .bits = 5});
  decoder.packed_has_time = {true, true, true, true};
  const Fed fed =
      feed(decoder, PackedStreamBuilder(5).tag(0, 1).tag(1, 1).tag(2, 1).tag(3, 1).bytes());
  EXPECT_EQ(fed.tags, (Tags{{0, 8}, {1, 8}, {2, 8}, {3, 8}}));
  EXPECT_TRUE(decoder.packed_locked);
}

TYPED_TEST(PackedLockTest, RecordOfAnotherChannelInsideASyncCostsTheLock) {
  auto decoder = make_locked_decoder<TypeParam>({.bits = 13});
  const Fed first =
      feed(decoder, PackedStreamBuilder(13).sync_start(0).record(0, 0, 1).record(1, 0, 1).bytes());
  EXPECT_EQ(first.lines, (Lines{"packed-decoder: drop sync channel mismatch ch=1 expected=0 "
                                "record=2 chunks_left=3"}));
  expect_unlocked_state(decoder);
  EXPECT_TRUE(decoder.pending.empty());
}

TYPED_TEST(PackedLockTest, OverflowInsideASyncCostsTheLock) {
  for (const unsigned payload : {5U, 0x1FFFU}) {  // a sync start is no better
    auto decoder = make_locked_decoder<TypeParam>({.bits = 13});
    decoder.packed_has_time[2] = true;
    const Fed fed = feed(
        decoder,
        PackedStreamBuilder(13).tag(2, 1).sync_start(2).overflow(2, payload).tag(2, 1).bytes());
    EXPECT_EQ(fed.tags, (Tags{{2, 8}}));
    EXPECT_EQ(fed.lines, (Lines{"packed-decoder: drop ovf in sync ch=2 record=2 chunks_left=4"}));
    EXPECT_EQ(decoder.pending.size(), 2U);
    expect_unlocked_state(decoder);
  }
}

TYPED_TEST(PackedLockTest, InsideASyncInactivityIsJudgedBeforeChannelAndChannelBeforeFlag) {
  auto inactive = make_locked_decoder<TypeParam>({.mask = 3, .bits = 13});
  EXPECT_EQ(feed(inactive, PackedStreamBuilder(13).sync_start(0).overflow(2, 1).bytes()).lines,
            (Lines{"packed-decoder: drop inactive ch=2 active_mask=0x3 record=1 records=2"}));
  auto other = make_locked_decoder<TypeParam>({.mask = 3, .bits = 13});
  EXPECT_EQ(feed(other, PackedStreamBuilder(13).sync_start(0).overflow(1, 1).bytes()).lines,
            (Lines{"packed-decoder: drop sync channel mismatch ch=1 expected=0 record=1 "
                   "chunks_left=4"}));
}

TYPED_TEST(PackedLockTest, NextCallAfterADropSearchesTheRemainingBytes) {
  auto decoder = make_locked_decoder<TypeParam>({.mask = 1});
  const Fed dropped = feed(decoder, PackedStreamBuilder(16)
                                        .synced_tag(0, 100, 1)
                                        .tag(3, 0)
                                        .synced_tag(0, 200, 2)
                                        .tag(0, 3)
                                        .bytes());
  EXPECT_EQ(dropped.tags, (Tags{{0, 808}}));
  EXPECT_EQ(dropped.lines,
            (Lines{"packed-decoder: drop inactive ch=3 active_mask=0x1 record=5 records=12"}));
  // Six of twelve records, 114 of 228 bits: the next record is at bit 2 of byte 14 of 29.
  EXPECT_EQ(decoder.pending.size(), 15U);
  const Fed found = feed(decoder, {});
  EXPECT_EQ(found.tags, (Tags{{0, 1616}, {0, 1640}}));
  EXPECT_EQ(found.lines,
            (Lines{"packed-decoder: locked bits=16 drop_bytes=0 bit_offset=2 raw_bytes=15"}));
  EXPECT_TRUE(decoder.packed_locked);
  EXPECT_EQ(decoder.bit_offset, 4U);  // 2 + 114 bits: 14 bytes and 4 bits
  EXPECT_EQ(decoder.pending.size(), 1U);
}

TYPED_TEST(PackedLockTest, LockIsTakenBehindTheJunk) {
  auto decoder = make_packed_decoder<TypeParam>({.mode = internal_mode});
  PackedStreamBuilder builder(16);
  builder.raw_bits(0xFFFFFF, 24);
  for (unsigned ch = 0; ch < 4; ++ch) {
    builder.synced_tag(ch, 1000, ch);
  }
  const Fed fed = feed(decoder, builder.bytes());  // 24 + 20 * 19 bits
  EXPECT_EQ(fed.tags, (Tags{{0, 8000}, {1, 8008}, {2, 8016}, {3, 8024}}));
  EXPECT_EQ(fed.lines,
            (Lines{"packed-decoder: locked bits=16 drop_bytes=3 bit_offset=0 raw_bytes=48"}));
}

// Junk longer than any start that is tried: it ends with a sync start, so that
// the first true record resets the search.
TYPED_TEST(PackedLockTest, LockLandsBehindTheLastResetOfTheJunk) {
  auto decoder = make_packed_decoder<TypeParam>({});
  PackedStreamBuilder builder(16);
  builder.tags(0, 40, 0).sync_start(3);  // 779 bits
  for (unsigned round = 0; round < 2; ++round) {
    for (unsigned ch = 0; ch < 4; ++ch) {
      builder.synced_tag(ch, 1000 * (round + 1), 0);
    }
  }
  const Fed fed = feed(decoder, builder.bytes());  // 81 * 19 = 1539 bits
  // Record 41 resets, so record 42 at bit 798 is the first one.
  EXPECT_EQ(fed.lines,
            (Lines{"packed-decoder: locked bits=16 drop_bytes=99 bit_offset=6 raw_bytes=94"}));
  EXPECT_EQ(
      fed.tags,
      (Tags{{1, 8000}, {2, 8000}, {3, 8000}, {0, 16000}, {1, 16000}, {2, 16000}, {3, 16000}}));
}

TYPED_TEST(PackedLockTest, LockSurvivesACallWithoutAWholeRecord) {
  auto decoder = make_packed_decoder<TypeParam>({.mask = 1});
  Bytes bytes = PackedStreamBuilder(16).synced_tag(0, 7, 0).tag(0, 2).bytes();  // 114 bits
  const std::uint8_t last = bytes.back();
  bytes.pop_back();
  EXPECT_EQ(feed(decoder, bytes).tags, (Tags{{0, 56}}));
  EXPECT_TRUE(decoder.packed_locked);
  EXPECT_EQ(decoder.pending.size(), 3U);  // bit 95 is in byte 11 of 14
  EXPECT_EQ(decoder.bit_offset, 7U);
  EXPECT_EQ(feed(decoder, {}).lines, Lines{});
  EXPECT_EQ(feed(decoder, {last}).tags, (Tags{{0, 72}}));
}

// No seven-bit record of these bytes is a sync start: that takes eight ones in
// a row, and every byte begins with a zero.
Bytes bytes_without_sync(std::size_t count) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i) {
    bytes[i] = static_cast<std::uint8_t>(i * 37 % 128);
  }
  return bytes;
}

TYPED_TEST(PackedLockTest, MissingAlignmentIsReportedAboveFourThousandAndNinetyFiveBytes) {
  auto decoder = make_packed_decoder<TypeParam>({.mask = 1, .bits = 7});
  EXPECT_EQ(feed(decoder, bytes_without_sync(4095)).lines, Lines{});
  EXPECT_EQ(feed(decoder, {0}).lines,
            (Lines{"packed-decoder: no alignment bits=7 width=10 raw_bytes=4096"}));
  EXPECT_EQ(decoder.pending.size(), 4096U);
  EXPECT_FALSE(decoder.packed_locked);
}

TYPED_TEST(PackedLockTest, MoreThanSixtyFourKibibytesWithoutAlignmentAreCutToTheLastFour) {
  auto decoder = make_packed_decoder<TypeParam>({.mask = 1, .bits = 7});
  const Bytes bytes = bytes_without_sync(65537);
  const Bytes most(bytes.begin(), bytes.end() - 1);
  EXPECT_EQ(feed(decoder, most).lines,
            (Lines{"packed-decoder: no alignment bits=7 width=10 raw_bytes=65536"}));
  EXPECT_EQ(decoder.pending.size(), 65536U);
  EXPECT_EQ(feed(decoder, {bytes.back()}).lines,
            (Lines{"packed-decoder: no alignment bits=7 width=10 raw_bytes=65537"}));
  EXPECT_EQ(decoder.pending, Bytes(bytes.end() - 4096, bytes.end()));
  EXPECT_EQ(decoder.bit_offset, 0U);
}

struct Batch {
  PackedStream stream;
  std::array<std::size_t, 4> counts;
};

// A locked decoder that has been fed a batch of tags, channel by channel.
template <typename Decoder>
struct BatchRun {
  explicit BatchRun(const Batch& batch, unsigned overflows = 0)
      : decoder(make_locked_decoder<Decoder>(batch.stream)) {
    decoder.packed_has_time = {true, true, true, true};
    PackedStreamBuilder builder(13);  // two bytes per record
    for (unsigned ch = 0; ch < 4; ++ch) {
      builder.tags(ch, batch.counts[ch], 1);
    }
    for (unsigned i = 0; i < overflows; ++i) {
      builder.overflow(0, 0);
    }
    Bytes bytes = builder.bytes();
    bytes.push_back(0xEE);
    fed = feed(decoder, bytes);
  }

  Decoder decoder;
  Fed fed;
};

template <typename Decoder>
void expect_kept(const Batch& batch) {
  const BatchRun<Decoder> run(batch);
  const auto total = std::accumulate(batch.counts.begin(), batch.counts.end(), std::size_t{0});
  EXPECT_EQ(run.fed.tags.size(), total);
  EXPECT_EQ(run.fed.lines, Lines{});
  EXPECT_TRUE(run.decoder.packed_locked);
}

template <typename Decoder>
void expect_discarded(const Batch& batch, const std::string& line, unsigned overflows = 0) {
  const BatchRun<Decoder> run(batch, overflows);
  EXPECT_EQ(run.fed.tags, Tags{});
  EXPECT_EQ(run.fed.lines, (Lines{"packed-decoder: drop internal imbalanced lock " + line}));
  EXPECT_EQ(run.decoder.pending, Bytes{0xEE});
  expect_unlocked_state(run.decoder);
}

constexpr PackedStream internal_all = {.mode = internal_mode, .mask = 0, .bits = 13};
constexpr PackedStream internal_two = {.mode = internal_mode, .mask = 3, .bits = 13};
constexpr PackedStream internal_one = {.mode = internal_mode, .mask = 1, .bits = 13};
constexpr PackedStream external_all = {.mode = external_mode, .mask = 0, .bits = 13};

TYPED_TEST(PackedLockTest, ImbalancedInternalBatchIsDiscardedWhole) {
  expect_discarded<TypeParam>({internal_all, {4000, 0, 500, 500}},
                              "min=0 max=4000 total=5000 records=5000");
  expect_discarded<TypeParam>({internal_all, {4000, 0, 500, 500}},
                              "min=0 max=4000 total=5000 records=5003", 3);
}

TYPED_TEST(PackedLockTest, BalanceIsJudgedAboveFourThousandAndNinetyFiveTags) {
  expect_kept<TypeParam>({internal_two, {4095, 0, 0, 0}});
  expect_discarded<TypeParam>({internal_two, {4096, 0, 0, 0}},
                              "min=0 max=4096 total=4096 records=4096");
  expect_kept<TypeParam>({internal_two, {4000, 95, 0, 0}});
  expect_discarded<TypeParam>({internal_two, {4000, 96, 0, 0}},
                              "min=96 max=4000 total=4096 records=4096");
}

TYPED_TEST(PackedLockTest, EightfoldCountIsBalancedAndOneMoreIsNot) {
  expect_kept<TypeParam>({internal_two, {512, 4096, 0, 0}});
  expect_discarded<TypeParam>({internal_two, {512, 4097, 0, 0}},
                              "min=512 max=4097 total=4609 records=4609");
  expect_discarded<TypeParam>({internal_two, {511, 4096, 0, 0}},
                              "min=511 max=4096 total=4607 records=4607");
}

TYPED_TEST(PackedLockTest, BalanceIsOfActiveChannelsInInternalModeOnly) {
  expect_kept<TypeParam>({internal_two, {2500, 2500, 0, 0}});
  expect_kept<TypeParam>({internal_one, {5000, 0, 0, 0}});
  expect_kept<TypeParam>({external_all, {4000, 0, 500, 500}});
}

TYPED_TEST(PackedLockTest, BalanceIsJudgedCallByCall) {
  BatchRun<TypeParam> run({internal_two, {2500, 0, 0, 0}});
  EXPECT_EQ(run.fed.tags.size(), 2500U);
  run.decoder.pending.clear();
  EXPECT_EQ(feed(run.decoder, PackedStreamBuilder(13).tags(0, 2500, 1).bytes()).tags.size(), 2500U);
  EXPECT_TRUE(run.decoder.packed_locked);
}

TYPED_TEST(PackedLockTest, AnEarlierDropReturnsTheTagsOfAnImbalancedBatch) {
  const BatchRun<TypeParam> run({internal_two, {5000, 0, 1, 0}});
  EXPECT_EQ(run.fed.tags.size(), 5000U);
  EXPECT_EQ(run.fed.lines, (Lines{"packed-decoder: drop inactive ch=2 active_mask=0x3 record=5000 "
                                  "records=5001"}));
}

// Each record on an inactive channel costs the lock and writes one line.
template <typename Decoder>
Lines lines_of_a_drop(Decoder& decoder) {
  decoder.packed_locked = true;
  return feed_quietly(decoder, PackedStreamBuilder(5).tag(3, 0).bytes()).lines;
}

TYPED_TEST(PackedLockTest, NoLineIsWrittenOrCountedWithoutTheSwitch) {
  auto decoder = make_packed_decoder<TypeParam>({.mask = 1, .bits = 5});
  EXPECT_EQ(lines_of_a_drop(decoder), Lines{});
  EXPECT_EQ(decoder.debug_lines, 0U);
  EXPECT_FALSE(decoder.packed_locked);
}

TYPED_TEST(PackedLockTest, SwitchMayBeEmptyAndIsLookedUpForEveryLine) {
  const Lines line = {"packed-decoder: drop inactive ch=3 active_mask=0x1 record=0 records=1"};
  auto decoder = make_packed_decoder<TypeParam>({.mask = 1, .bits = 5});
  {
    const PackedDebugSwitch debug("");
    EXPECT_EQ(lines_of_a_drop(decoder), line);
  }
  EXPECT_EQ(lines_of_a_drop(decoder), Lines{});
  {
    const PackedDebugSwitch debug("0");
    EXPECT_EQ(lines_of_a_drop(decoder), line);
  }
  EXPECT_EQ(decoder.debug_lines, 2U);
}

TYPED_TEST(PackedLockTest, TwoHundredLinesAreWrittenPerDecoder) {
  const PackedDebugSwitch debug;
  auto decoder = make_packed_decoder<TypeParam>({.mask = 1, .bits = 5});
  for (std::uint64_t i = 1; i <= 200; ++i) {
    EXPECT_EQ(lines_of_a_drop(decoder).size(), 1U) << i;
    EXPECT_EQ(decoder.debug_lines, i);
  }
  EXPECT_EQ(lines_of_a_drop(decoder), Lines{});
  EXPECT_EQ(decoder.debug_lines, 200U);
  EXPECT_FALSE(decoder.packed_locked);
  auto another = make_packed_decoder<TypeParam>({.mask = 1, .bits = 5});
  EXPECT_EQ(lines_of_a_drop(another).size(), 1U);
}

}  // namespace
}  // namespace zelk::timing
