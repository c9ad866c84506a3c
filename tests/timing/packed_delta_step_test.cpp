// The step that a packed_delta delta stands for: small steps back, removal of
// the excess of a wrapped counter, and the largest step that is believed.
#include <algorithm>

#include "tests/timing/packed_decoder_harness.hpp"

namespace zelk::timing {
namespace {

using namespace test_support;

constexpr std::int64_t epoch = 14'315'125'997'568;
constexpr std::int64_t span_of_one = 2'199'023'255'552;      // of a 1 ps quantum
constexpr std::int64_t span_of_eight = 17'592'186'044'416;   // of an 8 ps quantum
constexpr std::int64_t excess_of_one = 1'078'036'791'296;    // seven spans less the epoch
constexpr std::int64_t excess_of_eight = 3'277'060'046'848;  // one span less the epoch
constexpr std::int64_t small = 10'000'000'000;
constexpr std::int64_t plausible = 1'000'000'000'000;

template <typename Decoder>
class PackedDeltaStepTest : public ::testing::Test {
 public:
  // Decodes one tag on channel 0 of a stream whose last time there is `prev`.
  Fed decode(StreamMode mode, unsigned quantum_ps, std::int64_t prev, std::int64_t delta_ps) {
    tested = make_locked_decoder<Decoder>({.mode = mode, .bits = 31, .quantum_ps = quantum_ps});
    tested.packed_has_time[0] = true;
    tested.packed_last_ps[0] = prev;
    const auto ticks = static_cast<std::uint64_t>(delta_ps) >> tested.packed_shift;
    tested.packed_overflow[0] = ticks >> 31;
    return feed(tested, PackedStreamBuilder(31).tag(0, ticks & 0x7FFFFFFF).bytes());
  }

  void expect_step(StreamMode mode, unsigned quantum_ps, std::int64_t prev, std::int64_t delta_ps,
                   std::int64_t step) {
    const Fed fed = decode(mode, quantum_ps, prev, delta_ps);
    EXPECT_EQ(fed.tags, (Tags{{0, prev + step}})) << quantum_ps << ' ' << prev << ' ' << delta_ps;
    EXPECT_EQ(fed.lines, Lines{});
    EXPECT_TRUE(tested.packed_locked);
    EXPECT_EQ(tested.packed_last_ps[0], prev + step);
    EXPECT_EQ(tested.packed_last_delta[0], static_cast<std::uint64_t>(step));
  }

  void expect_refused(unsigned quantum_ps, std::int64_t prev, std::int64_t delta_ps,
                      const std::string& line) {
    const Fed fed = decode(internal_mode, quantum_ps, prev, delta_ps);
    EXPECT_EQ(fed.tags, Tags{});
    EXPECT_EQ(fed.lines, (Lines{"packed-decoder: drop implausible delta " + line}));
    expect_unlocked_state(tested);
  }

  Decoder tested = make_packed_decoder<Decoder>({});
};
TYPED_TEST_SUITE(PackedDeltaStepTest, BothPackedDecoders);

TYPED_TEST(PackedDeltaStepTest, DeltaUpToAMicrosecondBelowTheSpanIsAStepBack) {
  for (const StreamMode mode : {internal_mode, external_mode}) {
    this->expect_step(mode, 1, 5'000'000, span_of_one - 1'000'000, -1'000'000);
    this->expect_step(mode, 1, 5'000'000, span_of_one - 1, -1);
    this->expect_step(mode, 1, 5'000'000, span_of_one, 0);
    this->expect_step(mode, 1, 100, span_of_one - 1'000'000, -1'000'000);  // below 0
    this->expect_step(mode, 8, 5'000'000, span_of_eight - 1'000'000, -1'000'000);
    this->expect_step(mode, 1024, 5'000'000, (std::int64_t{1} << 51) - 999'424, -999'424);
  }
}

TYPED_TEST(PackedDeltaStepTest, OneTickMoreThanAMicrosecondBelowTheSpanIsAStepForward) {
  this->expect_step(external_mode, 1, 5'000'000, 2'199'022'255'551, 2'199'022'255'551);
  this->expect_step(external_mode, 8, 0, span_of_eight - 1'000'008, 17'592'185'044'408);
  this->expect_step(external_mode, 1024, 0, (std::int64_t{1} << 51) - 1'000'448,
                    2'251'799'812'684'800);
  this->expect_refused(1, 5'000'000, 2'199'022'255'551,
                       "ch=0 delta=2199022255551 prev=5000000 record=0");
}

TYPED_TEST(PackedDeltaStepTest, DeltaAboveTheSpanIsAStepForward) {
  this->expect_step(external_mode, 1, 0, span_of_one + 1, 2'199'023'255'553);
}

TYPED_TEST(PackedDeltaStepTest, DeltaAroundHalfTheSpanIsAStepForward) {
  this->expect_step(external_mode, 1, 0, span_of_one / 2, 1'099'511'627'776);
  this->expect_step(external_mode, 1, 0, span_of_one / 2 + 1, 1'099'511'627'777);
}

// Without an epoch boundary in reach only a small rest shows a wrap.
TYPED_TEST(PackedDeltaStepTest, ExcessIsRemovedWhenTheRestIsSmall) {
  const std::pair<unsigned, std::int64_t> cases[] = {{1, excess_of_one},
                                                     {2, excess_of_eight},
                                                     {4, excess_of_eight},
                                                     {8, excess_of_eight},
                                                     {16, 20'869'246'091'264},
                                                     {32, 56'053'618'180'096},
                                                     {1024, 2'237'484'687'687'680},
                                                     {32768, 72'043'278'911'930'368}};
  for (const auto& [quantum, excess] : cases) {
    const std::int64_t tick = quantum;
    const std::int64_t largest = small / tick * tick;
    this->expect_step(external_mode, quantum, 0, excess, excess);
    this->expect_step(external_mode, quantum, 0, excess + tick, tick);
    this->expect_step(external_mode, quantum, 0, excess + largest, largest);
    this->expect_step(external_mode, quantum, 0, excess + largest + tick, excess + largest + tick);
    this->expect_step(internal_mode, quantum, 0, excess + largest, largest);
  }
}

TYPED_TEST(PackedDeltaStepTest, ExcessIsRemovedWhenTheRestReachesTheEpochBoundary) {
  const std::int64_t rest = 20'000'000'000;
  this->expect_step(external_mode, 1, epoch - rest, excess_of_one + rest, rest);
  this->expect_step(external_mode, 1, 5 * epoch - rest, excess_of_one + rest, rest);
  this->expect_step(external_mode, 1, epoch - rest, excess_of_one + rest - 1,
                    excess_of_one + rest - 1);
  this->expect_step(external_mode, 1, epoch - rest - 1, excess_of_one + rest, excess_of_one + rest);
  this->expect_step(external_mode, 1, epoch + 5, excess_of_one + rest, excess_of_one + rest);
  // With an 8 ps quantum a rest of just below an epoch still reaches it.
  this->expect_step(external_mode, 8, 1'000'008, span_of_eight - 1'000'008, 14'315'124'997'560);
}

TYPED_TEST(PackedDeltaStepTest, NegativeTimeLiesAtTheStartOfItsEpoch) {
  // Taken as it is, -5 would be just below an epoch boundary.
  this->expect_step(external_mode, 1, -5, excess_of_one + 2 * small, excess_of_one + 2 * small);
  this->expect_step(external_mode, 1, -5, excess_of_one + small, small);
}

TYPED_TEST(PackedDeltaStepTest, InternalModeRefusesMoreThanASecond) {
  this->expect_step(internal_mode, 1, 0, plausible, plausible);
  this->expect_refused(1, 0, plausible + 1, "ch=0 delta=1000000000001 prev=0 record=0");
  this->expect_refused(1, -7, plausible + 1, "ch=0 delta=1000000000001 prev=-7 record=0");
  this->expect_refused(1, 0, excess_of_one, "ch=0 delta=1078036791296 prev=0 record=0");
  this->expect_refused(1, 0, excess_of_one + small + 1, "ch=0 delta=1088036791297 prev=0 record=0");
  this->expect_step(external_mode, 1, 0, plausible + 1, plausible + 1);
}

TYPED_TEST(PackedDeltaStepTest, InternalModeJudgesTheStepWithoutItsExcess) {
  this->expect_step(internal_mode, 1, epoch - plausible, excess_of_one + plausible, plausible);
  this->expect_refused(1, epoch - plausible, excess_of_one + plausible + 1,
                       "ch=0 delta=1000000000001 prev=13315125997568 record=0");
}

TYPED_TEST(PackedDeltaStepTest, DeltaOfAllBitsWrapsAround) {
  auto decoder = make_locked_decoder<TypeParam>({.bits = 31, .quantum_ps = 1});
  decoder.packed_has_time[0] = true;
  decoder.packed_last_ps[0] = 1000;
  decoder.packed_overflow[0] = 0x1FFFFFFFF;  // 33 bits above 31
  const Fed fed = feed(decoder, PackedStreamBuilder(31).tag(0, 0x7FFFFFFF).bytes());
  EXPECT_EQ(fed.tags, (Tags{{0, 1000 - 1 - excess_of_one}}));
}

TYPED_TEST(PackedDeltaStepTest, RefusedRecordReturnsTheTagsBeforeIt) {
  auto decoder =
      make_locked_decoder<TypeParam>({.mode = internal_mode, .bits = 31, .quantum_ps = 1});
  const Fed fed = feed(decoder, PackedStreamBuilder(31)
                                    .synced_tag(1, 100, 1)
                                    .tag(1, 20)
                                    .overflow(1, 1000)
                                    .tag(1, 0)
                                    .tag(1, 5)
                                    .bytes());
  EXPECT_EQ(fed.tags, (Tags{{1, 101}, {1, 121}}));
  EXPECT_EQ(fed.lines, (Lines{"packed-decoder: drop implausible delta ch=1 delta=2147483648000 "
                              "prev=121 record=6"}));
  expect_unlocked_state(decoder);
  // Seven records of 34 bits: 29 whole bytes of 34 (8 records, 272 bits) are gone.
  EXPECT_EQ(decoder.pending.size(), 5U);
}

}  // namespace
}  // namespace zelk::timing
