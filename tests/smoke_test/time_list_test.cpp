// The list of times, on each kind of memory that this system has.
#include "smoke_test/time_list.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <typename Memory>
void append(BasicTimeList<Memory>& list, std::int64_t first, std::size_t count) {
  std::int64_t* const room = list.make_room(count);
  for (std::size_t i = 0; i < count; ++i) {
    room[i] = first + static_cast<std::int64_t>(i);
  }
  list.append_room(count);
}

// Whether the list holds 0, 1, 2 ... count - 1.
template <typename Memory>
bool counts_up(const BasicTimeList<Memory>& list, std::size_t count) {
  std::int64_t expected = 0;
  for (const std::int64_t time : list.times()) {
    if (time != expected++) {
      return false;
    }
  }
  return list.size() == count && list.times().size() == count;
}

template <typename Memory>
struct TimeLists : testing::Test {};

#if defined(__linux__) && !defined(ZELK_WITHOUT_MREMAP)
using Memories = testing::Types<CopiedMemory, MappedMemory>;
#else
using Memories = testing::Types<CopiedMemory>;
#endif
TYPED_TEST_SUITE(TimeLists, Memories);

TYPED_TEST(TimeLists, BeginEmpty) {
  const BasicTimeList<TypeParam> list;
  EXPECT_EQ(list.size(), 0U);
  EXPECT_THAT(list.times(), IsEmpty());
}

TYPED_TEST(TimeLists, KeepTheOrder) {
  BasicTimeList<TypeParam> list;
  append(list, 7, 2);
  append(list, -3, 1);
  EXPECT_THAT(list.times(), ElementsAre(7, 8, -3));
}

TYPED_TEST(TimeLists, KeepAPartOfTheRoomOnly) {
  BasicTimeList<TypeParam> list;
  std::int64_t* const room = list.make_room(1000);
  room[0] = 5;
  room[1] = 6;
  list.append_room(1);
  EXPECT_THAT(list.times(), ElementsAre(5));
  append(list, 9, 1);
  EXPECT_THAT(list.times(), ElementsAre(5, 9));
}

// Eight million times: many growths, the later ones by megabytes.
TYPED_TEST(TimeLists, KeepEveryTimeWhenTheyGrow) {
  constexpr std::size_t batch = 65'537;
  BasicTimeList<TypeParam> list;
  for (std::size_t size = 0; size < 8'000'000; size += batch) {
    append(list, static_cast<std::int64_t>(size), batch);
  }
  EXPECT_TRUE(counts_up(list, (8'000'000 / batch + 1) * batch));
}

TYPED_TEST(TimeLists, TakeALargeBatchAtOnce) {
  BasicTimeList<TypeParam> list;
  append(list, 0, 3);
  append(list, 3, 1'000'000);
  EXPECT_TRUE(counts_up(list, 1'000'003));
}

TYPED_TEST(TimeLists, GrowAfterTheirRoomWasFilledToTheLast) {
  BasicTimeList<TypeParam> list;
  for (std::int64_t i = 0; i < 1'100'000; ++i) {
    append(list, i, 1);
  }
  EXPECT_TRUE(counts_up(list, 1'100'000));
}

TYPED_TEST(TimeLists, MoveWithTheirContents) {
  BasicTimeList<TypeParam> list;
  append(list, 1, 3);
  BasicTimeList<TypeParam> moved(std::move(list));
  EXPECT_THAT(moved.times(), ElementsAre(1, 2, 3));
  BasicTimeList<TypeParam> assigned;
  append(assigned, 50, 2);
  assigned = std::move(moved);
  EXPECT_THAT(assigned.times(), ElementsAre(1, 2, 3));
  append(assigned, 4, 1);
  EXPECT_THAT(assigned.times(), ElementsAre(1, 2, 3, 4));
}

TYPED_TEST(TimeLists, ThatNoSizeCouldHoldThrowAndStayAsTheyAre) {
  BasicTimeList<TypeParam> list;
  append(list, 1, 3);
  for (const std::size_t count : {SIZE_MAX, SIZE_MAX / 8}) {
    EXPECT_THROW(list.make_room(count), std::bad_alloc) << count;
  }
  append(list, 4, 1);
  EXPECT_THAT(list.times(), ElementsAre(1, 2, 3, 4));
}

#if defined(__linux__) && !defined(ZELK_WITHOUT_MREMAP)

TEST(TimeList, BeyondTheAddressSpaceThrowsAndStaysAsItIs) {
  BasicTimeList<MappedMemory> list;
  append(list, 1, 3);
  EXPECT_THROW(list.make_room(std::size_t{1} << 50), std::bad_alloc);
  append(list, 4, 1);
  EXPECT_THAT(list.times(), ElementsAre(1, 2, 3, 4));
}

#endif

// Memory that looks at what is prepared: whole 64 KiB inside it, each once.
struct WatchedMemory {
  static inline std::uintptr_t begin = 0;
  static inline std::size_t size = 0;
  static inline std::size_t prepared = 0;

  static void* resize(void* memory, std::size_t old_bytes, std::size_t bytes) {
    void* const grown = CopiedMemory::resize(memory, old_bytes, bytes);
    begin = reinterpret_cast<std::uintptr_t>(grown);
    size = bytes;
    return grown;
  }
  static void prepare(void* memory, std::size_t bytes) {
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) - begin, prepared);
    EXPECT_EQ(bytes % (std::size_t{64} << 10), 0U);
    prepared += bytes;
    EXPECT_LE(prepared, size);
  }
};

TEST(TimeList, PreparesItsMemoryAtMost64KibibytesAhead) {
  BasicTimeList<WatchedMemory> list;
  for (std::size_t i = 0; i < 300; ++i) {
    append(list, 0, 10'007);
    const std::size_t bytes = list.size() * sizeof(std::int64_t);
    if (i < 10) {
      EXPECT_EQ(WatchedMemory::prepared, 0U);  // a short list takes what it writes
    } else if (i > 20) {
      EXPECT_GE(WatchedMemory::prepared, bytes);
      EXPECT_LT(WatchedMemory::prepared, bytes + (std::size_t{64} << 10));
    }
  }
}

// Memory that ends at 8 MiB, and tells how much of it is in use.
struct ScarceMemory {
  static inline std::size_t in_use = 0;

  static void* resize(void* memory, std::size_t old_bytes, std::size_t bytes) {
    if (bytes > std::size_t{8} << 20) {
      return nullptr;
    }
    in_use += bytes - old_bytes;
    return CopiedMemory::resize(memory, old_bytes, bytes);
  }
  static void prepare(void* /*memory*/, std::size_t /*bytes*/) {}
};

TEST(TimeList, KeepsWhatItHasWhenMemoryEnds) {
  {
    BasicTimeList<ScarceMemory> list;
    std::size_t size = 0;
    EXPECT_THROW(
        for (;; ++size) { append(list, static_cast<std::int64_t>(size), 1); }, std::bad_alloc);
    EXPECT_TRUE(counts_up(list, size));
    EXPECT_GE(size, std::size_t{6} << 17);  // three quarters of it are in use
    EXPECT_LE(ScarceMemory::in_use, std::size_t{8} << 20);
  }
  EXPECT_EQ(ScarceMemory::in_use, 0U);
}

}  // namespace
