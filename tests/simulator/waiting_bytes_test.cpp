#include "simulator/waiting_bytes.hpp"

#include <gtest/gtest.h>

#include <numeric>

namespace zelk::simulator {
namespace {

using Bytes = WaitingBytes::Bytes;

Bytes taken(WaitingBytes& waiting, std::size_t capacity) {
  Bytes buffer(capacity, 0xEE);
  buffer.resize(waiting.hand_over(buffer));
  return buffer;
}

TEST(WaitingBytes, ComeOutInTheirOrderAndOnce) {
  WaitingBytes waiting;
  EXPECT_TRUE(waiting.empty());
  EXPECT_EQ(taken(waiting, 4), Bytes{});
  waiting.tail().insert(waiting.tail().end(), {1, 2, 3, 4, 5});
  EXPECT_EQ(waiting.size(), 5U);
  EXPECT_EQ(taken(waiting, 2), (Bytes{1, 2}));
  EXPECT_EQ(waiting.size(), 3U);
  waiting.tail().push_back(6);
  EXPECT_EQ(taken(waiting, 9), (Bytes{3, 4, 5, 6}));
  EXPECT_TRUE(waiting.empty());
  EXPECT_EQ(taken(waiting, 9), Bytes{});
}

TEST(WaitingBytes, ABufferWithoutRoomTakesNone) {
  WaitingBytes waiting;
  waiting.replace({1, 2});
  EXPECT_EQ(waiting.hand_over({}), 0U);
  EXPECT_EQ(waiting.size(), 2U);
}

TEST(WaitingBytes, NothingBehindTheBytesIsWritten) {
  WaitingBytes waiting;
  waiting.replace({1, 2});
  Bytes buffer(4, 0xEE);
  EXPECT_EQ(waiting.hand_over(buffer), 2U);
  EXPECT_EQ(buffer, (Bytes{1, 2, 0xEE, 0xEE}));
}

TEST(WaitingBytes, ReplacingDropsWhatWasLeft) {
  WaitingBytes waiting;
  waiting.replace({1, 2, 3});
  taken(waiting, 1);
  waiting.replace({7, 8});
  EXPECT_EQ(taken(waiting, 9), (Bytes{7, 8}));
  waiting.tail().push_back(9);
  waiting.replace();
  EXPECT_TRUE(waiting.empty());
}

// A reader who never catches up: what was handed over must not pile up.
TEST(WaitingBytes, TakeNoMoreMemoryThanWhatWaitsNeeds) {
  constexpr std::size_t step = 1 << 16;
  constexpr std::size_t backlog = 1 << 20;
  WaitingBytes waiting;
  waiting.tail().assign(backlog, 0);
  Bytes piece(step);
  std::iota(piece.begin(), piece.end(), std::uint8_t{0});
  for (std::size_t total = 0; total < 64 * backlog; total += step) {
    waiting.tail().insert(waiting.tail().end(), piece.begin(), piece.end());
    const Bytes out = taken(waiting, step);
    ASSERT_EQ(out, total < backlog ? Bytes(step) : piece) << total;
    ASSERT_EQ(waiting.size(), backlog);
    ASSERT_LE(waiting.tail().size(), 2 * backlog + step);
  }
}

}  // namespace
}  // namespace zelk::simulator
