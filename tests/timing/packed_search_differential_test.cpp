// The product's alignment search against the literal one, on streams in which
// many candidates compete, as a whole and while the bytes arrive.
#include "tests/timing/packed_comparison.hpp"

namespace zelk::timing {
namespace {

using namespace test_support;

PackedCase make_rival_case(std::uint64_t seed, unsigned bits) {
  Random random(seed);
  PackedCase c;
  c.seed = seed;
  c.stream.bits = bits;
  c.stream.mode = random.percent(50) ? internal_mode : external_mode;
  c.stream.mask = random.percent(40) ? 0 : static_cast<unsigned>(1 + random.below(15));
  // A zero record is a tag of channel 0: most streams must bear it.
  if (c.stream.mask != 0 && random.percent(80)) {
    c.stream.mask |= 1;
  }
  PackedStreamGenerator generator(random, c.stream);
  const std::size_t length = 4 * (44 + 5 * bits) * (1 + random.below(4));
  std::vector<bool> stream = generator.rival_streams(length);
  if (random.percent(30)) {
    spoil(stream, random);
  }
  c.bytes = PackedStreamBuilder::packed_bytes(stream);
  choose_chunks(c, random.pick(packed_chunk_sizes), 2'000'000);
  return c;
}

// Every prefix of a stream has its own best candidate, and its own rejected one.
std::optional<std::string> compare_probes(const PackedCase& c, std::size_t& found) {
  const PackedDebugSwitch debug;
  LiteralPackedDecoder literal = make_packed_decoder<LiteralPackedDecoder>(c.stream);
  StreamDecoder product = make_packed_decoder<StreamDecoder>(c.stream);
  const int bits = static_cast<int>(c.stream.bits);
  for (std::size_t size : {c.bytes.size(), c.bytes.size() * 2 / 3, c.bytes.size() / 3}) {
    literal.pending.assign(c.bytes.begin(), c.bytes.begin() + static_cast<std::ptrdiff_t>(size));
    product.pending = literal.pending;
    const auto probe = [&](auto& decoder) {
      std::ostringstream text;
      const Lines lines = lines_written(decoder, [&] {
        const auto alignment = decoder.probe_packed_alignment(bits, bits + 3);
        text << alignment.found << ' ' << alignment.drop_bytes << ' ' << alignment.bit_offset;
        found += alignment.found ? 1 : 0;
      });
      return text.str() + ' ' + ::testing::PrintToString(lines);
    };
    Difference difference;
    difference.field("alignment", probe(literal), probe(product));
    if (difference.found()) {
      return seed_and_call(c, 0) + "first " + std::to_string(size) + " bytes, " +
             *difference.found();
    }
  }
  return std::nullopt;
}

TEST(PackedSearchDifferentialTest, CompetingCandidatesOfAWholeStream) {
  std::size_t found = 0;
  for (std::uint64_t seed = 0; seed < 620; ++seed) {
    const auto difference =
        compare_probes(make_rival_case(seed, static_cast<unsigned>(1 + seed % 31)), found);
    ASSERT_FALSE(difference) << *difference;
  }
  EXPECT_GT(found, 500U);
}

TEST(PackedSearchDifferentialTest, CompetingCandidatesWhileTheBytesArrive) {
  Reached reached;
  for (std::uint64_t seed = 0; seed < 620; ++seed) {
    const auto difference =
        compare(make_rival_case(1000 + seed, static_cast<unsigned>(1 + seed % 31)), reached);
    ASSERT_FALSE(difference) << *difference;
  }
  EXPECT_GT(reached.tags, 1000U);
}

// Two channels of which one has far more tags: the search never ends, and each
// call reports the best of the rejected candidates.
TEST(PackedSearchDifferentialTest, RejectedCandidatesWhileTheBytesArrive) {
  Reached reached;
  for (std::uint64_t seed = 0; seed < 62; ++seed) {
    Random random(seed);
    PackedCase c;
    c.seed = seed;
    c.stream = {.mode = internal_mode, .mask = 3, .bits = static_cast<unsigned>(1 + seed % 31)};
    PackedStreamBuilder builder(static_cast<int>(c.stream.bits));
    builder.raw_bits(random.bits(), static_cast<int>(random.below(64)));
    for (std::uint64_t n = 1 + random.below(4); n > 0; --n) {
      if (random.percent(20)) {
        builder.sync_start(1);
      }
      builder.synced_tag(0, 0, 0).tags(0, 4, 0);
    }
    while (builder.bit_count() < 100 * (c.stream.bits + 3)) {
      builder.tags(0, 3 + random.below(9), 0).synced_tag(1, 0, 0);
    }
    c.bytes = PackedStreamBuilder::packed_bytes(builder.bits());
    choose_chunks(c, 1, 12'000'000);
    const auto difference = compare(c, reached);
    ASSERT_FALSE(difference) << *difference;
  }
  EXPECT_GT(reached.lines, 300U);
}

// Bytes in which syncs begin and break off everywhere: all ones with some bytes
// changed, or records of which hardly any belong together. The end of the latter
// can be locked on.
std::vector<std::uint8_t> restless_bytes(std::uint64_t seed, unsigned bits, unsigned mask,
                                         Random& random) {
  std::vector<std::uint8_t> bytes(400 + random.below(600), 0xFF);
  const std::uint64_t damage = random.pick(std::array<std::uint64_t, 4>{0, 1, 10, 100});
  if (seed % 2 == 0) {
    for (std::uint8_t& byte : bytes) {
      byte = random.percent(damage) ? static_cast<std::uint8_t>(random.bits()) : byte;
    }
    return bytes;
  }
  const auto active_channel = [&] {
    unsigned channel = 0;
    do {
      channel = static_cast<unsigned>(random.below(4));
    } while (mask != 0 && (mask >> channel & 1) == 0);
    return channel;
  };
  PackedStreamBuilder builder(static_cast<int>(bits));
  while (builder.bit_count() < 8 * bytes.size()) {
    const unsigned channel = active_channel();
    builder.sync_start(channel);
    builder.tags(random.percent(damage) ? 3 - channel : channel, random.below((bits + 40) / bits),
                 random.bits());
  }
  for (int i = 0; i < 12; ++i) {
    const unsigned channel = active_channel();
    builder.synced_tag(channel, random.bits(), 1).tags(channel, 3, 0);
  }
  return PackedStreamBuilder::packed_bytes(builder.bits());
}

// Far behind the last start, where each scan passes many records by itself.
TEST(PackedSearchDifferentialTest, SyncsThatBreakOffFarBehindTheLastStart) {
  std::size_t found = 0;
  for (std::uint64_t seed = 0; seed < 186; ++seed) {
    Random random(seed);
    PackedCase c;
    c.seed = seed;
    c.stream.bits = static_cast<unsigned>(1 + seed / 2 % 31);
    c.stream.mode = random.percent(50) ? internal_mode : external_mode;
    c.stream.mask = random.percent(40) ? 0 : static_cast<unsigned>(1 + random.below(15));
    c.bytes = restless_bytes(seed, c.stream.bits, c.stream.mask, random);
    const auto difference = compare_probes(c, found);
    ASSERT_FALSE(difference) << *difference;
  }
  EXPECT_GT(found, 100U);
}

TEST(PackedSearchDifferentialTest, SyncsThatBreakOffWhileTheBytesArrive) {
  Reached reached;
  for (std::uint64_t seed = 0; seed < 124; ++seed) {
    Random random(seed);
    PackedCase c;
    c.seed = seed;
    c.stream.bits = static_cast<unsigned>(1 + seed / 2 % 31);
    c.stream.mask = random.percent(40) ? 0 : static_cast<unsigned>(1 + random.below(15));
    c.bytes = restless_bytes(seed, c.stream.bits, c.stream.mask, random);
    choose_chunks(c, random.pick(packed_chunk_sizes), 6'000'000);
    const auto difference = compare(c, reached);
    ASSERT_FALSE(difference) << *difference;
  }
  EXPECT_GT(reached.tags, 500U);
}

}  // namespace
}  // namespace zelk::timing
