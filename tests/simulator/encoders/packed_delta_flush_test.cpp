// The last byte of a packed_delta stream that pauses.
#include <gtest/gtest.h>

#include "tests/simulator/packed_streams.hpp"

namespace zelk::simulator {
namespace {

// 16 bits make records of 19: a sync start, three chunks and the tag are 95
// bits, and three fillers more are 152, or 19 bytes.
TEST(PackedDeltaFlush, FillsTheLastByteWithOverflowsOfNothing) {
  PackedDeltaEncoder encoder(16, 8);
  ByteList bytes;
  encoder.append({2, 8'000}, bytes);
  EXPECT_EQ(bytes.size(), 11U);
  encoder.flush(bytes);
  ASSERT_EQ(bytes.size(), 19U);
  const std::string filler = record(16, 2, 1, 0);
  EXPECT_EQ(bits_of(bytes), sync(16, 2, 1000) + step(16, 2, 0) + filler + filler + filler);
}

TEST(PackedDeltaFlush, AddsNothingToWholeBytes) {
  PackedDeltaEncoder encoder(5, 1);  // records of one byte
  ByteList bytes;
  encoder.flush(bytes);
  EXPECT_TRUE(bytes.empty());
  encoder.append({0, 77}, bytes);
  const std::size_t size = bytes.size();
  encoder.flush(bytes);
  EXPECT_EQ(bytes.size(), size);
}

// One bit short of whole bytes for ever: no number of 8-bit records helps.
TEST(PackedDeltaFlush, LeavesAByteThatNoRecordCompletes) {
  PackedDeltaEncoder encoder(5, 1, 1);
  ByteList bytes;
  encoder.append({0, 77}, bytes);
  const std::size_t size = bytes.size();
  encoder.flush(bytes);
  EXPECT_EQ(bytes.size(), size);
}

TEST(PackedDeltaFlush, ChangesNoTagOfTheHosts) {
  for (int bits = 1; bits <= 31; ++bits) {
    PackedDeltaEncoder encoder(bits, 8);
    ByteList bytes;
    TagList sent;
    for (int i = 0; i < 400; ++i) {
      const timing::TimeTag tag{static_cast<std::uint8_t>(i % 3), 80'000 + 8 * i};
      encoder.append(tag, bytes);
      encoder.flush(bytes);
      sent.push_back(tag);
    }
    timing::StreamFileHeader header;
    header.format = timing::Format::packed_delta;
    header.mode = timing::StreamMode::external;
    header.channel_mask = 0x7;
    header.packed_bits = static_cast<std::uint8_t>(bits);
    header.packed_quantum_ps = 8;
    timing::StreamDecoder decoder(header);
    EXPECT_EQ(decoder.feed(bytes.data(), bytes.size()), sent) << bits << " bits";
  }
}

}  // namespace
}  // namespace zelk::simulator
