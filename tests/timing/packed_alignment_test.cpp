// The alignment search of packed_delta: which starts are tried, what a scan
// counts, and which candidate wins.
//
// Unless a test says otherwise payloads are 16 bits wide and small, so that a
// sync start's run of ones is found at its own position only: on any other
// grid of records it is cut in two, or the record behind it resets the scan.
#include "tests/timing/packed_decoder_harness.hpp"

namespace zelk::timing {
namespace {

using namespace test_support;

using Bytes = std::vector<std::uint8_t>;

struct Found {
  std::uint64_t drop_bytes = 0;
  std::uint64_t bit_offset = 0;
  bool found = false;
  Lines lines;

  friend bool operator==(const Found&, const Found&) = default;
  friend void PrintTo(const Found& f, std::ostream* out) {
    *out << "drop_bytes " << f.drop_bytes << " bit_offset " << f.bit_offset << " found " << f.found
         << " lines " << ::testing::PrintToString(f.lines);
  }
};

Found at(std::uint64_t position) {
  return {.drop_bytes = position / 8, .bit_offset = position % 8, .found = true, .lines = {}};
}

const Found nowhere;

template <typename Decoder>
Found probe(const PackedStream& stream, const Bytes& bytes) {
  const PackedDebugSwitch debug;
  auto decoder = make_packed_decoder<Decoder>(stream);
  decoder.pending = bytes;
  Found found;
  found.lines = lines_written(decoder, [&] {
    const int bits = static_cast<int>(stream.bits);
    const auto alignment = decoder.probe_packed_alignment(bits, bits + 3);
    found.drop_bytes = alignment.drop_bytes;
    found.bit_offset = alignment.bit_offset;
    found.found = alignment.found;
  });
  EXPECT_EQ(decoder.pending, bytes);
  EXPECT_EQ(decoder.debug_lines, found.lines.size());
  expect_unlocked_state(decoder);
  return found;
}

// Every channel of `channels` with a sync and a tag.
void add_synced(PackedStreamBuilder& builder, std::initializer_list<unsigned> channels) {
  for (const unsigned ch : channels) {
    builder.synced_tag(ch, 0, 0);
  }
}

PackedStreamBuilder synced(std::initializer_list<unsigned> channels) {
  PackedStreamBuilder builder(16);
  add_synced(builder, channels);
  return builder;
}

template <typename Decoder>
class PackedAlignmentTest : public ::testing::Test {};
TYPED_TEST_SUITE(PackedAlignmentTest, BothPackedDecoders);

TYPED_TEST(PackedAlignmentTest, NothingIsFoundInNothing) {
  EXPECT_EQ(probe<TypeParam>({}, {}), nowhere);
  auto decoder = make_packed_decoder<TypeParam>({.mask = 1});
  decoder.pending = synced({0}).bytes();
  for (const auto& [bits, width] : {std::pair{0, 3}, std::pair{-1, 2}, std::pair{16, 0}}) {
    const auto alignment = decoder.probe_packed_alignment(bits, width);
    EXPECT_FALSE(alignment.found);
    EXPECT_EQ(alignment.drop_bytes, 0U);
    EXPECT_EQ(alignment.bit_offset, 0U);
  }
}

TYPED_TEST(PackedAlignmentTest, FirstRecordIsFoundAtEveryBit) {
  for (const int bits : {5, 16, 31}) {
    for (int phase = 0; phase < bits + 3; ++phase) {
      PackedStreamBuilder builder(bits);
      builder.raw_bits(0, phase);
      add_synced(builder, {0, 1, 2, 3});
      for (const StreamMode mode : {internal_mode, external_mode}) {
        EXPECT_EQ(
            probe<TypeParam>({.mode = mode, .bits = static_cast<unsigned>(bits)}, builder.bytes()),
            at(static_cast<std::uint64_t>(phase)))
            << bits << ' ' << phase;
      }
    }
  }
}

TYPED_TEST(PackedAlignmentTest, HarmlessRecordsBeforeTheFirstSyncAreKept) {
  PackedStreamBuilder builder(16);
  builder.raw_bits(0, 4).tags(0, 3, 5).overflow(1, 2);
  add_synced(builder, {0, 1});
  EXPECT_EQ(probe<TypeParam>({.mask = 3}, builder.bytes()), at(4));
}

TYPED_TEST(PackedAlignmentTest, CandidateNeedsASyncWithAllItsChunksAndATag) {
  for (const unsigned bits : {1U, 13U, 16U, 31U}) {
    PackedStreamBuilder whole(static_cast<int>(bits));
    whole.synced_tag(0, 0, 0);
    EXPECT_EQ(probe<TypeParam>({.mask = 1, .bits = bits}, whole.bytes()), at(0)) << bits;
    for (std::size_t size = 0; size < whole.bit_count() / 8; ++size) {
      Bytes part = whole.bytes();
      part.resize(size);
      EXPECT_EQ(probe<TypeParam>({.mask = 1, .bits = bits}, part), nowhere) << bits << ' ' << size;
    }
  }
}

TYPED_TEST(PackedAlignmentTest, InactiveChannelRestartsTheScanBehindIt) {
  PackedStreamBuilder builder(16);
  builder.tag(2, 0);
  add_synced(builder, {0, 1});
  EXPECT_EQ(probe<TypeParam>({.mask = 3}, builder.bytes()), at(19));
  // What was seen before the restart no longer counts.
  PackedStreamBuilder later = synced({0, 1});
  later.tags(0, 20, 0).tags(1, 20, 0).tag(3, 0);
  add_synced(later, {0, 1});
  EXPECT_EQ(probe<TypeParam>({.mask = 3}, later.bytes()), at(51 * 19));
  EXPECT_EQ(probe<TypeParam>({.mask = 3}, synced({0, 1}).tag(3, 0).bytes()), nowhere);
}

TYPED_TEST(PackedAlignmentTest, RecordThatBreaksASyncRestartsTheScanBehindIt) {
  struct Breaker {
    unsigned channel;
    unsigned flag;
    std::uint64_t payload;
  };
  for (const Breaker& b : {Breaker{2, 0, 0}, Breaker{1, 0, 0}, Breaker{0, 1, 5}, Breaker{0, 1, 0},
                           Breaker{0, 1, 0xFFFF}}) {
    PackedStreamBuilder builder(16);
    builder.sync_start(0).record(b.channel, b.flag, b.payload);
    add_synced(builder, {0, 1});
    EXPECT_EQ(probe<TypeParam>({.mask = 3}, builder.bytes()), at(38))
        << b.channel << b.flag << b.payload;
  }
  // What was seen before the broken sync no longer counts.
  EXPECT_EQ(probe<TypeParam>({.mask = 3}, synced({0, 1}).sync_start(0).overflow(0, 5).bytes()),
            nowhere);
}

TYPED_TEST(PackedAlignmentTest, ModeAndMaskDecideHowManyChannelsMustBeSynced) {
  struct Case {
    StreamMode mode;
    unsigned mask;
    std::initializer_list<unsigned> channels;
    bool found;
  };
  const Case cases[] = {
      {internal_mode, 0x0, {0, 1, 2, 3}, true},  {internal_mode, 0x0, {0, 1, 2}, false},
      {internal_mode, 0x3, {0, 1}, true},        {internal_mode, 0x3, {0}, false},
      {internal_mode, 0x8, {3}, true},           {external_mode, 0x0, {1, 3}, true},
      {external_mode, 0x0, {1}, false},          {external_mode, 0x3, {0}, false},
      {external_mode, 0x7, {0, 2}, true},        {external_mode, 0x2, {1}, true},
      {external_mode, 0xF1, {0}, true},          {internal_mode, 0xF0, {0, 1, 2, 3}, false},
      {external_mode, 0xF0, {0, 1, 2, 3}, false}};
  for (const Case& c : cases) {
    PackedStreamBuilder builder(16);
    add_synced(builder, c.channels);
    EXPECT_EQ(probe<TypeParam>({.mode = c.mode, .mask = c.mask}, builder.bytes()),
              c.found ? at(0) : nowhere)
        << c.mask << ' ' << c.channels.size();
  }
}

TYPED_TEST(PackedAlignmentTest, OneChannelPrefersTheLargerTotalEvenFromALaterStart) {
  PackedStreamBuilder builder(16);
  // From bit 0 the second sync start breaks the first and three tags are lost.
  builder.sync_start(0).sync(0, 0).tags(0, 3, 0).sync(0, 0).tags(0, 2, 0);
  for (const StreamMode mode : {internal_mode, external_mode}) {
    EXPECT_EQ(probe<TypeParam>({.mode = mode, .mask = 1}, builder.bytes()), at(19));
  }
}

TYPED_TEST(PackedAlignmentTest, SeveralChannelsPreferMoreSyncedEvenFromALaterStart) {
  PackedStreamBuilder builder(16);
  builder.sync_start(2);
  add_synced(builder, {2, 0, 1});
  EXPECT_EQ(probe<TypeParam>({.mask = 0}, builder.bytes()), at(19));
}

// Two streams on record grids that are 9 bits apart, both of all four channels.
// On the other stream's grid every record of a stream is an overflow, which a
// scan ignores: its payload has a one where the other grid has its flag.
class TwoGrids {
 public:
  explicit TwoGrids(std::array<std::size_t, 4> first, std::array<std::size_t, 4> second) {
    add(first, 0x80);  // bit 11 of the record: the flag, 9 bits on
    builder_.raw_bits(0b001000000, 9);
    add(second, 0x40);  // bit 12 of the record: the flag, 10 bits on
  }

  [[nodiscard]] Bytes bytes() const { return builder_.bytes(); }

  static Found first() { return at(0); }
  static Found second() { return at(9); }

 private:
  void add(const std::array<std::size_t, 4>& counts, std::uint64_t payload) {
    for (unsigned ch = 0; ch < 4; ++ch) {
      if (counts[ch] > 0) {
        builder_.sync(ch, payload << 32 | payload << 16 | payload);
        builder_.tags(ch, counts[ch], payload);
      }
    }
  }

  PackedStreamBuilder builder_{16};
};

TYPED_TEST(PackedAlignmentTest, SyncedChannelsThenMinimumThenTotalDecideBetweenGrids) {
  const auto winner = [](std::array<std::size_t, 4> a, std::array<std::size_t, 4> b) {
    return probe<TypeParam>({.mask = 0}, TwoGrids(a, b).bytes());
  };
  EXPECT_EQ(winner({9, 9, 9, 0}, {1, 1, 1, 1}), TwoGrids::second());
  EXPECT_EQ(winner({1, 1, 1, 1}, {9, 9, 9, 0}), TwoGrids::first());
  EXPECT_EQ(winner({9, 9, 9, 1}, {2, 2, 2, 2}), TwoGrids::second());
  EXPECT_EQ(winner({2, 2, 2, 2}, {9, 9, 9, 1}), TwoGrids::first());
  EXPECT_EQ(winner({2, 2, 2, 2}, {2, 2, 2, 3}), TwoGrids::second());
  EXPECT_EQ(winner({2, 3, 2, 2}, {2, 2, 2, 2}), TwoGrids::first());
}

TYPED_TEST(PackedAlignmentTest, EarlierCandidateWinsATie) {
  EXPECT_EQ(probe<TypeParam>({.mask = 0}, TwoGrids({2, 2, 2, 2}, {2, 2, 2, 2}).bytes()),
            TwoGrids::first());
  EXPECT_EQ(probe<TypeParam>({.mask = 0}, TwoGrids({4, 2, 2, 2}, {2, 2, 2, 4}).bytes()),
            TwoGrids::first());
  // One channel: any start up to the sync counts the same.
  PackedStreamBuilder one(16);
  one.tags(0, 3, 0).synced_tag(0, 0, 0);
  EXPECT_EQ(probe<TypeParam>({.mask = 1}, one.bytes()), at(0));
}

TYPED_TEST(PackedAlignmentTest, MinimumIsThatOfTheSyncedChannels) {
  EXPECT_EQ(probe<TypeParam>({.mask = 0}, TwoGrids({9, 1, 0, 0}, {0, 0, 2, 2}).bytes()),
            TwoGrids::second());
}

Found rejected(const std::string& line) {
  return {.lines = {"packed-decoder: reject internal alignment " + line}};
}

TYPED_TEST(PackedAlignmentTest, InternalModeRejectsAMinimumBelowHalfTheMaximum) {
  const auto counts = [](StreamMode mode, std::size_t zero, std::size_t one) {
    PackedStreamBuilder builder = synced({0, 1});
    builder.tags(0, zero - 1, 0).tags(1, one - 1, 0);
    return probe<TypeParam>({.mode = mode, .mask = 3}, builder.bytes());
  };
  EXPECT_EQ(counts(internal_mode, 100, 50), at(0));
  EXPECT_EQ(counts(internal_mode, 100, 49),
            rejected("drop_bytes=0 bit_offset=0 synced=2/2 min=49 max=100 total=149"));
  EXPECT_EQ(counts(internal_mode, 100, 40),
            rejected("drop_bytes=0 bit_offset=0 synced=2/2 min=40 max=100 total=140"));
  EXPECT_EQ(counts(internal_mode, 40, 100),
            rejected("drop_bytes=0 bit_offset=0 synced=2/2 min=40 max=100 total=140"));
  EXPECT_EQ(counts(external_mode, 100, 40), at(0));
}

TYPED_TEST(PackedAlignmentTest, RejectedCandidateGivesWayToABalancedOne) {
  EXPECT_EQ(probe<TypeParam>({.mode = internal_mode}, TwoGrids({9, 9, 9, 4}, {2, 2, 2, 2}).bytes()),
            TwoGrids::second());
}

TYPED_TEST(PackedAlignmentTest, RejectedCandidateWithTheLargestTotalIsReported) {
  const auto reported = [](std::array<std::size_t, 4> a, std::array<std::size_t, 4> b) {
    return probe<TypeParam>({.mode = internal_mode}, TwoGrids(a, b).bytes());
  };
  EXPECT_EQ(reported({9, 9, 9, 1}, {20, 1, 1, 1}),
            rejected("drop_bytes=0 bit_offset=0 synced=4/4 min=1 max=9 total=28"));
  EXPECT_EQ(reported({9, 1, 1, 1}, {20, 1, 1, 1}),
            rejected("drop_bytes=1 bit_offset=1 synced=4/4 min=1 max=20 total=23"));
  EXPECT_EQ(reported({9, 1, 1, 2}, {6, 2, 3, 2}),
            rejected("drop_bytes=0 bit_offset=0 synced=4/4 min=1 max=9 total=13"));
}

TYPED_TEST(PackedAlignmentTest, RejectedCandidateIsReportedWhereItsLastRestartLeftIt) {
  PackedStreamBuilder builder(16);
  builder.tag(2, 0);
  add_synced(builder, {0, 1});
  builder.tags(0, 5, 0);
  EXPECT_EQ(probe<TypeParam>({.mode = internal_mode, .mask = 3}, builder.bytes()),
            rejected("drop_bytes=2 bit_offset=3 synced=2/2 min=1 max=6 total=7"));
}

TYPED_TEST(PackedAlignmentTest, RejectionAndMissingAlignmentAreBothReported) {
  auto decoder = make_packed_decoder<TypeParam>({.mode = internal_mode, .mask = 3, .bits = 13});
  PackedStreamBuilder builder(13);
  builder.synced_tag(0, 0, 0).synced_tag(1, 0, 0).tags(0, 2036, 0);  // 2048 records, 4096 bytes
  EXPECT_EQ(feed(decoder, builder.bytes()).lines,
            (Lines{"packed-decoder: reject internal alignment drop_bytes=0 bit_offset=0 "
                   "synced=2/2 min=1 max=2037 total=2038",
                   "packed-decoder: no alignment bits=13 width=16 raw_bytes=4096"}));
}

// A stream at bit `start` that only a scan from this very bit reads: on its
// grid, a sync start stands before it, which swallows the first true one.
Bytes only_from(std::size_t start, std::initializer_list<unsigned> channels) {
  PackedStreamBuilder builder(16);
  for (std::size_t i = 19; i < start; ++i) {
    builder.raw_bits(0, 1);
  }
  builder.sync_start(0);
  add_synced(builder, channels);
  return builder.bytes();
}

TYPED_TEST(PackedAlignmentTest, OneChannelTriesSixteenMoreStartBytes) {
  for (const StreamMode mode : {internal_mode, external_mode}) {
    // Byte 16 with the last of 19 phases, and one bit further.
    EXPECT_EQ(probe<TypeParam>({.mode = mode, .mask = 1}, only_from(146, {0})), at(146));
    EXPECT_EQ(probe<TypeParam>({.mode = mode, .mask = 1}, only_from(147, {0})), nowhere);
  }
}

TYPED_TEST(PackedAlignmentTest, SeveralChannelsTrySixtyFourMoreStartBytes) {
  for (const StreamMode mode : {internal_mode, external_mode}) {
    EXPECT_EQ(probe<TypeParam>({.mode = mode, .mask = 3}, only_from(530, {0, 1})), at(530));
    EXPECT_EQ(probe<TypeParam>({.mode = mode, .mask = 3}, only_from(531, {0, 1})), nowhere);
  }
}

TYPED_TEST(PackedAlignmentTest, ScanEndsSixtyFourKibibytesBehindItsStartByte) {
  // Records of one byte; the sync and its tag are eleven, the last start byte is 16.
  PackedStreamBuilder tail(5);
  tail.synced_tag(0, 0, 0);
  const Bytes end = tail.bytes();
  ASSERT_EQ(end.size(), 11U);
  Bytes reached(16 + 65536 - end.size());
  reached.insert(reached.end(), end.begin(), end.end());
  EXPECT_EQ(probe<TypeParam>({.mask = 1, .bits = 5}, reached), at(128));
  Bytes missed(1);
  missed.insert(missed.end(), reached.begin(), reached.end());
  EXPECT_EQ(probe<TypeParam>({.mask = 1, .bits = 5}, missed), nowhere);
}

TYPED_TEST(PackedAlignmentTest, PendingChannelWaitsForItsTag) {
  PackedStreamBuilder builder(16);
  builder.sync(0, 0).tag(1, 0).overflow(1, 3).overflow(0, 3).tag(0, 0).synced_tag(1, 0, 0);
  EXPECT_EQ(probe<TypeParam>({.mask = 3}, builder.bytes()), at(0));
  // A whole sync takes the place of the one before.
  PackedStreamBuilder replaced(16);
  replaced.sync(0, 0).sync(1, 0).tag(0, 0).tag(1, 0);
  EXPECT_EQ(probe<TypeParam>({.mask = 3}, replaced.bytes()), nowhere);
}

}  // namespace
}  // namespace zelk::timing
