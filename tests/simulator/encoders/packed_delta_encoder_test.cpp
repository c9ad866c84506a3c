// The records of the packed_delta format, bit by bit.
#include "simulator/encoders/packed_delta_encoder.hpp"

#include <gtest/gtest.h>

#include "tests/simulator/packed_streams.hpp"

namespace zelk::simulator {
namespace {

constexpr std::int64_t epoch_ps = 14'315'125'997'568;
constexpr std::int64_t span_ps = 2'199'023'255'552;  // 2^41
constexpr std::int64_t second_ps = 1'000'000'000'000;
constexpr std::int64_t ten_ms_ps = 10'000'000'000;

// All bits that `tags` make; blanks in `expected` do not count.
void expect_bits(const PackedStream& stream, const TagList& tags, std::string expected) {
  std::erase(expected, ' ');
  const std::string bits = bits_of(filled_bytes(stream, tags));
  EXPECT_EQ(bits.substr(0, expected.size()), expected);
  EXPECT_LE(bits.size() - expected.size(), 8U);
}

TEST(PackedDeltaEncoder, FirstTagOfAChannelComesWithItsSync) {
  expect_bits({.bits = 8, .quantum_ps = 1}, {{2, 0x0123456789}},
              "10 1 11111111"    // sync start, then the lowest byte first
              "10 0 10001001"    // 0x89
              "10 0 01100111"    // 0x67
              "10 0 01000101"    // 0x45
              "10 0 00100011"    // 0x23
              "10 0 00000001"    // 0x01
              "10 0 00000000"    // bits 40 to 47
              "10 0 00000000");  // tag, 0 ticks later
}

TEST(PackedDeltaEncoder, TimesAreRoundedDownToTicks) {
  // 80007 ps is 10000 ticks of 8 ps and 7 ps more; 10000 is 0x2710.
  expect_bits({.bits = 16, .quantum_ps = 8}, {{1, 80'007}, {1, 80'008}, {1, 80'048}},
              "01 1 1111111111111111"
              "01 0 0010011100010000"
              "01 0 0000000000000000"
              "01 0 0000000000000000"
              "01 0 0000000000000000"    // tag at tick 10000
              "01 0 0000000000000001"    // at 10001
              "01 0 0000000000000101");  // at 10006
}

TEST(PackedDeltaEncoder, ATagThatDoesNotAdvanceTheTickIsLeftOut) {
  const PackedStream stream{.bits = 16, .quantum_ps = 1024};
  expect_bits(stream, {{0, 1024}, {0, 2047}, {1, 1500}, {0, 2048}, {0, 2049}},
              sync(16, 0, 1) + record(16, 0, 0, 0) + sync(16, 1, 1) + record(16, 1, 0, 0) +
                  record(16, 0, 0, 1));
}

TEST(PackedDeltaEncoder, TheWidestPayloadTakesTwoChunks) {
  // 1 500 000 000 000 is 698 * 2^31 and 1 056 413 696 (0x3EF79800) more.
  expect_bits({.bits = 31, .quantum_ps = 1}, {{3, 1'500'000'000'000}, {3, 1'502'147'483'647}},
              "11 1 1111111111111111111111111111111"
              "11 0 0111110111101111001100000000000"
              "11 0 0000000000000000000001010111010"
              "11 0 0000000000000000000000000000000"
              "11 0 1111111111111111111111111111111");
}

TEST(PackedDeltaEncoder, OnePayloadBitTakesFortyOneChunks) {
  std::string chunks;
  for (int i = 0; i < 41; ++i) {
    chunks += i == 0 || i == 2 ? "00 0 1" : "00 0 0";
  }
  // One tick later, then two: with one bit there is no overflow to say that.
  std::string more_chunks;
  for (int i = 0; i < 41; ++i) {
    more_chunks += i == 3 ? "00 0 1" : "00 0 0";
  }
  expect_bits({.bits = 1, .quantum_ps = 4}, {{0, 20}, {0, 24}, {0, 32}},
              "00 1 1" + chunks + "00 0 0" + "00 0 1" + "00 1 1" + more_chunks + "00 0 0");
}

TEST(PackedDeltaEncoder, LongStepsTakeOverflowRecords) {
  expect_bits(
      {.bits = 8, .quantum_ps = 2}, {{0, 0}, {0, 2 * 255}, {0, 2 * (255 + 256)}},
      sync(8, 0, 0) + "00 0 00000000" + "00 0 11111111" + "00 1 00000001" + "00 0 00000000");
  // 300 * 256 + 5 ticks: an overflow of 255 would be a sync start.
  expect_bits({.bits = 8, .quantum_ps = 2}, {{0, 0}, {3, 2}, {0, 153'610}, {3, 4}},
              sync(8, 0, 0) + "00 0 00000000" + sync(8, 3, 1) + "11 0 00000000" +
                  "00 1 11111110"
                  "00 1 00101110"
                  "00 0 00000101"
                  "11 0 00000001");
}

TEST(PackedDeltaEncoder, ASyncReplacesMoreOverflowRecordsThanItHasRecords) {
  // With 8 bits a sync is a start and 6 chunks; 7 records say 7 * 254 units.
  const PackedStream stream{.bits = 8, .quantum_ps = 1};
  const std::string start = sync(8, 1, 0) + record(8, 1, 0, 0);
  const std::int64_t longest = 7 * 254 * 256 + 255;
  std::string overflows;
  for (int i = 0; i < 7; ++i) {
    overflows += "01 1 11111110";
  }
  expect_bits(stream, {{1, 0}, {1, longest}}, start + overflows + "01 0 11111111");
  expect_bits(stream, {{1, 0}, {1, longest + 1}}, start + sync(8, 1, 455'424) + "01 0 00000000");
}

TEST(PackedDeltaEncoder, EveryTenMillisecondsEachChannelGetsASyncWithItsNextTag) {
  expect_bits({.bits = 20, .quantum_ps = 1},
              {{0, ten_ms_ps - 2},
               {0, ten_ms_ps - 1},
               {1, ten_ms_ps - 1},
               {0, ten_ms_ps},
               {0, ten_ms_ps + 1},
               {1, ten_ms_ps + 2}},
              sync(20, 0, 9'999'999'998) + record(20, 0, 0, 0) + record(20, 0, 0, 1) +
                  sync(20, 1, 9'999'999'999) + record(20, 1, 0, 0) + sync(20, 0, 10'000'000'000) +
                  record(20, 0, 0, 0) + record(20, 0, 0, 1) + sync(20, 1, 10'000'000'002) +
                  record(20, 1, 0, 0));
}

// A tag every second up to `end_ps`, and its bits where ticks are 1 ps.
TagList every_second(std::int64_t end_ps) {
  TagList tags;
  for (std::int64_t t = 0; t < end_ps; t += second_ps) {
    tags.push_back({0, t});
  }
  tags.push_back({0, end_ps});
  return tags;
}

std::string syncs_of(const TagList& tags, int bits) {
  std::string text;
  for (const timing::TimeTag& tag : tags) {
    text += sync(bits, 0, static_cast<std::uint64_t>(tag.timestamp_ps % span_ps)) +
            record(bits, 0, 0, 0);
  }
  return text;
}

TEST(PackedDeltaEncoder, DeltasAcrossAnEpochShowTheExcess) {
  TagList tags = every_second(epoch_ps - 10);
  const std::string before = syncs_of(tags, 31);
  tags.push_back({0, epoch_ps});
  tags.push_back({0, epoch_ps + 20});
  // 0xFB00000000 is 502 * 2^31.
  expect_bits({.bits = 31, .quantum_ps = 1}, tags,
              before + record(31, 0, 1, 502) + record(31, 0, 0, 10) + record(31, 0, 0, 20));
  // For ticks of 8 ps: 2^44 - 0xD0500000000 = 0x2FB00000000 ps, 24416 * 2^24
  // ticks. The epoch is 0x1A0A0000000 ticks.
  expect_bits({.bits = 24, .quantum_ps = 8}, {{0, epoch_ps - 16}, {0, epoch_ps + 24}},
              sync(24, 0, 0x1A09FFFFFFE) + record(24, 0, 0, 0) + record(24, 0, 1, 24'416) +
                  record(24, 0, 0, 5));
}

TEST(PackedDeltaEncoder, ASyncReplacesTheExcessWhereItIsShorter) {
  TagList tags = every_second(epoch_ps - 10);
  const std::string before = syncs_of(tags, 8);
  tags.push_back({0, epoch_ps + 20});
  // Syncs of fine ticks count on: 14 315 125 997 588 less 6 spans.
  expect_bits({.bits = 8, .quantum_ps = 1}, tags,
              before + sync(8, 0, 1'120'986'464'276) + record(8, 0, 0, 0));
  // Those of coarse ticks begin anew with the epoch.
  expect_bits({.bits = 8, .quantum_ps = 8}, {{0, epoch_ps - 8}, {0, epoch_ps + 24}},
              sync(8, 0, 0x1A09FFFFFFF) + record(8, 0, 0, 0) + sync(8, 0, 3) + record(8, 0, 0, 0));
}

TEST(PackedDeltaEncoder, ASyncOfFineTicksReachesALittleBeyondTheExcess) {
  constexpr std::int64_t excess_ps = 1'078'036'791'296;
  expect_bits(
      {.bits = 8, .quantum_ps = 1}, {{0, 7}, {0, 7 + excess_ps + 100}},
      sync(8, 0, 7) + record(8, 0, 0, 0) + sync(8, 0, 1'078'036'791'303) + record(8, 0, 0, 100));
}

TEST(PackedDeltaEncoder, LongSilencesAreDeltasOfSeveralOverflowRecords) {
  // 3 * 2^41 + 9 ticks: 3 * 2^21 units of 2^20 ticks, in parts of 2^20 - 2.
  expect_bits({.bits = 20, .quantum_ps = 1}, {{0, 0}, {0, 3 * span_ps + 9}},
              sync(20, 0, 0) + record(20, 0, 0, 0) + record(20, 0, 1, 1'048'574) +
                  record(20, 0, 1, 1'048'574) + record(20, 0, 1, 1'048'574) +
                  record(20, 0, 1, 1'048'574) + record(20, 0, 1, 1'048'574) +
                  record(20, 0, 1, 1'048'574) + record(20, 0, 1, 12) + record(20, 0, 0, 9));
}

TEST(PackedDeltaEncoder, BitsMissingAtTheStartLeaveTheRestAsItIs) {
  const PackedStream stream{.bits = 13, .quantum_ps = 8};
  TagList tags;
  for (std::int64_t i = 0; i < 50; ++i) {
    tags.push_back({static_cast<std::uint8_t>(i % 3), i * 10'000});
  }
  const std::string all = bits_of(packed_bytes(stream, tags));
  for (std::uint32_t start_bits = 0; start_bits < all.size() + 20; ++start_bits) {
    const std::string rest = bits_of(packed_bytes(stream, tags, start_bits));
    const std::string expected = all.substr(std::min<std::size_t>(start_bits, all.size()));
    EXPECT_TRUE(rest.starts_with(expected) || expected.starts_with(rest)) << start_bits;
    EXPECT_LE(rest.size() < expected.size() ? expected.size() - rest.size()
                                            : rest.size() - expected.size(),
              7U)
        << start_bits;
  }
}

}  // namespace
}  // namespace zelk::simulator
