// What is said about an argument that the run would not take as it is written.
#include "smoke_test/argument_check.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

struct Row {
  const char* argument;
  const char* note;
  const char* refusal;
};

void expect_remarks(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    const std::optional<ArgumentRemark> remark = check_argument(row.argument);
    ASSERT_TRUE(remark) << row.argument;
    EXPECT_EQ(remark->note, row.note);
    EXPECT_EQ(remark->refusal, row.refusal);
  }
}

void expect_one_text_for_both(const std::vector<std::pair<const char*, const char*>>& rows) {
  for (const auto& [argument, text] : rows) {
    expect_remarks({{argument, text, text}});
  }
}

// ---- Keys ------------------------------------------------------------------

TEST(UnknownKey, IsAnsweredWithTheNearestKey) {
  expect_one_text_for_both({
      {"chanel_mask=3", "chanel_mask is unknown; did you mean channel_mask?"},
      {"prot=ftdi://", "prot is unknown; did you mean port?"},
      {"--MOED=external", "MOED is unknown; did you mean mode?"},
      {"capture=1", "capture is unknown; did you mean capture_s?"},
      {"referense=auto", "referense is unknown; did you mean reference?"},
      {"-capture_s=2", "-capture_s is unknown; did you mean capture_s?"},
      {"capture_s =2", "capture_s  is unknown; did you mean capture_s?"},
  });
}

TEST(UnknownKey, HasNoSuggestionWhenNoneIsNear) {
  expect_one_text_for_both({
      {"verbosity=3", "verbosity is unknown; --help lists the keys"},
      {"x=", "x is unknown; --help lists the keys"},
      {"help=1", "help is unknown; --help lists the keys"},
  });
}

TEST(UnknownKey, IsSaidToBeMissing) {
  expect_one_text_for_both({
      {"=5", "=5 has no key; arguments are key=value, and --help lists the keys"},
      {"--=5", "--=5 has no key; arguments are key=value, and --help lists the keys"},
  });
}

TEST(MissingEqualsSign, BehindAKeyIsAnsweredWithWhatIsAllowed) {
  expect_one_text_for_both({
      {"capture_s", "capture_s has no \"=\"; write capture_s=VALUE; allowed is a number of s"},
      {"--BYTES", "--BYTES has no \"=\"; write bytes=VALUE; allowed are 1 and 0"},
      {"--strict", "--strict has no \"=\"; write strict=VALUE; allowed are 1 and 0"},
      {"format",
       "format has no \"=\"; write format=VALUE; allowed are raw64, delta32 and packed_delta"},
      {"save_tags",
       "save_tags has no \"=\"; write save_tags=VALUE; allowed is the name of a file that ends in "
       ".npy or .csv"},
      {"port", "port has no \"=\"; write port=VALUE"},
  });
}

TEST(MissingEqualsSign, BehindSomethingElseIsAnsweredWithTheNearestKey) {
  expect_one_text_for_both({
      {"chanel_mask", "chanel_mask has no \"=\"; did you mean channel_mask=VALUE?"},
      {"5", "5 has no \"=\"; arguments are key=value, and --help lists the keys"},
      {"--verbose", "--verbose has no \"=\"; arguments are key=value, and --help lists the keys"},
      {"--", "-- has no \"=\"; arguments are key=value, and --help lists the keys"},
      {"", "an empty argument has no \"=\"; arguments are key=value, and --help lists the keys"},
  });
}

// ---- Numbers ---------------------------------------------------------------

TEST(TextBehindANumber, IsNamed) {
  expect_remarks({
      {"capture_s=500ms", "capture_s=500ms is read as 500 s",
       "capture_s=500ms: \"ms\" stands behind the number; allowed is a number of s"},
      {"--Capture_S=1,5", "Capture_S=1,5 is read as 1 s",
       "Capture_S=1,5: \",5\" stands behind the number; allowed is a number of s"},
      {"cal_freq_hz=2.5e3Hz", "cal_freq_hz=2.5e3Hz is read as 2500 Hz",
       "cal_freq_hz=2.5e3Hz: \"Hz\" stands behind the number; allowed is a number of Hz"},
      {"threshold_v=1V", "threshold_v=1V is read as 1 V",
       "threshold_v=1V: \"V\" stands behind the number; allowed is a number of V, 0 to 4, or nan"},
      {"threshold_v=nano", "threshold_v=nano is read as unset",
       "threshold_v=nano: \"o\" stands behind the number; allowed is a number of V, 0 to 4, or "
       "nan"},
      {"bin_s=0.05 s", "bin_s=0.05 s is read as 0.05 s",
       "bin_s=0.05 s: \" s\" stands behind the number; allowed is a number of s, at least 0.001"},
      {"coincidence_window_ps=2ns", "coincidence_window_ps=2ns is read as 2 ps",
       "coincidence_window_ps=2ns: \"ns\" stands behind the number; allowed is a whole decimal "
       "number of ps"},
      {"dead_time_ns=62.5ns", "dead_time_ns=62.5ns is read as 62.5 ns",
       "dead_time_ns=62.5ns: \"ns\" stands behind the number; allowed is a number of ns, at most "
       "9223372036854774"},
      {"queue_limit=5000tags", "queue_limit=5000tags is read as 5000 tags",
       "queue_limit=5000tags: \"tags\" stands behind the number; allowed is a whole decimal number "
       "of tags, at least 1024"},
  });
}

TEST(TextBehindANumber, IsAFractionOfAWholeNumberToo) {
  expect_remarks({
      {"dead_time_ps=1.5", "dead_time_ps=1.5 is read as 1 ps",
       "dead_time_ps=1.5: \".5\" stands behind the number; allowed is a whole decimal number of "
       "ps"},
      {"packed_quantum_ps=1e2", "packed_quantum_ps=1e2 is read as 1 ps",
       "packed_quantum_ps=1e2: \"e2\" stands behind the number; allowed is a whole decimal number "
       "of ps, 0 to 65535"},
  });
}

TEST(TextBehindANumber, IsAHexadecimalNumberWhereNoneIsRead) {
  expect_remarks({
      {"channel_b=0x3", "channel_b=0x3 is read as 0",
       "channel_b=0x3: \"x3\" stands behind the number; allowed is a whole decimal number, 0 to 3"},
      {"packed_bits=0x10", "packed_bits=0x10 is read as 0 bits",
       "packed_bits=0x10: \"x10\" stands behind the number; allowed is a whole decimal number of "
       "bits, 0 to 255"},
      {"channel_mask= 0x3", "channel_mask= 0x3 is read as 0x00",
       "channel_mask= 0x3: \"x3\" stands behind the number; allowed is 0 to 0x0F"},
      {"channel_mask=0x", "channel_mask=0x is read as 0x00",
       "channel_mask=0x: \"x\" stands behind the number; allowed is 0 to 0x0F"},
      {"tdl_mask=0x1G", "tdl_mask=0x1G is read as 0x01",
       "tdl_mask=0x1G: \"G\" stands behind the number; allowed is 0 to 0x1F"},
  });
}

// The note says "is read as", the refusal "would be read as".
void expect_read_as(const std::string& argument, const std::string& as_read,
                    const std::string& allowed) {
  const std::optional<ArgumentRemark> remark = check_argument(argument);
  ASSERT_TRUE(remark) << argument;
  EXPECT_EQ(remark->note, argument + " is read as " + as_read + "; allowed is " + allowed);
  EXPECT_EQ(remark->refusal, argument + " would be read as " + as_read + "; allowed is " + allowed);
}

TEST(CutNumber, IsAMaskBeyondItsBits) {
  expect_read_as("channel_mask=16", "0x00", "0 to 0x0F");
  expect_read_as("channel_mask=0x1D", "0x0D", "0 to 0x0F");
  expect_read_as("channel_mask=-1", "0x0F", "0 to 0x0F");
  expect_read_as("tdl_mask=32", "0x00", "0 to 0x1F");
  expect_read_as("tdl_mask=0xFF", "0x1F", "0 to 0x1F");
}

TEST(CutNumber, IsAMaskBeyond32Bits) {
  expect_read_as("channel_mask=4294967299", "0x03", "0 to 0x0F");  // 2^32 + 3
  expect_read_as("tdl_mask=0x8000000000000010", "0x10", "0 to 0x1F");
}

TEST(CutNumber, IsAPackedParameterBeyondItsField) {
  const char* bits = "a whole decimal number of bits, 0 to 255";
  expect_read_as("packed_bits=300", "44 bits", bits);
  expect_read_as("packed_bits=256", "0 bits", bits);
  const char* quantum = "a whole decimal number of ps, 0 to 65535";
  expect_read_as("packed_quantum_ps=65537", "1 ps", quantum);
  expect_read_as("packed_quantum_ps=65536", "0 ps", quantum);
}

TEST(WrappedNumber, IsOneWithAMinusSignWhereNoneCanBe) {
  expect_read_as("packed_bits=-1", "255 bits", "a whole decimal number of bits, 0 to 255");
  expect_read_as("packed_quantum_ps=-1", "65535 ps", "a whole decimal number of ps, 0 to 65535");
  const char* queue = "a whole decimal number of tags, at least 1024";
  expect_read_as("queue_limit=-1", "18446744073709551615 tags", queue);
  expect_read_as("queue_limit= -5000", "18446744073709546616 tags", queue);
  // 2^64 - 5 with a minus sign wraps to what would be allowed.
  expect_read_as("packed_bits=-18446744073709551611", "5 bits",
                 "a whole decimal number of bits, 0 to 255");
}

TEST(ClampedNumber, IsAQueueLimitBelowTheLeast) {
  const char* allowed = "a whole decimal number of tags, at least 1024";
  expect_read_as("queue_limit=1023", "1024 tags", allowed);
  expect_read_as("queue_limit=0", "1024 tags", allowed);
}

TEST(ClampedNumber, IsABinBelowTheLeast) {
  for (const std::string value : {"0.0009", "0", "-1", "nan", "-inf"}) {
    expect_read_as("bin_s=" + value, "0.001 s", "a number of s, at least 0.001");
  }
}

TEST(ClampedNumber, IsAThresholdOutsideTheRange) {
  const char* allowed = "a number of V, 0 to 4, or nan";
  expect_read_as("threshold_v=4.5", "4 V", allowed);
  expect_read_as("threshold_v=-0.75", "0 V", allowed);
  expect_read_as("threshold_v=inf", "unset", allowed);
  expect_read_as("threshold_v=-inf", "unset", allowed);
}

TEST(ClampedNumber, IsADeadTimeThatDoesNotFit) {
  for (const std::string value : {"9223372036854776", "9.3e15", "1e300", "inf", "nan"}) {
    expect_read_as("dead_time_ns=" + value, "unset", "a number of ns, at most 9223372036854774");
  }
}

TEST(NumberWithoutDigits, IsAnsweredWithWhatIsAllowed) {
  expect_one_text_for_both({
      {"capture_s=abc", "capture_s=abc cannot be read; allowed is a number of s"},
      {"--BIN_S= ", "BIN_S=  cannot be read; allowed is a number of s, at least 0.001"},
      {"channel_mask=f", "channel_mask=f cannot be read; allowed is 0 to 0x0F"},
      {"channel_a=a", "channel_a=a cannot be read; allowed is a whole decimal number, 0 to 3"},
      {"dead_time_ps=.5",
       "dead_time_ps=.5 cannot be read; allowed is a whole decimal number of ps"},
      {"capture_s=", "capture_s= has no value; allowed is a number of s"},
      {"queue_limit=",
       "queue_limit= has no value; allowed is a whole decimal number of tags, at least 1024"},
  });
}

TEST(NumberOutOfRange, IsAnsweredWithWhatIsAllowed) {
  expect_one_text_for_both({
      {"capture_s=1e999", "capture_s=1e999 is beyond what can be read; allowed is a number of s"},
      {"capture_s=1e-999", "capture_s=1e-999 is beyond what can be read; allowed is a number of s"},
      {"channel_a=2147483648",
       "channel_a=2147483648 is beyond what can be read; allowed is a whole decimal number, 0 to "
       "3"},
      {"packed_bits=18446744073709551616",
       "packed_bits=18446744073709551616 is beyond what can be read; allowed is a whole decimal "
       "number of bits, 0 to 255"},
      {"tdl_mask=0x10000000000000000",
       "tdl_mask=0x10000000000000000 is beyond what can be read; allowed is 0 to 0x1F"},
  });
}

// ---- Words -----------------------------------------------------------------

TEST(OtherWord, IsReadAsTheDefault) {
  expect_remarks({
      {"mode=extrenal", "mode=extrenal is read as internal; allowed are internal and external",
       "mode=extrenal is none of its words; allowed are internal and external"},
      {"mode=", "mode= is read as internal; allowed are internal and external",
       "mode= is none of its words; allowed are internal and external"},
      {"transport=usb3", "transport=usb3 is read as usb; allowed is usb",
       "transport=usb3 is none of its words; allowed is usb"},
      {"reference=gps",
       "reference=gps is read as internal; allowed are internal, external, auto and none",
       "reference=gps is none of its words; allowed are internal, external, auto and none"},
      {"ref_signal=2pps", "ref_signal=2pps is read as 10mhz; allowed are 10mhz and 1pps",
       "ref_signal=2pps is none of its words; allowed are 10mhz and 1pps"},
      {"load_calibration=disabled", "load_calibration=disabled is read as 1; allowed are 1 and 0",
       "load_calibration=disabled is none of its words; allowed are 1 and 0"},
      {"bytes=", "bytes= is read as 1; allowed are 1 and 0",
       "bytes= is none of its words; allowed are 1 and 0"},
      {"strict=2", "strict=2 is read as 1; allowed are 1 and 0",
       "strict=2 is none of its words; allowed are 1 and 0"},
  });
}

// ---- Strictness ------------------------------------------------------------

bool strict_among(const std::vector<std::string>& arguments) {
  return asks_for_strictness(arguments);
}

TEST(Strictness, IsAskedForAnywhere) {
  EXPECT_FALSE(strict_among({}));
  EXPECT_FALSE(strict_among({"strict", "--strict", "-strict=1", "port=strict=1"}));
  EXPECT_TRUE(strict_among({"strict=1"}));
  EXPECT_TRUE(strict_among({"capture_s=abc", "--STRICT=Yes", "format=raw32"}));
}

TEST(Strictness, IsUpToTheLastValueReadAsEveryOtherBoolean) {
  EXPECT_FALSE(strict_among({"strict=1", "strict=0"}));
  EXPECT_TRUE(strict_among({"strict=off", "strict="}));
  EXPECT_TRUE(strict_among({"strict=ture"}));
}

}  // namespace
