// The texts for enumeration values, and the two small parse helpers.
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "smoke_test/conversions.hpp"
#include "smoke_test/options.hpp"
#include "smoke_test/words.hpp"

namespace {

using zelk::timing::Format;
using zelk::timing::ReferenceClockSource;
using zelk::timing::ReferenceSignal;
using zelk::timing::StreamMode;
using zelk::timing::Transport;

constexpr std::uint32_t no_value = 0xFFFFFFFF;  // of any of the enumerations

TEST(TransportName, KnowsEveryTransport) {
  EXPECT_STREQ(transport_name(Transport::uart), "uart");
  EXPECT_STREQ(transport_name(Transport::usb), "usb");
  EXPECT_STREQ(transport_name(static_cast<Transport>(2)), "unsupported");
  EXPECT_STREQ(transport_name(static_cast<Transport>(3)), "unknown");
  EXPECT_STREQ(transport_name(static_cast<Transport>(no_value)), "unknown");
}

TEST(FormatName, KnowsEveryFormat) {
  EXPECT_STREQ(format_name(Format::raw64), "raw64");
  EXPECT_STREQ(format_name(Format::delta32), "delta32");
  EXPECT_STREQ(format_name(Format::packed_delta), "packed_delta");
  EXPECT_STREQ(format_name(static_cast<Format>(3)), "unknown");
  EXPECT_STREQ(format_name(static_cast<Format>(no_value)), "unknown");
}

TEST(ReferenceSourceName, KnowsEverySource) {
  EXPECT_STREQ(ref_source_name(ReferenceClockSource::automatic), "auto");
  EXPECT_STREQ(ref_source_name(ReferenceClockSource::internal), "internal");
  EXPECT_STREQ(ref_source_name(ReferenceClockSource::external), "external");
  EXPECT_STREQ(ref_source_name(static_cast<ReferenceClockSource>(3)), "unknown");
  EXPECT_STREQ(ref_source_name(static_cast<ReferenceClockSource>(no_value)), "unknown");
}

TEST(ReferenceSignalName, KnowsEverySignal) {
  EXPECT_STREQ(ref_signal_name(ReferenceSignal::ten_mhz), "10mhz");
  EXPECT_STREQ(ref_signal_name(ReferenceSignal::one_pps), "1pps");
  EXPECT_STREQ(ref_signal_name(static_cast<ReferenceSignal>(2)), "unknown");
  EXPECT_STREQ(ref_signal_name(static_cast<ReferenceSignal>(no_value)), "unknown");
}

TEST(ModeName, IsInternalUnlessTheModeIsExternal) {
  EXPECT_STREQ(mode_name(StreamMode::internal), "internal");
  EXPECT_STREQ(mode_name(StreamMode::external), "external");
  EXPECT_STREQ(mode_name(static_cast<StreamMode>(2)), "internal");
  EXPECT_STREQ(mode_name(static_cast<StreamMode>(no_value)), "internal");
}

TEST(FillIn, PutsTheChiefWordsInPlaceOfTheMarks) {
  EXPECT_EQ(fill_in("%, %; %!", chief_word<format_words>), "raw64, delta32; packed_delta!");
  EXPECT_EQ(fill_in("%", chief_word<mode_words>), "internal");
  EXPECT_EQ(fill_in("no mark", chief_word<mode_words>), "no mark");
  EXPECT_EQ(fill_in("", chief_word<mode_words>), "");
}

TEST(FillIn, HasNothingForAMarkBeyondTheLastWord) {
  EXPECT_EQ(fill_in("% % [%]", chief_word<mode_words>), "internal external []");
}

TEST(FillIn, HasNoMoreThanTheFirstWordsOfATableWhenSoManyAreTold) {
  EXPECT_EQ(fill_in("% [%]", chief_word<transport_words, 1>), "usb []");
}

TEST(LowerAscii, LowersLettersOnly) {
  EXPECT_EQ(lower_ascii("AbC_-09[]{} Zz"), "abc_-09[]{} zz");
  EXPECT_EQ(lower_ascii(""), "");
}

TEST(LowerAscii, LeavesBytesAboveAsciiAlone) {
  EXPECT_EQ(lower_ascii("\xC3\x84\xFF"), "\xC3\x84\xFF");
}

TEST(ParseU32, ReadsDecimalUnlessPrefixed) {
  EXPECT_EQ(parse_u32("0"), 0U);
  EXPECT_EQ(parse_u32("42"), 42U);
  EXPECT_EQ(parse_u32("010"), 10U);  // no octal
  EXPECT_EQ(parse_u32("0x2A"), 42U);
  EXPECT_EQ(parse_u32("0X2a"), 42U);
}

TEST(ParseU32, TheHexadecimalPrefixMustComeFirst) {
  EXPECT_EQ(parse_u32(" 0x2A"), 0U);
  EXPECT_EQ(parse_u32("-0x2A"), 0U);
}

TEST(ParseU32, IgnoresTrailingTextAndLeadingWhiteSpace) {
  EXPECT_EQ(parse_u32("12abc"), 12U);
  EXPECT_EQ(parse_u32("\t 7"), 7U);
  EXPECT_EQ(parse_u32("0x1Fg"), 31U);
  EXPECT_EQ(parse_u32("0x"), 0U);
}

TEST(ParseU32, CutsTo32Bits) {
  EXPECT_EQ(parse_u32("4294967295"), 0xFFFFFFFFU);
  EXPECT_EQ(parse_u32("4294967296"), 0U);
  EXPECT_EQ(parse_u32("0x1FFFFFFFF"), 0xFFFFFFFFU);
  EXPECT_EQ(parse_u32("18446744073709551615"), 0xFFFFFFFFU);
}

TEST(ParseU32, WrapsBelowZero) {
  EXPECT_EQ(parse_u32("-1"), 0xFFFFFFFFU);
  EXPECT_EQ(parse_u32("-2"), 0xFFFFFFFEU);
}

TEST(ParseU32, WithoutDigitsIsAnInvalidArgument) {
  for (const char* text : {"", "x", "xFF", " ", "-"}) {
    try {
      parse_u32(text);
      ADD_FAILURE() << text;
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), "stoul");
    }
  }
}

TEST(ParseU32, BeyondTheUnsignedRangeIsOutOfRange) {
  for (const char* text : {"18446744073709551616", "0x10000000000000000"}) {
    try {
      parse_u32(text);
      ADD_FAILURE() << text;
    } catch (const std::out_of_range& error) {
      EXPECT_STREQ(error.what(), "stoul");
    }
  }
}

}  // namespace
