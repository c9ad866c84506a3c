// Laws of the raw64 and delta32 paths, tried on thousands of seeded streams:
// how the bytes are cut into calls does not matter, and after each call the
// decoder agrees with a plain second implementation in tags, pending bytes and
// state.
#include <gtest/gtest.h>

#include <limits>

#include "tests/reference/literal_delta32.hpp"
#include "tests/reference/literal_raw64.hpp"
#include "tests/support/random_streams.hpp"
#include "tests/support/stream_headers.hpp"
#include "timing/stream_decoder.hpp"

namespace zelk::timing {
namespace {

using reference::LiteralDelta32;
using reference::LiteralRaw64;
using test_support::Bytes;
using test_support::RandomStreams;
using Tags = std::vector<TimeTag>;

constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

StreamDecoder decoder_for(Format format, StreamMode mode) {
  return StreamDecoder(test_support::stream_header(format, mode));
}

StreamDecoder raw64_decoder(bool coarse_fine) {
  return decoder_for(Format::raw64, coarse_fine ? StreamMode::internal : StreamMode::external);
}

StreamDecoder delta32_decoder() {
  return decoder_for(Format::delta32, StreamMode::external);
}

LiteralRaw64 literal_raw64(bool coarse_fine) {
  LiteralRaw64 literal;
  literal.timestamp_layout = coarse_fine ? "raw_cf" : "ps";
  literal.fill_fine_corrections();
  return literal;
}

// The streams of one seed: clean, damaged lightly and heavily, or noise.
Bytes raw64_stream(RandomStreams& random, bool coarse_fine) {
  const std::size_t count = 1 + random.below(60);
  const Bytes clean = coarse_fine ? random.cf_records(count) : random.ps_records(count);
  switch (random.below(4)) {
    case 0:
      return clean;
    case 1:
      return random.damaged(clean, 50);
    case 2:
      return random.damaged(clean, 6);
    default:
      return random.raw64_noise(8 * count);
  }
}

Bytes delta32_stream(RandomStreams& random) {
  const std::size_t count = 1 + random.below(100);
  switch (random.below(6)) {
    case 0:
      return random.delta32_recording(count).bytes;
    case 1:
      return random.damaged(random.delta32_recording(count).bytes, 60);
    case 2:
      return random.damaged(random.delta32_words(count), 40);
    case 3:
      return random.delta32_noise(4 * count);
    default:
      return random.delta32_words(count);
  }
}

// From single bytes to whole streams.
std::size_t longest_chunk(RandomStreams& random) {
  return random.one_of<std::size_t>({1, 2, 3, 5, 9, 33, 400, 4000});
}

template <typename Decoder>
Tags decoded_in_chunks(Decoder& decoder, const Bytes& bytes,
                       const std::vector<std::size_t>& chunk_sizes) {
  Tags all;
  std::size_t offset = 0;
  for (const std::size_t size : chunk_sizes) {
    const Tags tags = decoder.feed(bytes.data() + offset, size);
    all.insert(all.end(), tags.begin(), tags.end());
    offset += size;
  }
  return all;
}

bool same_state(const StreamDecoder& decoder, const LiteralRaw64& literal) {
  for (std::size_t ch = 0; ch < 4; ++ch) {
    if (decoder.raw64.at(ch).last_raw != literal.last_raw.at(ch) ||
        decoder.raw64.at(ch).has_last != literal.has_last.at(ch)) {
      return false;
    }
  }
  return decoder.pending == literal.pending && decoder.epoch_offset_ps == literal.epoch_offset_ps;
}

bool same_state(const StreamDecoder& decoder, const LiteralDelta32& literal) {
  return decoder.pending == literal.pending && decoder.last_ps == literal.last_ps &&
         decoder.has_time == literal.has_time && decoder.d32_locked == literal.d32_locked &&
         decoder.d32_state == literal.d32_state && decoder.d32_base_low == literal.d32_base_low &&
         decoder.d32_base == literal.d32_base && decoder.d32_base_valid == literal.d32_base_valid &&
         decoder.d32_overflow == literal.d32_overflow;
}

// Feeds both the same chunks and stops at the first call after which they
// differ. Returns the number of tags, so that a test can tell that it saw any.
template <typename Literal>
std::size_t tags_agreed_on(StreamDecoder& decoder, Literal& literal, const Bytes& bytes,
                           const std::vector<std::size_t>& chunk_sizes) {
  std::size_t count = 0;
  std::size_t offset = 0;
  Tags tags;
  for (const std::size_t size : chunk_sizes) {
    decoder.feed(bytes.data() + offset, size, tags);
    const Tags expected = literal.feed(bytes.data() + offset, size);
    if (tags != expected || !same_state(decoder, literal)) {
      ADD_FAILURE() << "bytes " << offset << " to " << offset + size << " of " << bytes.size()
                    << ": " << tags.size() << " tags, expected " << expected.size() << "; pending "
                    << decoder.pending.size() << ", expected " << literal.pending.size();
      return count;
    }
    count += tags.size();
    offset += size;
  }
  return count;
}

// ---- Cutting the bytes differently -----------------------------------------

TEST(SplitPropertyTest, AnySplitOfAnyRaw64InputGivesTheSameTags) {
  std::size_t tags_seen = 0;
  for (std::uint64_t seed = 1; seed <= 1500; ++seed) {
    RandomStreams random(seed);
    const bool coarse_fine = random.one_in(2);
    const Bytes bytes = raw64_stream(random, coarse_fine);
    StreamDecoder whole = raw64_decoder(coarse_fine);
    StreamDecoder split = raw64_decoder(coarse_fine);
    const Tags expected = whole.feed(bytes.data(), bytes.size());
    const std::size_t longest = longest_chunk(random);
    ASSERT_EQ(decoded_in_chunks(split, bytes, random.chunk_sizes(bytes.size(), longest)), expected)
        << "seed " << seed;
    ASSERT_EQ(split.pending, whole.pending) << "seed " << seed;
    tags_seen += expected.size();
  }
  EXPECT_GT(tags_seen, 20'000U);
}

TEST(SplitPropertyTest, AnySplitOfADelta32StreamThatKeepsItsLockGivesItsTags) {
  for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
    RandomStreams random(seed);
    const RandomStreams::Delta32Recording recording =
        random.delta32_recording(4 + random.below(200));
    // Bytes from before the recording, none of which can begin a sync word.
    const Bytes bytes = test_support::joined({Bytes(random.below(9), 0x5A), recording.bytes});
    StreamDecoder decoder = delta32_decoder();
    const std::size_t longest = longest_chunk(random);
    ASSERT_EQ(decoded_in_chunks(decoder, bytes, random.chunk_sizes(bytes.size(), longest)),
              recording.tags)
        << "seed " << seed;
    ASSERT_TRUE(decoder.d32_locked) << "seed " << seed;
    ASSERT_TRUE(decoder.pending.empty()) << "seed " << seed;
  }
}

// ---- Agreeing with the plain implementation --------------------------------

std::size_t compare_raw64(std::uint64_t seed, bool coarse_fine, bool extreme) {
  RandomStreams random(seed);
  StreamDecoder decoder = raw64_decoder(coarse_fine);
  LiteralRaw64 literal = literal_raw64(coarse_fine);
  if (extreme) {
    for (std::size_t ch = 0; ch < 4; ++ch) {
      decoder.epoch_offset_ps.at(ch) = literal.epoch_offset_ps.at(ch) =
          random.one_of<std::int64_t>({lowest, highest, -1, highest / 3333, lowest / 3333});
    }
    decoder.fine_correction_ps = {highest, lowest, -1, 5};
    literal.fine_correction_ps = decoder.fine_correction_ps;
  }
  const Bytes bytes = raw64_stream(random, coarse_fine);
  const std::size_t longest = longest_chunk(random);
  return tags_agreed_on(decoder, literal, bytes, random.chunk_sizes(bytes.size(), longest));
}

TEST(Raw64AgreementTest, PsLayoutAgreesAfterEachCall) {
  std::size_t tags_seen = 0;
  for (std::uint64_t seed = 1; seed <= 2000 && !HasFailure(); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    tags_seen += compare_raw64(seed, false, false);
  }
  EXPECT_GT(tags_seen, 30'000U);
}

TEST(Raw64AgreementTest, CoarseFineLayoutAgreesAfterEachCall) {
  std::size_t tags_seen = 0;
  for (std::uint64_t seed = 1; seed <= 2000 && !HasFailure(); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    tags_seen += compare_raw64(seed, true, false);
  }
  EXPECT_GT(tags_seen, 30'000U);
}

TEST(Raw64AgreementTest, BothLayoutsAgreeWhereTimesOverflow) {
  std::size_t tags_seen = 0;
  for (std::uint64_t seed = 1; seed <= 1000 && !HasFailure(); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    tags_seen += compare_raw64(seed, seed % 2 == 0, true);
  }
  EXPECT_GT(tags_seen, 15'000U);
}

TEST(Delta32AgreementTest, AgreesAfterEachCall) {
  std::size_t tags_seen = 0;
  std::size_t locks_lost = 0;
  for (std::uint64_t seed = 1; seed <= 4000 && !HasFailure(); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    RandomStreams random(seed);
    StreamDecoder decoder = delta32_decoder();
    LiteralDelta32 literal;
    const Bytes bytes = delta32_stream(random);
    const std::size_t longest = longest_chunk(random);
    tags_seen += tags_agreed_on(decoder, literal, bytes, random.chunk_sizes(bytes.size(), longest));
    locks_lost += decoder.d32_locked ? 0 : 1;
  }
  EXPECT_GT(tags_seen, 50'000U);
  EXPECT_GT(locks_lost, 500U);
}

// Times within reach of every rule's boundary, and of both ends of the range.
std::int64_t extreme_time(RandomStreams& random) {
  constexpr std::int64_t epoch = 14'315'125'997'568;
  constexpr std::int64_t span = 2'199'023'255'552;
  const auto near = static_cast<std::int64_t>(random.below(5)) - 2;
  return random.one_of<std::int64_t>(
      {lowest, lowest + 7, -1, 0, 1, highest, highest - span / 2 + near, highest - 2 * span,
       epoch - 10'000'000'000 + near, 5 * span + span / 2 + near, 7 * span + near});
}

TEST(Delta32AgreementTest, AgreesWhereTimesOverflowAndAtEveryBoundary) {
  std::size_t tags_seen = 0;
  for (std::uint64_t seed = 1; seed <= 4000 && !HasFailure(); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    RandomStreams random(seed);
    StreamDecoder decoder = delta32_decoder();
    LiteralDelta32 literal;
    for (std::size_t ch = 0; ch < 4; ++ch) {
      decoder.last_ps.at(ch) = literal.last_ps.at(ch) = extreme_time(random);
      decoder.has_time.at(ch) = literal.has_time.at(ch) = !random.one_in(5);
    }
    decoder.d32_locked = literal.d32_locked = true;
    decoder.d32_base_valid = literal.d32_base_valid = random.one_in(2);
    decoder.d32_base = literal.d32_base = random.any();
    decoder.d32_overflow = literal.d32_overflow =
        random.one_of<std::uint64_t>({0, 32'128, std::uint64_t{1} << 38, std::uint64_t{1} << 63,
                                      std::numeric_limits<std::uint64_t>::max()});
    const Bytes bytes = random.delta32_words(1 + random.below(40));
    const std::size_t longest = longest_chunk(random);
    tags_seen += tags_agreed_on(decoder, literal, bytes, random.chunk_sizes(bytes.size(), longest));
  }
  EXPECT_GT(tags_seen, 10'000U);
}

// ---- Streams of many tags a call --------------------------------------------

TEST(Raw64AgreementTest, LongStreamsAgreeAfterEachCall) {
  std::size_t tags_seen = 0;
  for (std::uint64_t seed = 1; seed <= 40 && !HasFailure(); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    RandomStreams random(seed);
    const bool coarse_fine = random.one_in(2);
    StreamDecoder decoder = raw64_decoder(coarse_fine);
    LiteralRaw64 literal = literal_raw64(coarse_fine);
    const Bytes clean = coarse_fine ? random.cf_records(6000) : random.ps_records(6000);
    const Bytes bytes = random.one_in(2) ? clean : random.damaged(clean, 3000);
    tags_seen += tags_agreed_on(decoder, literal, bytes, random.chunk_sizes(bytes.size(), 40'000));
  }
  EXPECT_GT(tags_seen, 200'000U);
}

TEST(Delta32AgreementTest, LongStreamsAgreeAfterEachCall) {
  std::size_t tags_seen = 0;
  for (std::uint64_t seed = 1; seed <= 40 && !HasFailure(); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    RandomStreams random(seed);
    StreamDecoder decoder = delta32_decoder();
    LiteralDelta32 literal;
    const Bytes clean = random.delta32_recording(5000).bytes;
    const Bytes bytes = random.one_in(2) ? clean : random.damaged(clean, 3000);
    tags_seen += tags_agreed_on(decoder, literal, bytes, random.chunk_sizes(bytes.size(), 20'000));
  }
  EXPECT_GT(tags_seen, 100'000U);
}

}  // namespace
}  // namespace zelk::timing
