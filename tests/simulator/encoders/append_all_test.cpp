// However a stream's tags are divided into blocks, their bytes are those of the
// tags one by one.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <span>
#include <vector>

#include "simulator/encoders/encoder_for.hpp"
#include "simulator/encoders/packed_delta_encoder.hpp"
#include "tests/simulator/random_tags.hpp"

namespace zelk::simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Tags = std::vector<timing::TimeTag>;
using timing::Format;
using timing::StreamMode;

struct Stream {
  Format format;
  StreamMode mode = StreamMode::external;
  PackedDeltaSettings packed_delta{};
  std::uint32_t start_bits = 0;

  [[nodiscard]] std::unique_ptr<StreamEncoder> encoder() const {
    return encoder_for(format, mode, packed_delta, start_bits);
  }
};

const Stream streams[] = {
    {Format::raw64},
    {Format::raw64, StreamMode::internal},
    {Format::delta32},
    {Format::packed_delta, StreamMode::external, {.bits = 16, .quantum_ps = 8}},
    {Format::packed_delta, StreamMode::external, {.bits = 16, .quantum_ps = 8}, 13},
    {Format::packed_delta, StreamMode::external, {.bits = 24, .quantum_ps = 1}, 100'000},
    {Format::packed_delta, StreamMode::external, {.bits = 4, .quantum_ps = 1}, 7},
    {Format::packed_delta, StreamMode::external, {.bits = 5, .quantum_ps = 1024}},
    {Format::packed_delta, StreamMode::external, {.bits = 31, .quantum_ps = 4}},
};

// Also the ends of ticks come in between, where they are.
Bytes one_by_one(const Stream& stream, const Tags& tags, const std::vector<std::size_t>& flushes) {
  const auto encoder = stream.encoder();
  Bytes bytes;
  auto flush = flushes.begin();
  for (std::size_t i = 0; i < tags.size(); ++i) {
    if (flush != flushes.end() && *flush == i) {
      encoder->flush(bytes);
      ++flush;
    }
    encoder->append(tags[i], bytes);
  }
  return bytes;
}

// In blocks of random sizes, now and then with single tags between.
Bytes in_blocks(const Stream& stream, const Tags& tags, const std::vector<std::size_t>& flushes,
                std::mt19937_64& random) {
  const auto encoder = stream.encoder();
  Bytes bytes;
  auto flush = flushes.begin();
  for (std::size_t done = 0; done < tags.size();) {
    if (flush != flushes.end() && *flush == done) {
      encoder->flush(bytes);
      ++flush;
    }
    const std::size_t end = flush == flushes.end() ? tags.size() : *flush;
    const std::size_t size = std::min<std::size_t>(end - done, 1 + random() % 700);
    if (random() % 4 == 0) {
      encoder->append(tags[done++], bytes);
    } else {
      encoder->append_all(std::span(tags).subspan(done, size), bytes);
      done += size;
    }
  }
  return bytes;
}

std::vector<std::size_t> some_places(std::size_t size, std::mt19937_64& random) {
  std::vector<std::size_t> places;
  for (std::size_t at = random() % 500; at < size; at += 1 + random() % 500) {
    places.push_back(at);
  }
  return places;
}

void expect_same_bytes(const Tags& tags, std::mt19937_64& random) {
  for (const Stream& stream : streams) {
    SCOPED_TRACE(testing::Message() << "format " << static_cast<int>(stream.format) << ", "
                                    << int{stream.packed_delta.bits} << " bits");
    const auto flushes = some_places(tags.size(), random);
    const Bytes expected = one_by_one(stream, tags, flushes);
    EXPECT_TRUE(in_blocks(stream, tags, flushes, random) == expected);
    EXPECT_TRUE(in_blocks(stream, tags, flushes, random) == expected);
  }
}

// Four channels in turn, so that nearly all tags are near ones. Each channel has
// a first tag at `first_ps`, from which its epochs count.
Tags busy_tags(std::int64_t first_ps, std::int64_t begin_ps, std::int64_t largest_step_ps,
               std::mt19937_64& random) {
  Tags tags;
  for (std::uint8_t channel = 0; channel < 4; ++channel) {
    tags.push_back({channel, first_ps});
  }
  std::int64_t time_ps = begin_ps;
  for (int i = 0; i < 20'000; ++i) {
    time_ps +=
        1 + static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(largest_step_ps));
    tags.push_back({static_cast<std::uint8_t>(i % 4), time_ps});
  }
  return tags;
}

// Across bases, and the ends of epochs and counters in the middle of the list.
TEST(AppendAll, BusyStreamsAreTheSameInBlocks) {
  std::mt19937_64 random(1);
  const std::int64_t epoch_ps = 3333LL << 32;
  const std::int64_t span_ps = std::int64_t{1} << 41;
  for (const std::int64_t largest_ps : {100, 20'000, 10'000'000}) {
    const std::int64_t half_ps = 5'000 * largest_ps;
    expect_same_bytes(busy_tags(0, 0, largest_ps, random), random);
    expect_same_bytes(busy_tags(7, epoch_ps - half_ps, largest_ps, random), random);
    expect_same_bytes(busy_tags(7, span_ps - half_ps, largest_ps, random), random);
    expect_same_bytes(busy_tags(span_ps + 7, epoch_ps - half_ps, largest_ps, random), random);
    expect_same_bytes(busy_tags(span_ps + 7, span_ps + epoch_ps - half_ps, largest_ps, random),
                      random);
  }
}

// Steps of every size, up to seconds.
TEST(AppendAll, StreamsOfAllStepsAreTheSameInBlocks) {
  std::mt19937_64 random(2);
  for (const std::int64_t largest_ps : {100'000'000LL, 20'000'000'000LL, 9'000'000'000'000LL}) {
    Tags tags;
    for (std::uint8_t channel = 0; channel < 4; ++channel) {
      append_channel(
          channel, static_cast<std::int64_t>(random() % 1'000'000), 1000 * largest_ps, random,
          [&] { return log_uniform_ps(random, largest_ps); }, tags);
    }
    sort_by_time(tags);
    tags.resize(std::min<std::size_t>(tags.size(), 20'000));
    ASSERT_GT(tags.size(), 10'000U);
    expect_same_bytes(tags, random);
  }
}

// With times up to the largest that an encoder takes. Steps that no record says,
// and steps of none in ticks, are left out alike.
TEST(AppendAll, TheEdgesOfTheTimesAreTheSameInBlocks) {
  constexpr std::int64_t end_ps = std::int64_t{1} << 62;
  std::mt19937_64 random(3);
  Tags tags;
  for (const std::int64_t first_ps : {std::int64_t{0}, end_ps / 2, end_ps - 4000}) {
    for (std::int64_t i = 0; i < 4000; ++i) {
      tags.push_back({static_cast<std::uint8_t>(random() % 4), first_ps + i});
    }
  }
  expect_same_bytes(tags, random);
}

TEST(AppendAll, OfNothingAppendsNothing) {
  for (const Stream& stream : streams) {
    Bytes bytes{1, 2};
    stream.encoder()->append_all({}, bytes);
    EXPECT_EQ(bytes, (Bytes{1, 2}));
  }
}

}  // namespace
}  // namespace zelk::simulator
