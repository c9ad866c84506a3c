// Streams of every kind through the product's packed_delta decoder and the
// literal one.
#include "tests/timing/packed_comparison.hpp"

namespace zelk::timing {
namespace {

using namespace test_support;

using Bytes = std::vector<std::uint8_t>;
using Case = PackedCase;

// Every width in turn, every quantum for every width, the rest at random.
PackedStream stream_of(std::uint64_t seed, Random& random) {
  static constexpr unsigned quanta[] = {1, 2, 3, 8, 12, 1024};
  const std::uint64_t width = seed % 34;
  PackedStream stream;
  stream.bits = width <= 32 ? static_cast<unsigned>(width) : 255;
  stream.quantum_ps = quanta[seed / 34 % 6];
  stream.mode = random.percent(50) ? internal_mode : external_mode;
  stream.mask = random.percent(25) ? 0 : static_cast<unsigned>(1 + random.below(15));
  if (random.percent(5)) {
    stream.mask |= 0xA0;  // bits that name no channel
  }
  return stream;
}

enum class Kind { clean, shifted, behind_junk, spoilt, noise, restless, forced };

Case make_case(Kind kind, std::uint64_t seed) {
  Random random(seed * 7 + static_cast<std::uint64_t>(kind));
  Case c;
  c.seed = seed;
  c.stream = stream_of(seed, random);
  c.is_debug_on = !random.percent(10);
  c.lock = kind == Kind::forced ? Case::Lock::given_with_times : Case::Lock::found;
  const std::size_t record_bits = (c.stream.bits > 31 ? 16 : c.stream.bits) + 3;
  // Enough for a sync on each channel and some records behind it.
  const std::size_t syncs_bits = 4 * (41 + 4 * record_bits);
  std::size_t length = syncs_bits + record_bits * random.below(40);
  if (kind == Kind::forced) {
    length = record_bits * (random.percent(10) ? 6000 : 50 + random.below(500));
  }
  PackedStreamGenerator generator(random, c.stream);
  std::vector<bool> bits;
  switch (kind) {
    case Kind::noise:
      bits = random_bits(length / 2, random);
      break;
    case Kind::restless:
      bits = generator.restless_stream(length);
      break;
    case Kind::shifted:
      bits = generator.device_stream(length);
      bits.erase(bits.begin(), bits.begin() + static_cast<std::ptrdiff_t>(seed / 34 % 80));
      break;
    case Kind::behind_junk:
      bits = random_bits(1 + random.below(random.percent(20) ? 700 : 100), random);
      for (const bool bit : generator.device_stream(length)) {
        bits.push_back(bit);
      }
      break;
    default:
      bits = generator.device_stream(length);
      break;
  }
  if (kind == Kind::spoilt || (kind == Kind::forced && random.percent(30))) {
    spoil(bits, random);
  }
  c.bytes = PackedStreamBuilder::packed_bytes(bits);
  const std::uint64_t budget_bits = random.percent(4) ? 10'000'000 : 1'500'000;
  choose_chunks(c, random.pick(packed_chunk_sizes),
                kind == Kind::forced ? UINT64_MAX : budget_bits);
  return c;
}

Reached compare_kind(Kind kind, std::uint64_t count) {
  Reached reached;
  for (std::uint64_t seed = 0; seed < count; ++seed) {
    if (const auto difference = compare(make_case(kind, seed), reached)) {
      ADD_FAILURE() << *difference;
      break;
    }
  }
  return reached;
}

TEST(PackedDifferentialTest, CleanStreams) {
  const Reached reached = compare_kind(Kind::clean, 408);
  EXPECT_GT(reached.tags, 1000U);
  EXPECT_GT(reached.lines, 100U);
}

TEST(PackedDifferentialTest, StreamsThatStartAtAnyBit) {
  EXPECT_GT(compare_kind(Kind::shifted, 408).tags, 1000U);
}

TEST(PackedDifferentialTest, StreamsBehindJunk) {
  EXPECT_GT(compare_kind(Kind::behind_junk, 408).tags, 1000U);
}

TEST(PackedDifferentialTest, StreamsWithBitsFlippedAddedAndRemoved) {
  EXPECT_GT(compare_kind(Kind::spoilt, 612).tags, 1000U);
}

TEST(PackedDifferentialTest, Noise) {
  compare_kind(Kind::noise, 204);
}

TEST(PackedDifferentialTest, RecordsWithoutAPlan) {
  const Reached reached = compare_kind(Kind::restless, 612);
  EXPECT_GT(reached.tags, 1000U);
  EXPECT_GT(reached.lines, 200U);
}

TEST(PackedDifferentialTest, LockedStreamsNextToEveryThreshold) {
  const Reached reached = compare_kind(Kind::forced, 1632);
  EXPECT_GT(reached.tags, 100'000U);
  EXPECT_GT(reached.lines, 2000U);
}

Case constant_case(std::uint64_t seed, const PackedStream& stream, std::uint8_t byte,
                   std::size_t size, std::size_t chunk_bytes) {
  return {.seed = seed, .stream = stream, .bytes = Bytes(size, byte), .chunk_bytes = chunk_bytes};
}

TEST(PackedDifferentialTest, AllZerosAndAllOnes) {
  std::vector<Case> cases;
  for (unsigned bits = 1; bits <= 31; ++bits) {
    for (const StreamMode mode : {internal_mode, external_mode}) {
      for (const unsigned mask : {0U, 1U, 8U}) {
        for (const int byte : {0x00, 0xFF}) {
          cases.push_back(constant_case(cases.size(), {.mode = mode, .mask = mask, .bits = bits},
                                        static_cast<std::uint8_t>(byte), 120, 60));
        }
      }
    }
  }
  compare_all(cases);
}

// Streams without alignment up to and beyond the size that is cut back.
TEST(PackedDifferentialTest, LongStreamsWithoutAlignment) {
  EXPECT_GE(compare_all({constant_case(0, {.mask = 1, .bits = 1}, 0x00, 70'000, 65'536),
                         constant_case(1, {.mask = 1, .bits = 2}, 0xFF, 262'144, 262'144),
                         constant_case(2, {.mask = 4, .bits = 9}, 0x55, 65'537, 65'536),
                         constant_case(3, {.mode = internal_mode, .mask = 0, .bits = 1}, 0x00,
                                       140'000, 70'000)})
                .lines,
            7U);
}

// The cut leaves 4096 bytes, and the lock is found behind them later.
TEST(PackedDifferentialTest, LockFoundAfterACut) {
  Random random(1);
  const PackedStream stream = {.mask = 1, .bits = 7};
  Case c = constant_case(0, stream, 0x2A, 66'000, 33'000);
  PackedStreamGenerator generator(random, stream);
  const Bytes tail = PackedStreamBuilder::packed_bytes(generator.calm().device_stream(4'000));
  c.bytes.insert(c.bytes.end(), tail.begin(), tail.end());
  EXPECT_GT(compare_all({c}).tags, 100U);
}

// Long streams of two channels that find their own lock.
TEST(PackedDifferentialTest, LongStreamsWithAlignment) {
  std::vector<Case> cases;
  for (const unsigned bits : {1U, 2U, 5U, 13U}) {
    Random random(bits);
    const PackedStream stream = {.mode = internal_mode, .mask = 3, .bits = bits};
    PackedStreamGenerator generator(random, stream);
    cases.push_back({.seed = bits,
                     .stream = stream,
                     .bytes = PackedStreamBuilder::packed_bytes(
                         generator.calm().device_stream(20'000 + 2'000 * bits)),
                     .chunk_bytes = bits == 13 ? 1'000U : 262'144U});
  }
  EXPECT_GT(compare_all(cases).tags, 2000U);
}

// Calls of more than 4095 tags, balanced and not.
TEST(PackedDifferentialTest, LockedStreamsOfManyTagsACall) {
  std::vector<Case> cases;
  for (std::uint64_t seed = 0; seed < 60; ++seed) {
    Random random(seed);
    const PackedStream stream = {.mode = seed % 4 == 0 ? external_mode : internal_mode,
                                 .mask = static_cast<unsigned>(1 + random.below(15)),
                                 .bits = static_cast<unsigned>(8 + random.below(24))};
    PackedStreamGenerator generator(random, stream);
    const std::size_t records = 3'000 + random.below(12'000);
    cases.push_back({.seed = seed,
                     .stream = stream,
                     .bytes = PackedStreamBuilder::packed_bytes(
                         generator.calm().device_stream(records * (stream.bits + 3))),
                     .chunk_bytes = 262'144,
                     .lock = Case::Lock::given});
  }
  EXPECT_GT(compare_all(cases).lines, 10U);
}

// The records that the decoder has fast loops for, in chunks of any size, between
// records that end such a loop: syncs, channels without a time or not active,
// deltas next to a threshold, and sums next to their limits.
TEST(PackedDifferentialTest, CommonRecordsBetweenAllOthers) {
  Reached reached;
  for (std::uint64_t seed = 0; seed < 744; ++seed) {
    Random random(seed);
    PackedCase c;
    c.seed = seed;
    c.stream = stream_of(seed, random);
    c.stream.bits = static_cast<unsigned>(1 + seed % 31);
    c.stream.mask = random.percent(60) ? 0 : c.stream.mask;
    c.lock = random.percent(50) ? Case::Lock::given_with_times : Case::Lock::given_with_extremes;
    c.chunk_bytes = random.pick(std::array<std::size_t, 5>{9, 40, 300, 3000, 30'000});
    c.is_chunk_random = true;
    const int bits = static_cast<int>(c.stream.bits);
    const std::uint64_t overflow_percent = random.pick(std::array<std::uint64_t, 4>{0, 1, 30, 90});
    const std::uint64_t sync_permille = random.pick(std::array<std::uint64_t, 3>{0, 1, 30});
    PackedStreamBuilder builder(bits);
    for (std::uint64_t n = random.below(4000); n > 0; --n) {
      const auto channel = static_cast<unsigned>(random.below(4));
      if (random.below(1000) < sync_permille) {
        builder.synced_tag(channel, random.bits() >> random.below(64), 0);
      } else if (random.percent(overflow_percent)) {
        // All ones would be a sync start.
        builder.overflow(channel, (random.bits() >> random.below(64)) & ~std::uint64_t{1});
      } else {
        builder.tag(channel, random.bits() >> random.below(64));
      }
    }
    c.bytes = PackedStreamBuilder::packed_bytes(builder.bits());
    const auto difference = compare(c, reached);
    ASSERT_FALSE(difference) << *difference;
  }
  EXPECT_GT(reached.tags, 100'000U);
  EXPECT_GT(reached.lines, 1000U);
}

}  // namespace
}  // namespace zelk::timing
