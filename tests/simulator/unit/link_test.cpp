#include "simulator/unit/link.hpp"

#include <gtest/gtest.h>

namespace zelk::simulator {
namespace {

// A byte takes 1000 ps.
constexpr LinkSettings settings{
    .fifo_bytes = 100, .rate_bytes_per_s = 1'000'000'000, .host_buffer_bytes = 50};

TEST(Link, CarriesByteByByteAtItsRate) {
  Link link(settings, 5000);
  link.write(10);
  EXPECT_EQ(link.readable(), 0U);
  link.advance_to(5999);
  EXPECT_EQ(link.readable(), 0U);
  link.advance_to(6000);
  EXPECT_EQ(link.readable(), 1U);
  link.advance_to(9500);
  link.advance_to(9999);
  EXPECT_EQ(link.readable(), 4U);
  link.advance_to(15'000);
  EXPECT_EQ(link.readable(), 10U);
  EXPECT_TRUE(link.is_empty());
}

TEST(Link, AnIdleLinkSavesNoTime) {
  Link link(settings, 0);
  link.advance_to(1'000'000);
  link.write(2);
  link.advance_to(1'000'500);
  EXPECT_EQ(link.readable(), 0U);
  link.advance_to(1'001'000);
  EXPECT_EQ(link.readable(), 1U);
}

TEST(Link, TheFifoTakesTagsUntilItIsFull) {
  Link link(settings, 0);
  link.write(99);
  EXPECT_TRUE(link.has_room());
  link.write(8);
  EXPECT_FALSE(link.has_room());
  link.advance_to(7'000);
  EXPECT_FALSE(link.has_room());
  link.advance_to(8'000);
  EXPECT_TRUE(link.has_room());
}

TEST(Link, AFullHostBufferStopsTheLinkUntilItIsRead) {
  Link link(settings, 0);
  link.write(90);
  link.advance_to(1'000'000);
  EXPECT_EQ(link.readable(), 50U);
  EXPECT_FALSE(link.is_empty());
  link.read(20);
  EXPECT_EQ(link.readable(), 30U);
  link.advance_to(1'005'000);
  EXPECT_EQ(link.readable(), 35U);
  link.advance_to(2'000'000);
  EXPECT_EQ(link.readable(), 50U);
}

}  // namespace
}  // namespace zelk::simulator
