#include "timing/detail/wrapping.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

using zelk::timing::detail::magnitude;
using zelk::timing::detail::wrap_add;
using zelk::timing::detail::wrap_mul;
using zelk::timing::detail::wrap_sub;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

TEST(Wrapping, InsideTheRangeIsOrdinaryArithmetic) {
  EXPECT_EQ(wrap_add(2, -5), -3);
  EXPECT_EQ(wrap_sub(2, -5), 7);
  EXPECT_EQ(wrap_sub(-2, 5), -7);
  EXPECT_EQ(wrap_mul(-3, 7), -21);
  EXPECT_EQ(magnitude(-9), 9U);
  EXPECT_EQ(magnitude(9), 9U);
  EXPECT_EQ(magnitude(0), 0U);
}

TEST(Wrapping, SumsContinueAtTheOtherEnd) {
  EXPECT_EQ(wrap_add(largest, 1), smallest);
  EXPECT_EQ(wrap_add(smallest, -1), largest);
  EXPECT_EQ(wrap_add(smallest, smallest), 0);
  EXPECT_EQ(wrap_add(largest, largest), -2);
}

TEST(Wrapping, DifferencesContinueAtTheOtherEnd) {
  EXPECT_EQ(wrap_sub(smallest, 1), largest);
  EXPECT_EQ(wrap_sub(largest, -1), smallest);
  EXPECT_EQ(wrap_sub(largest, smallest), -1);
  EXPECT_EQ(wrap_sub(0, smallest), smallest);
}

TEST(Wrapping, ProductsKeepTheLow64Bits) {
  EXPECT_EQ(wrap_mul(largest, 2), -2);
  EXPECT_EQ(wrap_mul(smallest, -1), smallest);
  EXPECT_EQ(wrap_mul(std::int64_t{1} << 32, std::int64_t{1} << 32), 0);
  EXPECT_EQ(wrap_mul(largest, largest), 1);
}

TEST(Wrapping, TheMagnitudeOfTheMostNegativeNumberIsUnsigned) {
  EXPECT_EQ(magnitude(smallest), std::uint64_t{1} << 63);
  EXPECT_EQ(magnitude(smallest + 1), static_cast<std::uint64_t>(largest));
}

TEST(Wrapping, IsUsableInConstantExpressions) {
  static_assert(wrap_add(largest, 1) == smallest);
  static_assert(wrap_sub(smallest, 1) == largest);
  static_assert(wrap_mul(largest, 2) == -2);
  static_assert(magnitude(-1) == 1);
}

}  // namespace
