// Running out of memory inside feed(): the call that could not be finished has
// decoded nothing, and the next one makes up for it. Every allocation of a whole
// stream fails once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>
#include <vector>

#include "tests/support/stream_headers.hpp"
#include "tests/support/wire_words.hpp"
#include "tests/timing/packed_stream_builder.hpp"
#include "timing/stream_decoder.hpp"

namespace {

constexpr int never = std::numeric_limits<int>::max();
int allocations_to_go = never;  // until the one that fails

}  // namespace

// Not inlined: g++ 12 takes half of an inlined pair for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (allocations_to_go != never && allocations_to_go-- == 0) {
    allocations_to_go = never;
    throw std::bad_alloc();
  }
  void* memory = std::malloc(size);
  return memory != nullptr ? memory : throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

namespace zelk::timing {
namespace {

using test_support::append_big_endian;
using test_support::Bytes;
using test_support::PackedStreamBuilder;
using test_support::stream_header;
using Tags = std::vector<TimeTag>;

constexpr std::size_t chunk_bytes = 300;  // no whole number of records

struct Run {
  Tags tags;
  bool failed = false;
};

// Feeds the stream in chunks, while the allocation of this number fails. What
// the failing call could not take is handed over again.
Run feed_with_failure(const StreamFileHeader& header, const Bytes& bytes, int failing_allocation) {
  Run run;
  StreamDecoder decoder(header);
  run.tags.reserve(bytes.size());
  allocations_to_go = failing_allocation;
  for (std::size_t done = 0; done < bytes.size(); done += chunk_bytes) {
    const std::size_t size = std::min(chunk_bytes, bytes.size() - done);
    const std::size_t waiting = decoder.pending.size();
    Tags tags;
    try {
      tags = decoder.feed(bytes.data() + done, size);
    } catch (const std::bad_alloc&) {
      run.failed = true;
      const bool is_taken = decoder.pending.size() != waiting;
      tags = is_taken ? decoder.feed(nullptr, 0) : decoder.feed(bytes.data() + done, size);
    }
    run.tags.insert(run.tags.end(), tags.begin(), tags.end());
  }
  allocations_to_go = never;
  return run;
}

void expect_the_same_tags_whichever_fails(Format format, StreamMode mode, const Bytes& bytes,
                                          std::size_t stream_tags) {
  const StreamFileHeader header = stream_header(format, mode);
  const Tags expected = feed_with_failure(header, bytes, never).tags;
  ASSERT_EQ(expected.size(), stream_tags);
  int failing = 0;
  for (bool failed = true; failed; ++failing) {
    const Run run = feed_with_failure(header, bytes, failing);
    ASSERT_EQ(run.tags, expected) << "allocation " << failing;
    failed = run.failed;
  }
  EXPECT_GT(failing, 10);
}

TEST(DecoderMemoryTest, Raw64LosesNothing) {
  Bytes bytes;
  for (unsigned i = 0; i < 200; ++i) {
    append_big_endian(bytes, test_support::ps_record(i % 4, 1'000'000'000'000ULL * i), 8);
  }
  expect_the_same_tags_whichever_fails(Format::raw64, StreamMode::external, bytes, 200);
}

TEST(DecoderMemoryTest, Delta32LosesNothing) {
  Bytes bytes;
  for (unsigned part = 0; part < 5; ++part) {
    const Bytes base = test_support::d32_announce(1'000'000ULL * (part + 1));
    bytes.insert(bytes.end(), base.begin(), base.end());
    for (unsigned i = 0; i < 100; ++i) {
      append_big_endian(bytes, test_support::d32_tag(2, 1 + i), 4);
    }
    append_big_endian(bytes, 0xFFFFFFFF, 4);  // costs the lock
  }
  expect_the_same_tags_whichever_fails(Format::delta32, StreamMode::external, bytes, 500);
}

TEST(DecoderMemoryTest, PackedDeltaLosesNothing) {
  PackedStreamBuilder builder(16);
  for (unsigned part = 0; part < 3; ++part) {
    for (unsigned channel = 0; channel < 4; ++channel) {
      builder.synced_tag(channel, 1'000'000ULL * (part + 1), 1 + channel);
    }
    for (unsigned i = 0; i < 400; ++i) {
      builder.tag(i % 4, 10 + i);
    }
  }
  // In the last part a sync is broken, which costs the lock. What follows is
  // not enough to find the alignment again.
  builder.sync_start(1).overflow(1, 3).tag(1, 3);
  expect_the_same_tags_whichever_fails(Format::packed_delta, StreamMode::external, builder.bytes(),
                                       3 * 404);
}

}  // namespace
}  // namespace zelk::timing
