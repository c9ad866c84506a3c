// What the byte probe keeps of the bytes and tags that it is handed.
#include "smoke_test/byte_probe.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Counts = std::array<std::uint64_t, 4>;
using zelk::timing::TimeTag;

// The values first, first + 1 and so on, from 0 again after 255.
Bytes rising(std::uint8_t first, std::size_t count) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), first);
  return bytes;
}

void expect_no_bytes(const ByteProbe& probe) {
  EXPECT_EQ(probe.payload_bytes, 0U);
  EXPECT_EQ(probe.nonzero_bytes, 0U);
  EXPECT_EQ(probe.first_nonzero_offset, -1);
  EXPECT_EQ(probe.first_bytes, Bytes{});
}

void expect_no_tags(const ByteProbe& probe) {
  EXPECT_EQ(probe.decoded_total, 0U);
  EXPECT_EQ(probe.decoded, (Counts{0, 0, 0, 0}));
}

TEST(ByteProbeBytes, AreNoneAtTheStart) {
  const ByteProbe probe;
  expect_no_bytes(probe);
  expect_no_tags(probe);
  EXPECT_EQ(probe.interrupting_signal, 0);
}

TEST(ByteProbeBytes, OfAnEmptyReadChangeNothing) {
  ByteProbe probe;
  probe.add_bytes({});
  expect_no_bytes(probe);
  probe.add_bytes(Bytes{0, 9});
  probe.add_bytes({});
  EXPECT_EQ(probe.payload_bytes, 2U);
  EXPECT_EQ(probe.nonzero_bytes, 1U);
  EXPECT_EQ(probe.first_nonzero_offset, 1);
  EXPECT_EQ(probe.first_bytes, (Bytes{0, 9}));
}

TEST(ByteProbeBytes, AreCountedOverAllReads) {
  ByteProbe probe;
  probe.add_bytes(Bytes{0x01, 0x00, 0xFF});
  probe.add_bytes(Bytes{0x00});
  probe.add_bytes(Bytes{0x80, 0x00, 0x00, 0x7F});
  EXPECT_EQ(probe.payload_bytes, 8U);
  EXPECT_EQ(probe.nonzero_bytes, 4U);
  EXPECT_EQ(probe.first_bytes, (Bytes{0x01, 0x00, 0xFF, 0x00, 0x80, 0x00, 0x00, 0x7F}));
  expect_no_tags(probe);
}

TEST(ByteProbeBytes, OfZerosOnlyHaveNoNonzeroOffset) {
  ByteProbe probe;
  probe.add_bytes(Bytes(200));
  probe.add_bytes(Bytes(100));
  EXPECT_EQ(probe.payload_bytes, 300U);
  EXPECT_EQ(probe.nonzero_bytes, 0U);
  EXPECT_EQ(probe.first_nonzero_offset, -1);
  EXPECT_EQ(probe.first_bytes, Bytes(128));
}

TEST(ByteProbeBytes, FirstNonzeroOffsetIsThatInItsRead) {
  ByteProbe at_once;
  at_once.add_bytes(Bytes{7, 0, 7});
  EXPECT_EQ(at_once.first_nonzero_offset, 0);
  ByteProbe at_the_end;
  at_the_end.add_bytes(Bytes{0, 0, 0, 7});
  EXPECT_EQ(at_the_end.first_nonzero_offset, 3);
}

TEST(ByteProbeBytes, FirstNonzeroOffsetCountsTheReadsBefore) {
  ByteProbe probe;
  probe.add_bytes(Bytes(1000));
  probe.add_bytes(Bytes(24));
  probe.add_bytes(Bytes{0, 0, 5, 0});
  EXPECT_EQ(probe.first_nonzero_offset, 1026);
}

TEST(ByteProbeBytes, LaterNonzeroBytesDoNotMoveTheFirst) {
  ByteProbe probe;
  probe.add_bytes(Bytes{0, 1});
  probe.add_bytes(Bytes{2, 3});
  probe.add_bytes(Bytes{4});
  EXPECT_EQ(probe.first_nonzero_offset, 1);
}

TEST(ByteProbeBytes, FirstHundredAndTwentyEightOfOneReadAreKept) {
  ByteProbe probe;
  probe.add_bytes(rising(10, 300));
  EXPECT_EQ(probe.first_bytes, rising(10, 128));
  EXPECT_EQ(probe.payload_bytes, 300U);
  EXPECT_EQ(probe.nonzero_bytes, 299U);  // 10 to 255, then 0 to 53
}

TEST(ByteProbeBytes, FirstHundredAndTwentyEightOfSeveralReadsAreKept) {
  ByteProbe probe;
  probe.add_bytes(rising(0, 127));
  EXPECT_EQ(probe.first_bytes, rising(0, 127));
  probe.add_bytes(rising(127, 2));
  EXPECT_EQ(probe.first_bytes, rising(0, 128));
  probe.add_bytes(rising(129, 50));
  EXPECT_EQ(probe.first_bytes, rising(0, 128));
  EXPECT_EQ(probe.payload_bytes, 179U);
}

TEST(ByteProbeBytes, AFullSetOfFirstBytesTakesNoMore) {
  ByteProbe probe;
  probe.add_bytes(rising(1, 128));
  EXPECT_EQ(probe.first_bytes, rising(1, 128));
  probe.add_bytes(rising(200, 1));
  EXPECT_EQ(probe.first_bytes, rising(1, 128));
  EXPECT_EQ(probe.nonzero_bytes, 129U);
}

TEST(ByteProbeTags, AreCountedByChannelOverAllReads) {
  ByteProbe probe;
  probe.add_tags(std::vector<TimeTag>{{0, 10}, {3, 20}, {3, 30}});
  probe.add_tags({});
  probe.add_tags(std::vector<TimeTag>{{2, 5}, {3, -1}, {2, 5}});
  EXPECT_EQ(probe.decoded_total, 6U);
  EXPECT_EQ(probe.decoded, (Counts{1, 0, 2, 3}));
  expect_no_bytes(probe);
}

TEST(ByteProbeTags, OfNoChannelCountInTheTotalOnly) {
  ByteProbe probe;
  probe.add_tags(std::vector<TimeTag>{{4, 1}, {255, 2}, {1, 3}});
  EXPECT_EQ(probe.decoded_total, 3U);
  EXPECT_EQ(probe.decoded, (Counts{0, 1, 0, 0}));
}

}  // namespace
