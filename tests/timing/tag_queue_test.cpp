#include "timing/tag_queue.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <random>
#include <span>
#include <vector>

namespace zelk::timing {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Long enough to be taken over as it is.
constexpr std::size_t long_count = TagQueue::least_block;

std::vector<TimeTag> tags_from(std::int64_t first, std::size_t count) {
  std::vector<TimeTag> tags(count);
  for (std::size_t i = 0; i < count; ++i) {
    tags[i] = {static_cast<std::uint8_t>(i % 4), first + static_cast<std::int64_t>(i)};
  }
  return tags;
}

void append(TagQueue& queue, std::int64_t first, std::size_t count) {
  std::vector<TimeTag> tags = tags_from(first, count);
  queue.append(tags);
}

TEST(TagQueue, BeginsEmpty) {
  TagQueue queue;
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(queue.size(), 0U);
  EXPECT_THAT(queue.take_front(10), IsEmpty());
}

TEST(TagQueue, GivesTheOldestTagsFirst) {
  TagQueue queue;
  queue.push_back({1, 10});
  queue.push_back({2, 20});
  queue.push_back({3, 30});
  EXPECT_THAT(queue.take_front(2), ElementsAre(TimeTag{1, 10}, TimeTag{2, 20}));
  EXPECT_EQ(queue.size(), 1U);
  EXPECT_THAT(queue.take_front(2), ElementsAre(TimeTag{3, 30}));
  EXPECT_TRUE(queue.empty());
}

TEST(TagQueue, TakesALongBlockWithoutCopyingIt) {
  TagQueue queue;
  std::vector<TimeTag> tags = tags_from(0, long_count);
  const TimeTag* const memory = tags.data();
  queue.append(tags);
  EXPECT_EQ(queue.take_front(long_count).data(), memory);
}

TEST(TagQueue, SplitsABlockWithoutMovingIt) {
  TagQueue queue;
  append(queue, 0, long_count);
  const std::span<const TimeTag> first = queue.take_front(1000);
  ASSERT_EQ(first.size(), 1000U);
  EXPECT_EQ(queue.size(), long_count - 1000);
  const TimeTag* const behind = first.data() + first.size();
  const std::span<const TimeTag> rest = queue.take_front(long_count);
  ASSERT_EQ(rest.size(), long_count - 1000);
  EXPECT_EQ(rest.data(), behind);
  EXPECT_EQ(rest.front().timestamp_ps, 1000);
}

TEST(TagQueue, EndsWhatItGivesAtTheEndOfABlock) {
  TagQueue queue;
  append(queue, 0, long_count);
  append(queue, 500'000, long_count);
  EXPECT_EQ(queue.take_front(3 * long_count).size(), long_count);
  EXPECT_EQ(queue.take_front(3 * long_count).front().timestamp_ps, 500'000);
}

TEST(TagQueue, PutsShortAppendsIntoOneBlock) {
  TagQueue queue;
  for (std::int64_t i = 0; i < 100; ++i) {
    append(queue, 10 * i, 10);
  }
  const std::span<const TimeTag> tags = queue.take_front(2000);
  ASSERT_EQ(tags.size(), 1000U);
  EXPECT_EQ(tags.back().timestamp_ps, 999);
}

TEST(TagQueue, AppendsNothingForNoTags) {
  TagQueue queue;
  append(queue, 0, 0);
  EXPECT_TRUE(queue.empty());
  EXPECT_THAT(queue.take_front(10), IsEmpty());
}

TEST(TagQueue, GivesUsedMemoryBackToWhoAppends) {
  TagQueue queue;
  std::vector<TimeTag> tags = tags_from(0, long_count);
  const TimeTag* const memory = tags.data();
  queue.append(tags);
  EXPECT_EQ(tags.capacity(), 0U);
  queue.take_front(long_count);
  queue.take_front(1);  // ends the use of what was taken before
  tags = tags_from(1, long_count);
  queue.append(tags);
  EXPECT_EQ(tags.data(), memory);
}

TEST(TagQueue, ErasesTheOldestAcrossBlocks) {
  TagQueue queue;
  append(queue, 0, long_count);
  append(queue, static_cast<std::int64_t>(long_count), long_count);
  queue.erase_front(long_count + 5);
  EXPECT_EQ(queue.size(), long_count - 5);
  EXPECT_EQ(queue.take_front(1).front().timestamp_ps, static_cast<std::int64_t>(long_count) + 5);
}

// Everything around them is erased, appended to and used up meanwhile.
TEST(TagQueue, LeavesTakenTagsReadable) {
  TagQueue queue;
  append(queue, 0, long_count);
  const std::span<const TimeTag> taken = queue.take_front(1000);
  const std::vector<TimeTag> expected(taken.begin(), taken.end());
  queue.erase_front(queue.size());
  std::vector<TimeTag> tags;
  for (int i = 0; i < 50; ++i) {
    tags.assign(long_count, {3, -1});
    queue.append(tags);
    queue.push_back({3, -2});
    queue.erase_front(queue.size() - 1);
  }
  EXPECT_TRUE(std::ranges::equal(taken, expected));
}

TEST(TagQueue, AppendsBehindTakenTagsOfTheSameBlock) {
  TagQueue queue;
  queue.push_back({0, 1});
  queue.push_back({0, 2});
  const std::span<const TimeTag> taken = queue.take_front(1);
  for (std::int64_t i = 3; i < 100'000; ++i) {
    queue.push_back({0, i});
  }
  EXPECT_THAT(taken, ElementsAre(TimeTag{0, 1}));
  EXPECT_EQ(queue.size(), 99'998U);
  EXPECT_EQ(queue.take_front(1).front().timestamp_ps, 2);
}

TEST(TagQueue, HoldsNothingOnceCleared) {
  TagQueue queue;
  append(queue, 0, long_count);
  queue.push_back({0, 1});
  queue.take_front(3);
  queue.clear();
  EXPECT_TRUE(queue.empty());
  EXPECT_THAT(queue.take_front(1), IsEmpty());
  queue.push_back({2, 9});
  EXPECT_THAT(queue.take_front(5), ElementsAre(TimeTag{2, 9}));
}

// Drains as a consumer does: until `most` tags are there or none is left.
std::vector<TimeTag> drained(TagQueue& queue, std::size_t most) {
  std::vector<TimeTag> tags;
  while (tags.size() < most && !queue.empty()) {
    const std::span<const TimeTag> piece = queue.take_front(most - tags.size());
    tags.insert(tags.end(), piece.begin(), piece.end());
  }
  return tags;
}

TEST(TagQueue, AgreesWithADequeWhateverIsDone) {
  std::mt19937_64 random(9);
  const auto below = [&random](std::size_t bound) { return random() % bound; };
  for (int round = 0; round < 40; ++round) {
    TagQueue queue;
    std::deque<TimeTag> plain;
    std::vector<TimeTag> tags;
    std::int64_t next = 0;
    std::span<const TimeTag> taken;
    std::vector<TimeTag> expected_taken;
    for (int step = 0; step < 200; ++step) {
      switch (below(5)) {
        case 0:
        case 1:  // short or long
          tags = tags_from(next, below(2) == 0 ? below(100) : below(3 * long_count));
          plain.insert(plain.end(), tags.begin(), tags.end());
          next += static_cast<std::int64_t>(tags.size());
          queue.append(tags);
          std::ranges::fill(tags, TimeTag{9, -1});
          break;
        case 2: {
          const std::size_t count = below(plain.size() + 1);
          plain.erase(plain.begin(), plain.begin() + static_cast<std::ptrdiff_t>(count));
          queue.erase_front(count);
          break;
        }
        case 3: {
          ASSERT_TRUE(std::ranges::equal(taken, expected_taken));
          taken = queue.take_front(1 + below(3 * long_count));
          ASSERT_EQ(taken.empty(), plain.empty());
          const auto end = plain.begin() + static_cast<std::ptrdiff_t>(taken.size());
          expected_taken.assign(plain.begin(), end);
          plain.erase(plain.begin(), end);
          break;
        }
        default:
          if (below(40) == 0) {
            plain.clear();
            queue.clear();
            taken = {};
            expected_taken.clear();
          }
          break;
      }
      ASSERT_EQ(queue.size(), plain.size());
      ASSERT_TRUE(std::ranges::equal(taken, expected_taken)) << round << ' ' << step;
    }
    ASSERT_TRUE(std::ranges::equal(drained(queue, plain.size() + 1), plain));
  }
}

}  // namespace
}  // namespace zelk::timing
