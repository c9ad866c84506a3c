// Records of a locked packed_delta stream: where their bits are, what a delta
// adds up to, and which deltas are corrected, turned round or refused.
#include "tests/timing/packed_decoder_harness.hpp"

namespace zelk::timing {
namespace {

using namespace test_support;

template <typename Decoder>
class PackedDeltaDecoderTest : public ::testing::Test {};
TYPED_TEST_SUITE(PackedDeltaDecoderTest, BothPackedDecoders);

TYPED_TEST(PackedDeltaDecoderTest, ZeroWidthAndQuantumTakeTheirDefaults) {
  const auto decoder = make_packed_decoder<TypeParam>({.bits = 0, .quantum_ps = 0});
  EXPECT_EQ(decoder.packed_bits, 16);
  EXPECT_EQ(decoder.packed_quantum_ps, 8);
  EXPECT_EQ(decoder.packed_shift, 3);
}

TYPED_TEST(PackedDeltaDecoderTest, ShiftIsTheLargestPowerOfTwoFactorOfTheQuantum) {
  const std::pair<unsigned, int> cases[] = {{1, 0},  {2, 1},     {3, 0},      {8, 3},    {12, 2},
                                            {16, 4}, {1024, 10}, {32768, 15}, {65535, 0}};
  for (const auto& [quantum, shift] : cases) {
    EXPECT_EQ(make_packed_decoder<TypeParam>({.quantum_ps = quantum}).packed_shift, shift)
        << quantum;
  }
}

TYPED_TEST(PackedDeltaDecoderTest, NewDecoderIsUnlockedAndWaitsForNoSync) {
  const auto decoder = make_packed_decoder<TypeParam>({});
  expect_unlocked_state(decoder);
  EXPECT_EQ(decoder.debug_lines, 0U);
}

TYPED_TEST(PackedDeltaDecoderTest, WidthOutsideOneToThirtyOneDecodesNothing) {
  for (const int bits : {0, 32, 33, 63, 64, 255}) {
    for (const bool locked : {false, true}) {
      auto decoder = make_packed_decoder<TypeParam>({});
      decoder.packed_bits = static_cast<std::uint8_t>(bits);
      decoder.packed_locked = locked;
      const Fed fed = feed(decoder, std::vector<std::uint8_t>(5000, 0xFF));
      EXPECT_TRUE(fed.tags.empty()) << bits;
      EXPECT_EQ(fed.lines, Lines{}) << bits;
      EXPECT_EQ(decoder.pending.size(), 5000U) << bits;
      EXPECT_EQ(decoder.bit_offset, 0U) << bits;
      EXPECT_EQ(decoder.packed_locked, locked) << bits;
    }
  }
}

// With five payload bits a record is one byte: channel 1 is 0x40, the flag 0x20.
TYPED_TEST(PackedDeltaDecoderTest, ChannelFlagAndPayloadFollowEachOtherFromTheTop) {
  auto decoder = make_locked_decoder<TypeParam>({.bits = 5, .quantum_ps = 1});
  const Fed fed = feed(decoder, {0x7F,  // sync start
                                 0x41, 0x40, 0x40, 0x40, 0x40, 0x40, 0x40, 0x40, 0x40,  // value 1
                                 0x43, 0x45, 0x62, 0x40});  // tags 3, 5, then 2 * 32 + 0
  EXPECT_EQ(fed.tags, (Tags{{1, 4}, {1, 9}, {1, 73}}));
  EXPECT_EQ(fed.lines, Lines{});
  EXPECT_TRUE(decoder.pending.empty());
}

TYPED_TEST(PackedDeltaDecoderTest, RecordsStartAtTheBitOffset) {
  for (int offset = 0; offset < 8; ++offset) {
    auto decoder = make_locked_decoder<TypeParam>({.bits = 16, .quantum_ps = 1});
    decoder.bit_offset = static_cast<std::uint64_t>(offset);
    PackedStreamBuilder builder(16);
    builder.raw_bits(0xFF, offset).synced_tag(3, 1000, 7).tag(3, 500);
    EXPECT_EQ(feed(decoder, builder.bytes()).tags, (Tags{{3, 1007}, {3, 1507}})) << offset;
    // Six records of 19 bits behind the offset.
    EXPECT_EQ(decoder.bit_offset, static_cast<std::uint64_t>((offset + 114) % 8)) << offset;
    EXPECT_EQ(decoder.pending.size(), decoder.bit_offset == 0 ? 0U : 1U) << offset;
  }
}

TYPED_TEST(PackedDeltaDecoderTest, LessThanOneRecordStaysUntouched) {
  auto decoder = make_locked_decoder<TypeParam>({});
  decoder.bit_offset = 6;
  EXPECT_TRUE(feed(decoder, {0, 0, 0}).tags.empty());  // 18 bits of 19
  EXPECT_EQ(decoder.pending.size(), 3U);
  EXPECT_EQ(decoder.bit_offset, 6U);
  feed(decoder, {0});  // 26 bits: one record, up to bit 25
  EXPECT_EQ(decoder.pending.size(), 1U);
  EXPECT_EQ(decoder.bit_offset, 1U);
  EXPECT_TRUE(decoder.packed_locked);
}

TYPED_TEST(PackedDeltaDecoderTest, BitOffsetBehindTheLastByteLeavesNothingToDecode) {
  auto decoder = make_locked_decoder<TypeParam>({});
  decoder.pending = {1};
  decoder.consume_packed_records(1);  // 19 bits of 8
  EXPECT_TRUE(feed(decoder, {}).tags.empty());
  EXPECT_EQ(decoder.bit_offset, 3U);
  EXPECT_TRUE(decoder.packed_locked);
}

TYPED_TEST(PackedDeltaDecoderTest, BitsOfExactlyOneRecordAreConsumed) {
  auto decoder = make_locked_decoder<TypeParam>({});
  decoder.bit_offset = 5;
  feed(decoder, {0, 0, 0});
  EXPECT_TRUE(decoder.pending.empty());
  EXPECT_EQ(decoder.bit_offset, 0U);
}

TYPED_TEST(PackedDeltaDecoderTest, ConsumingRecordsErasesWholeBytesAndKeepsTheBit) {
  auto decoder = make_locked_decoder<TypeParam>({});
  decoder.pending = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  decoder.bit_offset = 7;
  decoder.consume_packed_records(3);  // 7 + 57 bits
  EXPECT_EQ(decoder.pending, (std::vector<std::uint8_t>{9}));
  EXPECT_EQ(decoder.bit_offset, 0U);
  decoder.pending = {1, 2, 3};
  decoder.consume_packed_records(1);
  EXPECT_EQ(decoder.pending, (std::vector<std::uint8_t>{3}));
  EXPECT_EQ(decoder.bit_offset, 3U);
  decoder.consume_packed_records(0);
  EXPECT_EQ(decoder.bit_offset, 3U);
}

TYPED_TEST(PackedDeltaDecoderTest, TagBeforeAnySyncOnItsChannelIsSkippedWithoutAMessage) {
  auto decoder = make_locked_decoder<TypeParam>({.mode = internal_mode});
  const Fed fed =
      feed(decoder, PackedStreamBuilder(16).overflow(2, 5).tag(2, 1).synced_tag(0, 10, 0).bytes());
  EXPECT_EQ(fed.tags, (Tags{{0, 80}}));
  EXPECT_EQ(fed.lines, Lines{});
  EXPECT_EQ(decoder.packed_overflow[2], 0U);
  EXPECT_FALSE(decoder.packed_has_time[2]);
  EXPECT_FALSE(decoder.packed_emitted[2]);
  EXPECT_TRUE(decoder.packed_locked);
}

TYPED_TEST(PackedDeltaDecoderTest, DeltaCountsInPowerOfTwoTicks) {
  const std::pair<unsigned, std::int64_t> cases[] = {{1, 10}, {3, 10},  {2, 20},
                                                     {8, 80}, {12, 40}, {1024, 10240}};
  for (const auto& [quantum, expected_ps] : cases) {
    auto decoder = make_locked_decoder<TypeParam>({.quantum_ps = quantum});
    decoder.packed_has_time[1] = true;
    EXPECT_EQ(feed(decoder, PackedStreamBuilder(16).tag(1, 10).bytes()).tags,
              (Tags{{1, expected_ps}}));
    EXPECT_EQ(decoder.packed_last_delta[1], static_cast<std::uint64_t>(expected_ps));
    EXPECT_EQ(decoder.packed_last_ps[1], expected_ps);
    EXPECT_EQ(decoder.packed_last_emitted_ps[1], expected_ps);
    EXPECT_TRUE(decoder.packed_emitted[1]);
  }
}

TYPED_TEST(PackedDeltaDecoderTest, OverflowsAddUpPerChannelAcrossCallsUntilTheTag) {
  auto decoder = make_locked_decoder<TypeParam>({.bits = 13, .quantum_ps = 1});
  decoder.packed_has_time = {true, true, false, false};
  feed(decoder, PackedStreamBuilder(13).overflow(0, 3).overflow(1, 1).bytes());
  feed(decoder, PackedStreamBuilder(13).overflow(0, 4).bytes());
  EXPECT_EQ(decoder.packed_overflow[0], 7U);
  EXPECT_EQ(decoder.packed_overflow[1], 1U);
  EXPECT_EQ(feed(decoder, PackedStreamBuilder(13).tag(0, 9).tag(0, 1).tag(1, 2).bytes()).tags,
            (Tags{{0, 7 * 8192 + 9}, {0, 7 * 8192 + 10}, {1, 8194}}));
  EXPECT_EQ(decoder.packed_overflow[0], 0U);
}

TYPED_TEST(PackedDeltaDecoderTest, OverflowWithZeroPayloadAddsNothing) {
  auto decoder = make_locked_decoder<TypeParam>({.bits = 1, .quantum_ps = 1});
  decoder.packed_has_time[0] = true;
  EXPECT_EQ(feed(decoder, PackedStreamBuilder(1).overflow(0, 0).tag(0, 1).bytes()).tags,
            (Tags{{0, 1}}));
}

TYPED_TEST(PackedDeltaDecoderTest, SplittingCleanBytesDifferentlyGivesTheSameTags) {
  PackedStreamBuilder builder(11);
  builder.synced_tag(0, 5, 0).synced_tag(1, 5, 1);
  for (unsigned i = 0; i < 40; ++i) {
    builder.step(i % 2, 100 + 300 * i);
  }
  const auto bytes = builder.bytes();
  auto whole = make_locked_decoder<TypeParam>({.bits = 11});
  const Tags expected = feed(whole, bytes).tags;
  EXPECT_EQ(expected.size(), 42U);
  auto bytewise = make_locked_decoder<TypeParam>({.bits = 11});
  Tags tags;
  for (const std::uint8_t byte : bytes) {
    const Tags part = feed(bytewise, {byte}).tags;
    tags.insert(tags.end(), part.begin(), part.end());
  }
  EXPECT_EQ(tags, expected);
}

TYPED_TEST(PackedDeltaDecoderTest, NoBytesDecodeWhatIsPending) {
  auto decoder = make_locked_decoder<TypeParam>({.bits = 13, .quantum_ps = 1});
  decoder.packed_has_time[0] = true;
  decoder.pending = PackedStreamBuilder(13).tag(0, 6).bytes();
  EXPECT_EQ(decoder.feed(nullptr, 0), (Tags{{0, 6}}));
  decoder.pending = PackedStreamBuilder(13).tag(0, 6).bytes();
  EXPECT_EQ(decoder.feed_packed_delta(), (Tags{{0, 12}}));
}

}  // namespace
}  // namespace zelk::timing
