// The decoder object: what it takes from the stream's description, and how
// feed() treats its arguments and the format.
#include "timing/stream_decoder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "tests/support/stream_headers.hpp"
#include "tests/support/wire_words.hpp"

namespace zelk::timing {
namespace {

using test_support::big_endian_32;
using test_support::big_endian_64;
using test_support::Bytes;
using test_support::d32_announce;
using test_support::d32_tag;
using test_support::joined;
using test_support::ps_record;
using test_support::stream_header;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

StreamDecoder ps_decoder() {
  return StreamDecoder(stream_header(Format::raw64, StreamMode::external));
}

// ---- Set-up ----------------------------------------------------------------

TEST(StreamDecoderSetUpTest, TakesTheStreamsDescription) {
  StreamFileHeader header = stream_header(Format::packed_delta, StreamMode::external);
  header.transport = Transport::usb;
  header.channel_mask = 0x0A;
  header.packed_bits = 12;
  header.packed_quantum_ps = 4;
  const StreamDecoder decoder(header);
  EXPECT_EQ(decoder.format, Format::packed_delta);
  EXPECT_EQ(decoder.mode, StreamMode::external);
  EXPECT_EQ(decoder.transport, Transport::usb);
  EXPECT_EQ(decoder.channel_mask, 0x0A);
  EXPECT_EQ(decoder.packed_bits, 12);
  EXPECT_EQ(decoder.packed_quantum_ps, 4);
  EXPECT_EQ(decoder.packed_shift, 2);
  EXPECT_EQ(decoder.timestamp_layout, "ps");
}

TEST(StreamDecoderSetUpTest, PackedBitsZeroBecomes16) {
  StreamFileHeader header = stream_header(Format::packed_delta, StreamMode::internal);
  EXPECT_EQ(StreamDecoder(header).packed_bits, 16);
  header.packed_bits = 1;
  EXPECT_EQ(StreamDecoder(header).packed_bits, 1);
}

TEST(StreamDecoderSetUpTest, PackedQuantumZeroBecomes8) {
  StreamFileHeader header = stream_header(Format::packed_delta, StreamMode::internal);
  EXPECT_EQ(StreamDecoder(header).packed_quantum_ps, 8);
  EXPECT_EQ(StreamDecoder(header).packed_shift, 3);
}

TEST(StreamDecoderSetUpTest, ShiftIsTheNumberOfTrailingZeroBitsOfTheQuantum) {
  struct Row {
    std::uint16_t quantum_ps;
    std::int32_t shift;
  };
  for (const Row row : {Row{1, 0}, Row{2, 1}, Row{3, 0}, Row{8, 3}, Row{12, 2}, Row{24, 3},
                        Row{3333, 0}, Row{0x8000, 15}, Row{0xFFFF, 0}}) {
    StreamFileHeader header = stream_header(Format::packed_delta, StreamMode::internal);
    header.packed_quantum_ps = row.quantum_ps;
    EXPECT_EQ(StreamDecoder(header).packed_shift, row.shift) << "quantum " << row.quantum_ps;
    EXPECT_EQ(StreamDecoder(header).packed_quantum_ps, row.quantum_ps);
  }
}

TEST(StreamDecoderSetUpTest, OnlyRaw64FromTheInternalSourceIsCoarseFine) {
  for (const Format format : {Format::raw64, Format::delta32, Format::packed_delta}) {
    for (const StreamMode mode : {StreamMode::internal, StreamMode::external}) {
      const bool coarse_fine = format == Format::raw64 && mode == StreamMode::internal;
      EXPECT_EQ(StreamDecoder(stream_header(format, mode)).timestamp_layout,
                coarse_fine ? "raw_cf" : "ps");
    }
  }
}

TEST(StreamDecoderSetUpTest, FineCorrectionsAreTheDefaultTable) {
  const StreamDecoder decoder(stream_header(Format::raw64, StreamMode::internal));
  ASSERT_EQ(decoder.fine_correction_ps.size(), 8192U);
  EXPECT_THAT(std::vector<std::int64_t>(decoder.fine_correction_ps.begin(),
                                        decoder.fine_correction_ps.begin() + 4),
              ElementsAre(0, 19, 37, 56));
  EXPECT_EQ(decoder.fine_correction_ps[180], 3330);
  EXPECT_EQ(decoder.fine_correction_ps[181], 3332);
  EXPECT_EQ(decoder.fine_correction_ps[8191], 3332);
}

TEST(StreamDecoderSetUpTest, DecodingStateStartsEmpty) {
  const StreamDecoder decoder(stream_header(Format::delta32, StreamMode::external));
  EXPECT_THAT(decoder.pending, IsEmpty());
  EXPECT_EQ(decoder.bit_offset, 0U);
  for (const StreamDecoder::Raw64Channel& channel : decoder.raw64) {
    EXPECT_EQ(channel.last_raw, 0U);
    EXPECT_FALSE(channel.has_last);
  }
  EXPECT_THAT(decoder.epoch_offset_ps, Each(0));
  EXPECT_THAT(decoder.last_ps, Each(0));
  EXPECT_THAT(decoder.has_time, Each(false));
  EXPECT_FALSE(decoder.d32_locked);
  EXPECT_EQ(decoder.d32_state, 0U);
  EXPECT_EQ(decoder.d32_base_low, 0U);
  EXPECT_EQ(decoder.d32_base, 0U);
  EXPECT_FALSE(decoder.d32_base_valid);
  EXPECT_EQ(decoder.d32_overflow, 0U);
}

// ---- Feeding ---------------------------------------------------------------

TEST(StreamDecoderFeedTest, NullWithoutSizeDecodesWhatIsPending) {
  StreamDecoder decoder = ps_decoder();
  decoder.pending = big_endian_64({ps_record(1, 77)});
  EXPECT_THAT(decoder.feed(nullptr, 0), ElementsAre(TimeTag{1, 77}));
  EXPECT_THAT(decoder.pending, IsEmpty());
  EXPECT_THAT(decoder.feed(nullptr, 0), IsEmpty());
}

TEST(StreamDecoderFeedTest, NullWithASizeAddsNothing) {
  StreamDecoder decoder = ps_decoder();
  decoder.pending = big_endian_64({ps_record(1, 77)});
  decoder.pending.push_back(0xFF);
  EXPECT_THAT(decoder.feed(nullptr, 1000), ElementsAre(TimeTag{1, 77}));
  EXPECT_THAT(decoder.pending, ElementsAre(0xFF));
}

TEST(StreamDecoderFeedTest, DataWithoutSizeDecodesWhatIsPending) {
  StreamDecoder decoder = ps_decoder();
  decoder.pending = big_endian_64({ps_record(2, 5)});
  const std::uint8_t unread = 0;
  EXPECT_THAT(decoder.feed(&unread, 0), ElementsAre(TimeTag{2, 5}));
  EXPECT_THAT(decoder.pending, IsEmpty());
}

TEST(StreamDecoderFeedTest, TagsComeInStreamOrder) {
  StreamDecoder decoder = ps_decoder();
  const Bytes bytes = big_endian_64({ps_record(3, 900), ps_record(0, 100), ps_record(3, 500)});
  EXPECT_THAT(decoder.feed(bytes.data(), bytes.size()),
              ElementsAre(TimeTag{3, 900}, TimeTag{0, 100}, TimeTag{3, 500}));
}

TEST(StreamDecoderFeedTest, FormatChoosesThePath) {
  const Bytes words = joined({d32_announce(64), big_endian_32({d32_tag(1, 1)})});
  StreamDecoder delta(stream_header(Format::delta32, StreamMode::external));
  EXPECT_THAT(delta.feed(words.data(), words.size()), ElementsAre(TimeTag{1, 65}));
  StreamDecoder raw = ps_decoder();
  EXPECT_THAT(raw.feed(words.data(), words.size()), IsEmpty());
}

TEST(StreamDecoderFeedTest, AListIsClearedThenFilledAndItsMemoryUsedAgain) {
  StreamDecoder decoder = ps_decoder();
  const Bytes bytes = big_endian_64({ps_record(1, 77), ps_record(2, 78), ps_record(3, 79)});
  std::vector<TimeTag> tags(50, TimeTag{0, -1});
  const TimeTag* const memory = tags.data();
  decoder.feed(bytes.data(), 8, tags);
  EXPECT_THAT(tags, ElementsAre(TimeTag{1, 77}));
  decoder.feed(bytes.data() + 8, 16, tags);
  EXPECT_THAT(tags, ElementsAre(TimeTag{2, 78}, TimeTag{3, 79}));
  decoder.feed(nullptr, 0, tags);
  EXPECT_THAT(tags, IsEmpty());
  EXPECT_EQ(tags.data(), memory);
}

TEST(StreamDecoderFeedTest, AListIsClearedByEveryFormatThatDecodesNothing) {
  for (const std::uint32_t number : {0U, 1U, 2U, 3U}) {
    for (const std::uint8_t bits : std::initializer_list<std::uint8_t>{16, 32}) {
      StreamFileHeader header = stream_header(static_cast<Format>(number), StreamMode::external);
      header.packed_bits = bits;
      StreamDecoder decoder(header);
      std::vector<TimeTag> tags(3, TimeTag{0, -1});
      const std::uint8_t byte = 0;
      decoder.feed(&byte, 1, tags);
      EXPECT_THAT(tags, IsEmpty()) << "format " << number;
    }
  }
}

// More may be pending than part of a record: all of it comes first.
TEST(StreamDecoderFeedTest, WholeRecordsThatArePendingComeBeforeTheFreshOnes) {
  Bytes records;
  std::vector<TimeTag> expected;
  for (unsigned i = 0; i < 9; ++i) {
    const Bytes record = big_endian_64({ps_record(i % 4, 100 + i)});
    records.insert(records.end(), record.begin(), record.end());
    expected.push_back({static_cast<std::uint8_t>(i % 4), 100 + i});
  }
  for (std::ptrdiff_t waiting = 0; waiting <= 72; ++waiting) {
    StreamDecoder decoder = ps_decoder();
    decoder.pending.assign(records.begin(), records.begin() + waiting);
    const std::size_t fresh = records.size() - decoder.pending.size();
    EXPECT_EQ(decoder.feed(records.data() + waiting, fresh), expected) << waiting << " pending";
    EXPECT_THAT(decoder.pending, IsEmpty());
  }
}

TEST(StreamDecoderFeedTest, UnknownFormatDecodesNothingAndKeepsItsBytes) {
  for (const std::uint32_t number : {3U, 4U, 255U, 0xFFFFFFFFU}) {
    StreamDecoder decoder(stream_header(static_cast<Format>(number), StreamMode::external));
    const Bytes bytes = big_endian_64({ps_record(1, 77), ps_record(1, 78)});
    EXPECT_THAT(decoder.feed(bytes.data(), 9), IsEmpty());
    EXPECT_THAT(decoder.feed(nullptr, 0), IsEmpty());
    EXPECT_THAT(decoder.feed(bytes.data() + 9, 7), IsEmpty());
    EXPECT_EQ(decoder.pending, bytes) << "format " << number;
  }
}

}  // namespace
}  // namespace zelk::timing
