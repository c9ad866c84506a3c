#include "smoke_test/results/decimal.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace {

// Each row is one number in several spellings; the rows ascend.
const std::vector<std::vector<std::string>> ascending{
    {"-1e999"},
    {"-18446744073709551616"},
    {"-18446744073709551615", "-18446744073709551615.0"},
    {"-1000", "-1e3", "-1E+3", "-1000.000"},
    {"-12.5", "-012.50", "-125e-1"},
    {"-12.499"},
    {"-1", "-1.", "-0x1"},
    {"-0.1", "-.1", "-1e-1"},
    {"-0.001"},
    {"0", "-0", "+0", "0.000", ".0", "0.", "0e9", "0x0", "0x0000"},
    {"1e-999"},
    {"0.001", "1e-3"},
    {"0.1", ".1", "+.1", "00.10", "100e-3"},
    {"0.1000000000000000055511151231257827"},  // what a double makes of 0.1
    {"0.3"},
    {"1", "+1", "1.", "01", "1e0", "1e+0", "1e-0", "0x1", "0X01"},
    {"9.999"},
    {"10", "1e1", "0.1e2", "0xa", "0xA"},
    {"12", "0x0c", "0x0C"},
    {"100", "1e2", "1E2", "1e002"},
    {"4000"},
    {"9007199254740992"},
    {"9007199254740993"},  // the first whole number that is no double
    {"18446744073709551614"},
    {"18446744073709551615", "0xffffffffffffffff", "1.8446744073709551615e19"},
    {"18446744073709551616"},
    {"1e999", "1000e996"},
};

TEST(Decimal, ComparesNumbersDigitByDigit) {
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      for (const std::string& left : ascending[i]) {
        for (const std::string& right : ascending[j]) {
          const auto a = Decimal::read(left);
          const auto b = Decimal::read(right);
          ASSERT_TRUE(a && b) << left << " and " << right;
          EXPECT_EQ(*a < *b, i < j) << left << " and " << right;
          EXPECT_EQ(*a > *b, i > j) << left << " and " << right;
          EXPECT_EQ(*a == *b, i == j) << left << " and " << right;
        }
      }
    }
  }
}

TEST(Decimal, ReadsTheWholeTextOrNothing) {
  for (const char* text : {"",      " ",
                           "-",     "+",
                           ".",     "-.",
                           "e3",    ".e3",
                           "1e",    "1e+",
                           "1e-",   "1e1000",
                           "1e1.5", "1 ",
                           " 1",    "1,5",
                           "1.2.3", "--1",
                           "+-1",   "1e--1",
                           "1-",    "0x",
                           "0xg",   "0x1.8",
                           "0x-1",  "0x10000000000000000",
                           "-0x",   "x1",
                           "inf",   "nan",
                           "ten",   "1k",
                           "1e3x"}) {
    EXPECT_FALSE(Decimal::read(text)) << '"' << text << '"';
  }
}

}  // namespace
