// Syncs of a locked packed_delta stream: how the chunks make a value, how the
// value is lifted next to the channel's last time, and which sync tags are
// believed.
#include "tests/timing/packed_decoder_harness.hpp"

namespace zelk::timing {
namespace {

using namespace test_support;

constexpr std::int64_t epoch = 14'315'125'997'568;
constexpr std::int64_t span_of_one = 2'199'023'255'552;    // of a 1 ps quantum
constexpr std::int64_t excess_of_one = 1'078'036'791'296;  // seven spans less the epoch
constexpr std::int64_t excess_of_two = 3'277'060'046'848;  // also of 4 and 8 ps
constexpr std::int64_t small = 10'000'000'000;

template <typename Decoder>
class PackedSyncTest : public ::testing::Test {};
TYPED_TEST_SUITE(PackedSyncTest, BothPackedDecoders);

TYPED_TEST(PackedSyncTest, ChunksAfterASyncStartCoverFortyOneBits) {
  const std::pair<unsigned, int> cases[] = {{1, 41}, {2, 21}, {8, 6},  {13, 4}, {14, 3},
                                            {16, 3}, {20, 3}, {21, 2}, {31, 2}};
  for (const auto& [bits, chunks] : cases) {
    auto decoder = make_locked_decoder<TypeParam>({.bits = bits});
    const int width = static_cast<int>(bits) + 3;
    const int filler = (8 - width % 8) % 8;  // so that no padding reads as a record
    decoder.bit_offset = static_cast<std::uint64_t>(filler);
    decoder.packed_overflow = {7, 7, 7, 7};
    PackedStreamBuilder builder(static_cast<int>(bits));
    feed(decoder, builder.raw_bits(0, filler).sync_start(2).bytes());
    EXPECT_EQ(decoder.sync_chunks_left, chunks) << bits;
    EXPECT_EQ(decoder.sync_channel, 2) << bits;
    EXPECT_EQ(decoder.pending_sync_channel, -1) << bits;
    EXPECT_EQ(decoder.packed_overflow, (std::array<std::uint64_t, 4>{7, 7, 0, 7})) << bits;
  }
}

TYPED_TEST(PackedSyncTest, ChunksAreJoinedLowestFirst) {
  auto decoder = make_locked_decoder<TypeParam>({.bits = 13, .quantum_ps = 1});
  // 0x1555 in the second of four chunks of 13 bits, 1 in the last.
  feed(decoder, PackedStreamBuilder(13).sync_start(1).record(1, 0, 3).record(1, 0, 0x1555).bytes());
  EXPECT_EQ(decoder.sync_value, 3U + 0x1555U * 8192U);
  EXPECT_EQ(decoder.sync_value_bits, 26);
  EXPECT_EQ(decoder.sync_chunks_left, 2);
  feed(decoder, PackedStreamBuilder(13).record(1, 0, 0).record(1, 0, 1).bytes());
  EXPECT_EQ(decoder.sync_value, 0U);
  EXPECT_EQ(decoder.sync_value_bits, 0);
  EXPECT_EQ(decoder.sync_chunks_left, 0);
  EXPECT_EQ(decoder.pending_sync_channel, 1);
  EXPECT_EQ(decoder.pending_sync_base_ps, 549'755'813'888U + 44'736'512U + 3U);
}

TYPED_TEST(PackedSyncTest, FourthRecordAfterASixteenBitSyncStartIsANormalRecord) {
  auto decoder = make_locked_decoder<TypeParam>({.bits = 16, .quantum_ps = 1});
  const Fed fed = feed(decoder, PackedStreamBuilder(16)
                                    .sync_start(0)
                                    .record(0, 0, 0x6789)
                                    .record(0, 0, 0x2345)
                                    .record(0, 0, 0x1)
                                    .overflow(0, 2)  // would cost the lock inside the sync
                                    .tag(0, 1)
                                    .bytes());
  EXPECT_EQ(fed.tags, (Tags{{0, 0x123456789 + 0x20001}}));
  EXPECT_EQ(fed.lines, Lines{});
}

TYPED_TEST(PackedSyncTest, EveryWidthCarriesTheWholeValue) {
  for (unsigned bits = 1; bits <= 31; ++bits) {
    auto decoder = make_locked_decoder<TypeParam>({.bits = bits, .quantum_ps = 1});
    const int count = static_cast<int>(bits);
    const Fed fed =
        feed(decoder, PackedStreamBuilder(count).synced_tag(3, 0x15A5A5A5A5A, 1).bytes());
    ASSERT_EQ(fed.tags.size(), 1U) << bits;
    EXPECT_EQ(fed.tags[0], (TimeTag{3, 0x15A5A5A5A5B})) << bits;
  }
}

TYPED_TEST(PackedSyncTest, ValueIsCutToFortyOneBits) {
  auto decoder = make_locked_decoder<TypeParam>({.bits = 16, .quantum_ps = 8});
  feed(decoder, PackedStreamBuilder(16)
                    .sync_start(0)
                    .record(0, 0, 5)
                    .record(0, 0, 0)
                    .record(0, 0, 0xFE01)  // nine bits count: 0x001
                    .bytes());
  EXPECT_EQ(decoder.pending_sync_base_ps, ((std::uint64_t{1} << 32) + 5) * 8);
}

// The decoder after a whole sync with `ticks` on channel 0, before its tag.
template <typename Decoder, typename Prepare>
std::uint64_t base_after_sync(unsigned quantum_ps, std::uint64_t ticks, Prepare prepare) {
  auto decoder = make_locked_decoder<Decoder>({.bits = 31, .quantum_ps = quantum_ps});
  prepare(decoder);
  const Fed fed = feed(decoder, PackedStreamBuilder(31).sync(0, ticks).bytes());
  EXPECT_EQ(fed.lines, Lines{});
  EXPECT_EQ(decoder.pending_sync_channel, 0);
  return decoder.pending_sync_base_ps;
}

template <typename Decoder>
std::uint64_t base_near(unsigned quantum_ps, std::int64_t last_ps, std::int64_t value_ps) {
  const auto ticks = static_cast<std::uint64_t>(value_ps) / quantum_ps;
  return base_after_sync<Decoder>(quantum_ps, ticks, [&](Decoder& decoder) {
    decoder.packed_has_time[0] = true;
    decoder.packed_last_ps[0] = last_ps;
  });
}

TYPED_TEST(PackedSyncTest, ValueIsReducedModuloSpanOrEpochWhicheverIsShorter) {
  struct Case {
    unsigned quantum_ps;
    std::uint64_t ticks;
    std::uint64_t base_ps;
  };
  const std::uint64_t most = (std::uint64_t{1} << 41) - 1;
  const Case cases[] = {{1, most, 2'199'023'255'551},  {2, most, 4'398'046'511'102},
                        {4, most, 8'796'093'022'204},  {8, most, 3'277'060'046'840},
                        {16, most, 6'554'120'093'680}, {1024, most, 4'325'032'066'048},
                        {8, 1'789'390'749'696, 0},     {8, 1'789'390'749'695, 14'315'125'997'560},
                        {3, most, 2'199'023'255'551},  {12, most, 8'796'093'022'204}};
  for (const Case& c : cases) {
    EXPECT_EQ(base_after_sync<TypeParam>(c.quantum_ps, c.ticks, [](TypeParam&) {}), c.base_ps)
        << c.quantum_ps;
  }
}

TYPED_TEST(PackedSyncTest, ValueIsLiftedIntoThePeriodOfTheLastTime) {
  EXPECT_EQ(base_near<TypeParam>(1, 5 * span_of_one + 100, 50), 10'995'116'277'810U);
  EXPECT_EQ(base_near<TypeParam>(8, epoch + 8, 0), 14'315'125'997'568U);
  EXPECT_EQ(base_near<TypeParam>(8, 3 * epoch + 8, 16), 42'945'377'992'720U);
}

TYPED_TEST(PackedSyncTest, ValueMoreThanHalfAPeriodBehindIsLiftedOnce) {
  const std::int64_t last = 5 * span_of_one + span_of_one / 2 + 10;
  EXPECT_EQ(base_near<TypeParam>(1, last, 10), 10'995'116'277'770U);  // exactly half a period
  EXPECT_EQ(base_near<TypeParam>(1, last, 9), 13'194'139'533'321U);
  EXPECT_EQ(base_near<TypeParam>(8, epoch / 2, 0), 0U);
  EXPECT_EQ(base_near<TypeParam>(8, epoch / 2 + 8, 0), 14'315'125'997'568U);
}

TYPED_TEST(PackedSyncTest, NegativeTimeCountsAsZero) {
  EXPECT_EQ(base_near<TypeParam>(1, -1, 5), 5U);
  EXPECT_EQ(base_near<TypeParam>(1, INT64_MIN, excess_of_one + 5), 5U);
}

TYPED_TEST(PackedSyncTest, ExcessIsRemovedWhenTheRestIsSmall) {
  const auto g = static_cast<std::uint64_t>(excess_of_one);
  EXPECT_EQ(base_near<TypeParam>(1, 0, excess_of_one), g);
  EXPECT_EQ(base_near<TypeParam>(1, 0, excess_of_one + 1), 1U);
  EXPECT_EQ(base_near<TypeParam>(1, 0, excess_of_one + small), 10'000'000'000U);
  EXPECT_EQ(base_near<TypeParam>(1, 0, excess_of_one + small + 1), g + 10'000'000'001U);
  EXPECT_EQ(base_near<TypeParam>(2, 0, excess_of_two + 2), 2U);
  EXPECT_EQ(base_near<TypeParam>(4, 0, excess_of_two + 4), 4U);
}

TYPED_TEST(PackedSyncTest, SpanLongerThanTheEpochHasNoExcess) {
  EXPECT_EQ(base_near<TypeParam>(8, 0, excess_of_two + 8), 3'277'060'046'856U);
  EXPECT_EQ(base_near<TypeParam>(16, 0, epoch - 16), 14'315'125'997'552U);
}

TYPED_TEST(PackedSyncTest, ExcessIsRemovedWhenTheRestReachesTheEpochBoundary) {
  const std::int64_t last = epoch - 20'000'000'000;
  // Seven spans lie one epoch and the excess above 0, so the rest is 20 ms.
  EXPECT_EQ(base_near<TypeParam>(1, last, 0), 14'315'125'997'568U);
  EXPECT_EQ(base_near<TypeParam>(1, last, span_of_one - 1), 15'393'162'788'863U);
  // Eight spans lie in the second epoch, far from its end.
  EXPECT_EQ(base_near<TypeParam>(1, 8 * span_of_one, excess_of_one + 20'000'000'000),
            18'690'222'835'712U);
}

TYPED_TEST(PackedSyncTest, LastTimeIsPreferredToTheLastEmittedTime) {
  const auto emitted_only = [](TypeParam& decoder) {
    decoder.packed_emitted[0] = true;
    decoder.packed_last_emitted_ps[0] = 5 * span_of_one + 100;
    decoder.packed_last_ps[0] = 2 * span_of_one;
  };
  EXPECT_EQ(base_after_sync<TypeParam>(1, 50, emitted_only), 10'995'116'277'810U);
  const auto both = [&](TypeParam& decoder) {
    emitted_only(decoder);
    decoder.packed_has_time[0] = true;
  };
  EXPECT_EQ(base_after_sync<TypeParam>(1, 50, both), 4'398'046'511'154U);
  const auto other_channel = [](TypeParam& decoder) {
    decoder.packed_has_time[1] = true;
    decoder.packed_last_ps[1] = 5 * span_of_one;
  };
  EXPECT_EQ(base_after_sync<TypeParam>(1, 50, other_channel), 50U);
}

TYPED_TEST(PackedSyncTest, FirstTagAfterTheSyncTakesItsValueAndLaterTagsAdd) {
  auto decoder = make_locked_decoder<TypeParam>({});
  const Fed fed = feed(decoder, PackedStreamBuilder(16).synced_tag(0, 1000, 5).tag(0, 2).bytes());
  EXPECT_EQ(fed.tags, (Tags{{0, 8040}, {0, 8056}}));
  EXPECT_EQ(decoder.pending_sync_channel, -1);
  EXPECT_EQ(decoder.pending_sync_base_ps, 0U);
  EXPECT_EQ(decoder.packed_last_delta[0], 16U);
  EXPECT_EQ(decoder.packed_last_emitted_ps[0], 8056);
}

TYPED_TEST(PackedSyncTest, OverflowBetweenSyncAndTagCountsAndOneBeforeTheSyncDoesNot) {
  auto decoder = make_locked_decoder<TypeParam>({.quantum_ps = 1});
  const Fed fed =
      feed(decoder,
           PackedStreamBuilder(16).overflow(0, 9).sync(0, 1000).overflow(0, 1).tag(0, 5).bytes());
  EXPECT_EQ(fed.tags, (Tags{{0, 66541}}));
}

TYPED_TEST(PackedSyncTest, PendingSyncWaitsForATagOfItsChannel) {
  auto decoder = make_locked_decoder<TypeParam>({.quantum_ps = 1});
  decoder.packed_has_time[1] = true;
  const Fed fed =
      feed(decoder, PackedStreamBuilder(16).sync(0, 1000).tag(1, 7).tag(2, 3).tag(0, 5).bytes());
  EXPECT_EQ(fed.tags, (Tags{{1, 7}, {0, 1005}}));
}

TYPED_TEST(PackedSyncTest, LaterSyncReplacesAPendingOne) {
  auto decoder = make_locked_decoder<TypeParam>({.quantum_ps = 1});
  const Fed fed =
      feed(decoder, PackedStreamBuilder(16).sync(0, 100).sync(1, 200).tag(0, 1).tag(1, 2).bytes());
  EXPECT_EQ(fed.tags, (Tags{{1, 202}}));
}

// A tag on channel 2 that brings it from `prev` to `next` through a sync.
template <typename Decoder>
class PackedSyncTagTest : public ::testing::Test {
 public:
  Fed decode(StreamMode mode, std::int64_t prev, std::int64_t next) {
    tested = make_locked_decoder<Decoder>({.mode = mode, .quantum_ps = 1});
    tested.packed_has_time[2] = true;
    tested.packed_last_ps[2] = prev;
    tested.packed_last_delta[2] = 77;
    tested.pending_sync_channel = 2;
    tested.pending_sync_base_ps = static_cast<std::uint64_t>(next) - 3;
    return feed(tested, PackedStreamBuilder(16).tag(2, 3).bytes());
  }

  void expect_taken(StreamMode mode, std::int64_t prev, std::int64_t next,
                    std::uint64_t last_delta) {
    const Fed fed = decode(mode, prev, next);
    EXPECT_EQ(fed.tags, (Tags{{2, next}}));
    EXPECT_EQ(fed.lines, Lines{});
    EXPECT_TRUE(tested.packed_locked);
    EXPECT_EQ(tested.packed_last_ps[2], next);
    EXPECT_EQ(tested.packed_last_emitted_ps[2], next);
    EXPECT_EQ(tested.packed_last_delta[2], last_delta);
    EXPECT_EQ(tested.pending_sync_channel, -1);
    EXPECT_EQ(tested.pending_sync_base_ps, 0U);
  }

  void expect_refused(StreamMode mode, std::int64_t prev, std::int64_t next,
                      const std::string& line) {
    const Fed fed = decode(mode, prev, next);
    EXPECT_EQ(fed.tags, Tags{});
    EXPECT_EQ(fed.lines, (Lines{"packed-decoder: drop " + line}));
    expect_unlocked_state(tested);
  }

  Decoder tested = make_packed_decoder<Decoder>({});
};
TYPED_TEST_SUITE(PackedSyncTagTest, BothPackedDecoders);

TYPED_TEST(PackedSyncTagTest, StepForwardIsKeptAsTheLastDelta) {
  for (const StreamMode mode : {internal_mode, external_mode}) {
    this->expect_taken(mode, 500, 501, 1);
    this->expect_taken(mode, -5, 5, 10);
    this->expect_taken(mode, 500, 1'000'000'000'500, 1'000'000'000'000);
  }
}

TYPED_TEST(PackedSyncTagTest, InternalModeRefusesMoreThanASecondForward) {
  this->expect_refused(internal_mode, 500, 1'000'000'000'501,
                       "implausible sync delta ch=2 delta=1000000000001 next=1000000000501 "
                       "prev=500 record=0");
  this->expect_taken(external_mode, 500, 1'000'000'000'501, 1'000'000'000'001);
}

TYPED_TEST(PackedSyncTagTest, SameTimeIsRefusedInEitherMode) {
  for (const StreamMode mode : {internal_mode, external_mode}) {
    this->expect_refused(mode, 500, 500,
                         "implausible sync delta ch=2 delta=0 next=500 prev=500 record=0");
  }
}

TYPED_TEST(PackedSyncTagTest, ExternalModeStepsBackUpToAMicrosecond) {
  for (const std::int64_t back : {1, 500'000, 1'000'000}) {
    this->expect_taken(external_mode, 3'000'000, 3'000'000 - back, 77);
  }
}

TYPED_TEST(PackedSyncTagTest, InternalModeRefusesEveryStepBack) {
  this->expect_refused(internal_mode, 3'000'000, 2'999'999,
                       "implausible sync delta ch=2 delta=-1 next=2999999 prev=3000000 record=0");
  this->expect_refused(
      internal_mode, 3'000'000, 2'000'000,
      "implausible sync delta ch=2 delta=-1000000 next=2000000 prev=3000000 record=0");
}

TYPED_TEST(PackedSyncTagTest, MoreThanAMicrosecondBackIsNonmonotonicInEitherMode) {
  for (const StreamMode mode : {internal_mode, external_mode}) {
    this->expect_refused(mode, 3'000'000, 1'999'999,
                         "nonmonotonic sync ch=2 next=1999999 prev=3000000 record=0");
    this->expect_refused(mode, 10, -2'000'000,
                         "nonmonotonic sync ch=2 next=-2000000 prev=10 record=0");
  }
}

TYPED_TEST(PackedSyncTagTest, HalfAMicrosecondBackDependsOnTheMode) {
  const auto bytes =
      PackedStreamBuilder(16).synced_tag(0, 2'000'000, 0).synced_tag(0, 1'500'000, 0).bytes();
  auto outside = make_locked_decoder<TypeParam>({.mode = external_mode, .quantum_ps = 1});
  const Fed accepted = feed(outside, bytes);
  EXPECT_EQ(accepted.tags, (Tags{{0, 2'000'000}, {0, 1'500'000}}));
  EXPECT_EQ(accepted.lines, Lines{});
  auto inside = make_locked_decoder<TypeParam>({.mode = internal_mode, .quantum_ps = 1});
  const Fed refused = feed(inside, bytes);
  EXPECT_EQ(refused.tags, (Tags{{0, 2'000'000}}));
  EXPECT_EQ(refused.lines, (Lines{"packed-decoder: drop implausible sync delta ch=0 delta=-500000 "
                                  "next=1500000 prev=2000000 record=9"}));
}

TYPED_TEST(PackedSyncTagTest, FirstSyncOfAChannelIsBelieved) {
  auto decoder = make_locked_decoder<TypeParam>({.mode = internal_mode, .quantum_ps = 1});
  const Fed fed =
      feed(decoder, PackedStreamBuilder(16).synced_tag(1, 2'000'000'000'000, 4).bytes());
  EXPECT_EQ(fed.tags, (Tags{{1, 2'000'000'000'004}}));
  EXPECT_EQ(decoder.packed_last_delta[1], 0U);
  EXPECT_TRUE(decoder.packed_has_time[1]);
}

}  // namespace
}  // namespace zelk::timing
