// The wire constants, checked field by field against layouts written out by
// hand, and the few pure functions beside them.
#include "timing/wire_format.hpp"

#include <gtest/gtest.h>

#include "tests/support/wire_words.hpp"

namespace zelk::timing::wire {
namespace {

TEST(Raw64WireTest, PsRecordFixesBit63AndBits60To44) {
  std::uint64_t fixed = 0;
  for (int bit = 0; bit < 64; ++bit) {
    if (bit == 63 || (bit >= 44 && bit <= 60)) {
      fixed |= std::uint64_t{1} << bit;
    }
  }
  EXPECT_EQ(raw64::ps_fixed_mask, fixed);
  EXPECT_EQ(raw64::ps_fixed_mask, 0x9FFFF00000000000);
  EXPECT_EQ(raw64::ps_fixed_value, 0U);
  EXPECT_EQ(raw64::ps_timestamp_mask, 0x00000FFFFFFFFFFF);
  EXPECT_EQ(raw64::record_bytes, 8U);
}

TEST(Raw64WireTest, CoarseFineRecordFixesBit63AndTheMarkerInBits60To45) {
  std::uint64_t fixed = 0;
  for (int bit = 0; bit < 64; ++bit) {
    if (bit == 63 || (bit >= 45 && bit <= 60)) {
      fixed |= std::uint64_t{1} << bit;
    }
  }
  EXPECT_EQ(raw64::cf_fixed_mask, fixed);
  EXPECT_EQ(raw64::cf_fixed_mask, 0x9FFFE00000000000);
  EXPECT_EQ(raw64::cf_fixed_value, std::uint64_t{0xA5C3} << 45);
  EXPECT_EQ(raw64::cf_fixed_value, 0x14B8600000000000);
}

TEST(Raw64WireTest, FieldsOfARecordAreWhereTheWriterPutsThem) {
  const std::uint64_t w = test_support::cf_record(2, 0x89ABCDEF, 0x1234);
  EXPECT_EQ(w >> raw64::channel_shift & raw64::channel_mask, 2U);
  EXPECT_EQ(w >> raw64::cf_coarse_shift & raw64::cf_coarse_mask, 0x89ABCDEFU);
  EXPECT_EQ(w & raw64::cf_fine_mask, 0x1234U);
}

TEST(FineCorrectionTest, IsHalfATapTimes37RoundedUpwards) {
  EXPECT_EQ(default_fine_correction_ps(0), 0);
  EXPECT_EQ(default_fine_correction_ps(1), 19);      // 18.5
  EXPECT_EQ(default_fine_correction_ps(2), 37);      // 37
  EXPECT_EQ(default_fine_correction_ps(3), 56);      // 55.5
  EXPECT_EQ(default_fine_correction_ps(4), 74);      // 74
  EXPECT_EQ(default_fine_correction_ps(179), 3312);  // 3311.5
  EXPECT_EQ(default_fine_correction_ps(180), 3330);  // 3330
}

TEST(FineCorrectionTest, NeverReachesAWholeClockPeriod) {
  EXPECT_EQ(default_fine_correction_ps(181), 3332);  // 3348.5 without the limit
  EXPECT_EQ(default_fine_correction_ps(8191), 3332);
}

TEST(FineCorrectionTest, TableHoldsOneEntryForEach13BitCode) {
  const std::vector<std::int64_t> table = default_fine_correction_table();
  ASSERT_EQ(table.size(), 8192U);
  EXPECT_EQ(table[0], 0);
  EXPECT_EQ(table[3], 56);
  EXPECT_EQ(table[180], 3330);
  for (std::size_t code = 181; code < table.size(); ++code) {
    ASSERT_EQ(table[code], 3332) << "code " << code;
  }
}

TEST(Delta32WireTest, SyncWordIsAControlWordOfSubTypeThreeWithOnePayload) {
  EXPECT_EQ(delta32::sync_word, 0xEB5A55AA);
  EXPECT_EQ(delta32::sync_payload, 0x15A55AAU);
  EXPECT_EQ(delta32::sync_word, test_support::d32_word(1, 3, 5, 0x15A55AA));
  EXPECT_EQ(test_support::big_endian_32({delta32::sync_word}),
            (test_support::Bytes{0xEB, 0x5A, 0x55, 0xAA}));
}

TEST(Delta32WireTest, FieldsOfAWordAreWhereTheWriterPutsThem) {
  const std::uint32_t tag = test_support::d32_word(0, 1, 10, 0x1FEDCBA);
  EXPECT_EQ(tag & delta32::control_bit, 0U);
  EXPECT_EQ(tag >> delta32::channel_shift & delta32::channel_mask, 1U);
  EXPECT_EQ(tag >> delta32::kind_shift & delta32::kind_mask, delta32::tag_kind);
  EXPECT_EQ(tag & delta32::payload_mask, 0x1FEDCBAU);

  const std::uint32_t control = test_support::d32_word(1, 2, 5, 0xFFFF);
  EXPECT_EQ(control & delta32::control_bit, 0x80000000);
  EXPECT_EQ(control >> delta32::channel_shift & delta32::channel_mask, delta32::base_high_subtype);
  EXPECT_EQ(control >> delta32::kind_shift & delta32::kind_mask, delta32::control_kind);
  EXPECT_EQ(control & delta32::payload_mask, delta32::short_payload_mask);
}

TEST(Delta32WireTest, SubTypesHaveTheDevicesNumbers) {
  EXPECT_EQ(delta32::overflow_subtype, 0U);
  EXPECT_EQ(delta32::base_low_subtype, 1U);
  EXPECT_EQ(delta32::base_high_subtype, 2U);
  EXPECT_EQ(delta32::sync_subtype, 3U);
  EXPECT_EQ(delta32::tag_kind, 10U);
  EXPECT_EQ(delta32::control_kind, 5U);
  EXPECT_EQ(delta32::word_bytes, 4U);
}

TEST(Delta32WireTest, TimeBaseHas41Bits) {
  EXPECT_EQ(delta32::base_bits, 41);
  EXPECT_EQ(delta32::base_mask, 0x1FFFFFFFFFFU);
}

TEST(PackedDeltaWireTest, SyncValueTakesAsManyChunksAsItsBitsNeed) {
  EXPECT_EQ(packed_delta::sync_chunks(1), 41);
  EXPECT_EQ(packed_delta::sync_chunks(8), 6);
  EXPECT_EQ(packed_delta::sync_chunks(16), 3);
  EXPECT_EQ(packed_delta::sync_chunks(20), 3);
  EXPECT_EQ(packed_delta::sync_chunks(21), 2);
  EXPECT_EQ(packed_delta::sync_chunks(31), 2);
}

TEST(PackedDeltaWireTest, RecordsHaveThreeBitsBesideTheirPayload) {
  EXPECT_EQ(packed_delta::header_bits, 3);
  EXPECT_EQ(packed_delta::min_payload_bits, 1);
  EXPECT_EQ(packed_delta::max_payload_bits, 31);
  EXPECT_EQ(packed_delta::sync_value_mask, 0x1FFFFFFFFFFU);
}

TEST(PackedDeltaWireTest, QuantumCountsAsItsLargestPowerOfTwoFactor) {
  EXPECT_EQ(packed_delta::quantum_shift(1), 0);
  EXPECT_EQ(packed_delta::quantum_shift(3333), 0);
  EXPECT_EQ(packed_delta::quantum_shift(8), 3);
  EXPECT_EQ(packed_delta::quantum_shift(12), 2);
  EXPECT_EQ(packed_delta::quantum_shift(0x8000), 15);
}

}  // namespace
}  // namespace zelk::timing::wire
