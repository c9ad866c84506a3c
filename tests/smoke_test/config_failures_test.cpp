// The exact exception of every argument that is rejected.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "smoke_test/config.hpp"
#include "tests/smoke_test/config_arguments.hpp"

namespace {

using testing::IsEmpty;

// The argument throws exactly this type with exactly this text, and leaves
// every field as it was.
template <typename Exception>
void expect_rejected(const std::string& argument, const std::string& text) {
  Config config;
  try {
    apply_argument(config, argument);
    ADD_FAILURE() << argument << " was accepted";
  } catch (const std::exception& error) {
    EXPECT_TRUE(typeid(error) == typeid(Exception)) << argument << ": " << typeid(error).name();
    EXPECT_EQ(error.what(), text) << argument;
  }
  EXPECT_THAT(changed_fields(config), IsEmpty()) << argument;
}

// One option for every number conversion and key.
struct NumericKey {
  const char* key;
  const char* conversion;
  const char* too_large;
};

constexpr NumericKey numeric_keys[] = {
    {"capture_s", "stod", "1e999"},
    {"cal_freq_hz", "stod", "-1e999"},
    {"threshold_v", "stod", "1e999"},
    {"bin_s", "stod", "1e999"},
    {"dead_time_ns", "stod", "1e999"},
    {"channel_mask", "stoul", "18446744073709551616"},
    {"tdl_mask", "stoul", "0x10000000000000000"},
    {"channel_a", "stoi", "2147483648"},
    {"channel_b", "stoi", "-2147483649"},
    {"coincidence_window_ps", "stoll", "9223372036854775808"},
    {"dead_time_ps", "stoll", "-9223372036854775809"},
    {"packed_bits", "stoul", "18446744073709551616"},
    {"packed_quantum_ps", "stoul", "18446744073709551616"},
    {"queue_limit", "stoull", "18446744073709551616"},
};

TEST(RejectedArguments, NumbersWithoutDigitsNameTheirConversion) {
  for (const NumericKey& row : numeric_keys) {
    for (const char* value : {"", "abc", " ", "-", "+", "--5"}) {
      expect_rejected<std::invalid_argument>(std::string(row.key) + "=" + value, row.conversion);
    }
  }
}

TEST(RejectedArguments, NumbersOutOfRangeNameTheirConversion) {
  for (const NumericKey& row : numeric_keys) {
    expect_rejected<std::out_of_range>(std::string(row.key) + "=" + row.too_large, row.conversion);
  }
}

TEST(RejectedArguments, ChannelsBeyond32BitsAreOutOfRange) {
  expect_rejected<std::out_of_range>("channel_a=99999999999999999999", "stoi");
  expect_rejected<std::out_of_range>("channel_b=4294967296", "stoi");
}

TEST(RejectedArguments, TooSmallFloatingPointNumbersAreOutOfRange) {
  expect_rejected<std::out_of_range>("capture_s=1e-999", "stod");
}

TEST(RejectedArguments, AsynchronousTransportIsNamed) {
  for (const char* argument :
       {"transport=usb_async", "transport=async", "transport=USB_Async", "--TRANSPORT=ASYNC"}) {
    expect_rejected<std::runtime_error>(argument, "usb_async streaming is no longer supported");
  }
}

TEST(RejectedArguments, EmptySerialIsToldWhereToFindOne) {
  expect_rejected<std::runtime_error>(
      "serial=", "serial must not be empty: list=1 shows those of the attached units");
}

TEST(RejectedArguments, TagsGoIntoAFileThatSaysItsLayout) {
  for (const char* value :
       {"", "tags", "tags.txt", "npy", "tags.npy.gz", "tags.NPY", "tags.csv "}) {
    expect_rejected<std::runtime_error>(
        "save_tags=" + std::string(value),
        "save_tags needs the name of a file that ends in .npy or .csv");
  }
}

TEST(RejectedArguments, UnknownFormatIsToldTheFormats) {
  for (const char* argument :
       {"format=raw32", "format=", "format=packeddelta", "format= raw64", "format=2"}) {
    expect_rejected<std::runtime_error>(argument, "format must be raw64, delta32, or packed_delta");
  }
}

}  // namespace
