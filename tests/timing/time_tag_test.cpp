// The vocabulary's values: they are the device's numbers, so each is written
// out here in full.
#include "timing/time_tag.hpp"

#include <gtest/gtest.h>

#include <type_traits>

namespace zelk::timing {
namespace {

TEST(TimeTagTest, ChannelIsAnUnsignedByteAndTimestampASigned64BitNumber) {
  EXPECT_TRUE((std::is_same_v<decltype(TimeTag::channel), std::uint8_t>));
  EXPECT_TRUE((std::is_same_v<decltype(TimeTag::timestamp_ps), std::int64_t>));
}

TEST(TimeTagTest, IsAPlainValueThatMovesByCopyingBytes) {
  EXPECT_TRUE(std::is_trivially_copyable_v<TimeTag>);
  EXPECT_TRUE(std::is_standard_layout_v<TimeTag>);
}

TEST(TimeTagTest, TagsAreEqualOnlyWhenBothFieldsAre) {
  const TimeTag tag{2, -7};
  EXPECT_EQ(tag, (TimeTag{2, -7}));
  EXPECT_NE(tag, (TimeTag{3, -7}));
  EXPECT_NE(tag, (TimeTag{2, 7}));
}

TEST(FormatTest, ValuesAreTheDevicesNumbersIn32Bits) {
  EXPECT_EQ(static_cast<std::uint32_t>(Format::raw64), 0U);
  EXPECT_EQ(static_cast<std::uint32_t>(Format::delta32), 1U);
  EXPECT_EQ(static_cast<std::uint32_t>(Format::packed_delta), 2U);
  EXPECT_TRUE((std::is_same_v<std::underlying_type_t<Format>, std::uint32_t>));
}

TEST(StreamModeTest, ValuesAreTheDevicesNumbersIn32Bits) {
  EXPECT_EQ(static_cast<std::uint32_t>(StreamMode::internal), 0U);
  EXPECT_EQ(static_cast<std::uint32_t>(StreamMode::external), 1U);
  EXPECT_TRUE((std::is_same_v<std::underlying_type_t<StreamMode>, std::uint32_t>));
}

TEST(ChannelsTest, AllFourHaveABitInTheMask) {
  EXPECT_EQ(channel_count, 4);
  EXPECT_EQ(all_channels_mask, 0x0F);
}

TEST(ClockConstantsTest, HaveTheDevicesValues) {
  EXPECT_EQ(clock_period_ps, 3333);
  EXPECT_EQ(coarse_epoch_ps, 14'315'125'997'568);
  EXPECT_EQ(coarse_epoch_ps, 0xD0500000000);
  EXPECT_EQ(half_epoch_ps, 7'157'562'998'784);
  EXPECT_EQ(half_epoch_ps, 0x68280000000);
  EXPECT_EQ(counter_span_ps, 2'199'023'255'552);
  EXPECT_EQ(counter_span_ps, 0x20000000000);
  EXPECT_EQ(wrap_excess_ps, 1'078'036'791'296);
  EXPECT_EQ(wrap_excess_ps, 0xFB00000000);
  EXPECT_EQ(small_delta_bound_ps, 10'000'000'000);
}

TEST(ClockConstantsTest, SevenCounterSpansOvershootAnEpochByTheWrapExcess) {
  EXPECT_EQ(7 * counter_span_ps, coarse_epoch_ps + wrap_excess_ps);
}

}  // namespace
}  // namespace zelk::timing
