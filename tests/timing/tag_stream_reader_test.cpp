#include "timing/tag_stream_reader.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "tests/timing/reader_bench.hpp"

namespace zelk::timing {
namespace {

using scripted_device::Bytes;
using scripted_device::Script;
using test_support::append_big_endian;
using test_support::cf_record;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Reader, FreshReaderIsIdle) {
  Bench bench({});
  EXPECT_EQ(bench.reader.device, &bench.device);
  EXPECT_FALSE(bench.reader.thread.joinable());
  EXPECT_FALSE(bench.reader.stop_requested);
  EXPECT_FALSE(bench.reader.running);
  EXPECT_EQ(bench.reader.dropped, 0u);
  EXPECT_EQ(bench.reader.queue_limit, 8'388'608u);
  EXPECT_THAT(bench.reader.queue, IsEmpty());
  EXPECT_FALSE(bench.reader.error);
}

TEST(Reader, StopWithoutStartDoesNothing) {
  Bench bench({});
  EXPECT_NO_THROW(bench.reader.stop());
  EXPECT_NO_THROW(bench.reader.stop());
  EXPECT_FALSE(bench.reader.running);
}

TEST(Reader, SmallLimitsAreRaised) {
  Bench bench({});
  bench.reader.start(external_raw64(), 100, 10);
  EXPECT_EQ(bench.reader.queue_limit, 1024u);
  ASSERT_TRUE(Bench::all_reads_taken());
  bench.reader.stop();
  EXPECT_THAT(scripted_device::calls(),
              testing::Contains("qx_read_stream_bytes capacity=4096 timeout=20 -> -3 received=0"));
}

TEST(Reader, LargerLimitsAreTakenAsGiven) {
  Bench bench({});
  bench.reader.start(external_raw64(), 4097, 1025);
  EXPECT_EQ(bench.reader.queue_limit, 1025u);
  ASSERT_TRUE(Bench::all_reads_taken());
  bench.reader.stop();
  EXPECT_THAT(scripted_device::calls(),
              testing::Contains("qx_read_stream_bytes capacity=4097 timeout=20 -> -3 received=0"));
}

TEST(Reader, CountIsZeroedBeforeEveryRead) {
  Bench bench(Script{.reads = {{.bytes = records(0, 3)}, {.bytes = records(3, 2)}}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(Bench::all_reads_taken());
  bench.reader.stop();
  EXPECT_THAT(scripted_device::without_timeouts(scripted_device::calls()),
              ElementsAre("qx_open_serial port=ftdi:// -> 0",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=24",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=16"));
}

TEST(Reader, RunsUntilStopped) {
  Bench bench({});
  bench.reader.start(external_raw64(), chunk, 1024);
  EXPECT_TRUE(bench.reader.running);
  EXPECT_TRUE(bench.reader.thread.joinable());
  bench.reader.stop();
  EXPECT_FALSE(bench.reader.running);
  EXPECT_FALSE(bench.reader.thread.joinable());
}

TEST(Reader, TagsAreDrainedInStreamOrder) {
  Bench bench(Script{.reads = {{.bytes = records(10, 2)}, {.bytes = records(5, 1)}}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(wait_until([&] { return queued(bench.reader) == 3; }));
  std::vector<TimeTag> batch{{3, 99}};
  bench.reader.drain(batch);
  EXPECT_THAT(batch, ElementsAre(TimeTag{0, 10}, TimeTag{0, 11}, TimeTag{0, 5}));
  bench.reader.drain(batch);
  EXPECT_THAT(batch, IsEmpty());
}

TEST(Reader, RecordSplitOverTwoReadsIsDecoded) {
  const Bytes whole = records(77, 1);
  Bench bench(Script{.reads = {{.bytes = {whole.begin(), whole.begin() + 3}},
                               {.bytes = {}},
                               {.bytes = {whole.begin() + 3, whole.end()}}}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(wait_until([&] { return queued(bench.reader) == 1; }));
  std::vector<TimeTag> batch;
  bench.reader.drain(batch);
  EXPECT_THAT(batch, ElementsAre(TimeTag{0, 77}));
}

TEST(Reader, TimeoutIsRetriedAndItsBytesAreNotUsed) {
  Bench bench(Script{.reads = {{.bytes = records(1, 1), .status = -3},
                               {.bytes = records(2, 1), .status = 0},
                               {.bytes = records(3, 1), .status = -3},
                               {.bytes = records(4, 1), .status = 0}}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(Bench::all_reads_taken());
  bench.reader.stop();
  std::vector<TimeTag> batch;
  bench.reader.drain(batch);
  EXPECT_THAT(batch, ElementsAre(TimeTag{0, 2}, TimeTag{0, 4}));
}

TEST(Reader, SuccessWithoutBytesQueuesNothing) {
  Bench bench(Script{.reads = {{.bytes = {}}, {.bytes = {}}, {.bytes = records(1, 1)}}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(Bench::all_reads_taken());
  bench.reader.stop();
  EXPECT_EQ(queued(bench.reader), 1u);
  EXPECT_EQ(bench.reader.dropped, 0u);
}

TEST(Reader, OverloadKeepsTheNewestTagsAndCountsTheRest) {
  Bench bench(Script{.reads = {{.bytes = records(0, 1500)}}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(Bench::all_reads_taken());
  bench.reader.stop();
  EXPECT_EQ(bench.reader.dropped, 476u);
  std::vector<TimeTag> batch;
  bench.reader.drain(batch);
  ASSERT_EQ(batch.size(), 1024u);
  EXPECT_EQ(batch.front(), (TimeTag{0, 476}));
  EXPECT_EQ(batch.back(), (TimeTag{0, 1499}));
}

TEST(Reader, TagsOfEarlierReadsAreDroppedFirst) {
  Bench bench(Script{.reads = {{.bytes = records(0, 1000)},
                               {.bytes = records(1000, 100)},
                               {.bytes = records(1100, 1)}}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(Bench::all_reads_taken());
  bench.reader.stop();
  EXPECT_EQ(bench.reader.dropped, 77u);
  std::vector<TimeTag> batch;
  bench.reader.drain(batch);
  ASSERT_EQ(batch.size(), 1024u);
  EXPECT_EQ(batch.front(), (TimeTag{0, 77}));
  EXPECT_EQ(batch.back(), (TimeTag{0, 1100}));
}

// Patience that no test outlasts, or fails.
constexpr std::chrono::seconds much_patience{60};

// A reader with room for 1024 tags, of which the first 1000 come 300 ms after the
// start and the next ones at once.
Script two_reads_that_exceed_the_limit() {
  return {.reads = {{.bytes = records(0, 1000), .delay_ms = 300}, {.bytes = records(1000, 1000)}}};
}

// Drains until there is nothing, so that the consumer counts as asleep; false when
// the first tags came before that.
bool falls_asleep(TagStreamReader& reader) {
  return reader.drain().empty() && queued(reader) == 0;
}

TEST(Reader, OverloadWaitsForAConsumerThatFoundNothing) {
  Bench bench(two_reads_that_exceed_the_limit());
  bench.reader.consumer_patience = much_patience;
  bench.reader.start(external_raw64(), chunk, 1024);
  if (!falls_asleep(bench.reader)) {
    GTEST_SKIP() << "the machine stood still for too long";
  }
  ASSERT_TRUE(wait_until([&] { return queued(bench.reader) == 1000; }));
  EXPECT_EQ(bench.reader.drain().size(), 1000u);
  ASSERT_TRUE(wait_until([&] { return queued(bench.reader) == 1000; }));
  EXPECT_EQ(bench.reader.dropped, 0u);
}

TEST(Reader, OverloadWaitsNoLongerThanItsPatience) {
  Bench bench(two_reads_that_exceed_the_limit());
  bench.reader.start(external_raw64(), chunk, 1024);
  bench.reader.drain();
  ASSERT_TRUE(Bench::all_reads_taken());
  EXPECT_EQ(bench.reader.dropped, 976u);
}

TEST(Reader, OverloadDoesNotWaitForAConsumerThatFoundTags) {
  Bench bench(Script{.reads = {{.bytes = records(0, 10)},
                               {.bytes = records(10, 1000), .delay_ms = 300},
                               {.bytes = records(1010, 1000)}}});
  bench.reader.consumer_patience = much_patience;
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(wait_until([&] { return queued(bench.reader) >= 10; }));
  EXPECT_FALSE(bench.reader.drain().empty());
  EXPECT_TRUE(Bench::all_reads_taken());
}

TEST(Reader, OverloadThatWaitsEndsWithTheReader) {
  Bench bench(two_reads_that_exceed_the_limit());
  bench.reader.consumer_patience = much_patience;
  bench.reader.start(external_raw64(), chunk, 1024);
  bench.reader.drain();
  ASSERT_TRUE(wait_until([&] { return queued(bench.reader) == 1000; }));
  const auto before = std::chrono::steady_clock::now();
  bench.reader.stop();
  EXPECT_LT(std::chrono::steady_clock::now() - before, much_patience / 2);
}

TEST(Reader, QueueMayHoldExactlyItsLimit) {
  Bench bench(Script{.reads = {{.bytes = records(0, 1024)}}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(Bench::all_reads_taken());
  bench.reader.stop();
  EXPECT_EQ(bench.reader.dropped, 0u);
  EXPECT_EQ(queued(bench.reader), 1024u);
}

TEST(Reader, DrainTakesAtMost65536Tags) {
  Bench bench({});
  for (std::int64_t i = 0; i < 100'000; ++i) {
    bench.reader.queue.push_back({1, i});
  }
  std::vector<TimeTag> batch;
  bench.reader.drain(batch);
  ASSERT_EQ(batch.size(), 65'536u);
  EXPECT_EQ(batch.front().timestamp_ps, 0);
  EXPECT_EQ(batch.back().timestamp_ps, 65'535);
  EXPECT_EQ(queued(bench.reader), 34'464u);
  bench.reader.drain(batch);
  ASSERT_EQ(batch.size(), 34'464u);
  EXPECT_EQ(batch.front().timestamp_ps, 65'536);
  EXPECT_EQ(batch.back().timestamp_ps, 99'999);
  EXPECT_EQ(queued(bench.reader), 0u);
}

TEST(Reader, DrainWithoutCopyGivesPiecesOfAtMost65536Tags) {
  Bench bench({});
  std::vector<TimeTag> tags;
  for (std::int64_t i = 0; i < 100'000; ++i) {
    tags.push_back({1, i});
  }
  bench.reader.queue.append(tags);
  bench.reader.queue.push_back({2, 7});
  std::span<const TimeTag> piece = bench.reader.drain();
  ASSERT_EQ(piece.size(), 65'536u);
  EXPECT_EQ(piece.front().timestamp_ps, 0);
  EXPECT_EQ(piece.back().timestamp_ps, 65'535);
  EXPECT_EQ(queued(bench.reader), 34'465u);
  std::size_t drained = piece.size();
  while (!piece.empty()) {
    piece = bench.reader.drain();
    drained += piece.size();
  }
  EXPECT_EQ(drained, 100'001u);
  EXPECT_EQ(queued(bench.reader), 0u);
}

// Every read becomes a block of its own. The limit discards the rest of a block
// whose front was drained, and the reader goes on with the memory of others.
TEST(Reader, DrainedTagsStayReadableWhileOthersAreDropped) {
  Script script;
  for (std::uint64_t read = 0; read < 200; ++read) {
    script.reads.push_back({.bytes = records(10'000 * read, 9'000)});
  }
  Bench bench(std::move(script));
  bench.reader.start(external_raw64(), chunk, 10'000);
  EXPECT_TRUE(wait_until([&] {
    const std::span<const TimeTag> piece = bench.reader.drain();
    const std::vector<TimeTag> copy(piece.begin(), piece.end());
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_TRUE(std::ranges::equal(piece, copy));
    return piece.empty() && scripted_device::calls().back().ends_with(" -> -3 received=0");
  }));
  bench.reader.stop();
}

// 40,000 tags are one block, 9,000 another.
TEST(Reader, DrainGoesOnAcrossBlocks) {
  Bench bench({});
  std::vector<TimeTag> tags(40'000, {1, 1});
  bench.reader.queue.append(tags);
  tags.assign(9'000, {2, 2});
  bench.reader.queue.append(tags);
  std::vector<TimeTag> batch;
  bench.reader.drain(batch);
  ASSERT_EQ(batch.size(), 49'000u);
  EXPECT_EQ(batch[39'999], (TimeTag{1, 1}));
  EXPECT_EQ(batch[40'000], (TimeTag{2, 2}));
}

TEST(Reader, DrainWithNothingQueuedGivesNothing) {
  Bench bench({});
  std::vector<TimeTag> batch{{0, 1}};
  bench.reader.drain(batch);
  EXPECT_THAT(batch, IsEmpty());
}

TEST(Reader, StopEndsTheThreadAfterTheReadUnderWay) {
  Bench bench(
      Script{.reads = {{.bytes = records(7, 1)}, {.bytes = records(8, 1), .delay_ms = 1500}},
             .forever = {.bytes = records(9, 1), .delay_ms = 0}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(wait_until([&] { return queued(bench.reader) == 1; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(30));  // into the second read
  bench.reader.stop();
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_open_serial port=ftdi:// -> 0",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=8",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=8"));
  std::vector<TimeTag> batch;
  bench.reader.drain(batch);
  EXPECT_THAT(batch, ElementsAre(TimeTag{0, 7}, TimeTag{0, 8}));
}

TEST(Reader, QueuedTagsStayDrainableAfterAStopInALongStream) {
  Bench bench(Script{.forever = {.bytes = records(5, 10), .delay_ms = 1}});
  bench.reader.start(external_raw64(), chunk, 4096);
  ASSERT_TRUE(wait_until([&] { return queued(bench.reader) >= 50; }));
  bench.reader.stop();
  const std::size_t left = queued(bench.reader);
  EXPECT_GE(left, 50u);
  std::vector<TimeTag> batch;
  bench.reader.drain(batch);
  EXPECT_EQ(batch.size(), left);
}

TEST(Reader, StartAfterStopClearsQueueAndCounter) {
  Bench bench(Script{.reads = {{.bytes = records(0, 2000)}}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(Bench::all_reads_taken());
  bench.reader.stop();
  ASSERT_EQ(bench.reader.dropped, 976u);
  bench.reader.start(external_raw64(), chunk, 2048);
  EXPECT_TRUE(bench.reader.running);
  EXPECT_FALSE(bench.reader.stop_requested);
  EXPECT_EQ(queued(bench.reader), 0u);
  EXPECT_EQ(bench.reader.dropped, 0u);
  EXPECT_EQ(bench.reader.queue_limit, 2048u);
}

TEST(Reader, StartWhileRunningBeginsANewStream) {
  const Bytes whole = records(77, 1);
  Bench bench(Script{.reads = {{.bytes = {whole.begin(), whole.begin() + 5}}}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(Bench::all_reads_taken());
  bench.reader.start(external_raw64(), 8192, 1024);
  EXPECT_TRUE(wait_until([] {
    return scripted_device::calls().back().starts_with("qx_read_stream_bytes capacity=8192 ");
  }));
  bench.reader.stop();
}

TEST(Reader, EveryStartDecodesWithAFreshDecoder) {
  const Bytes whole = records(77, 1);
  Bench bench(Script{.reads = {{.bytes = {whole.begin(), whole.begin() + 5}},
                               {.bytes = {}, .status = -3, .delay_ms = 300},
                               {.bytes = {whole.begin() + 5, whole.end()}}}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(wait_until([] { return scripted_device::calls().back().ends_with("received=5"); }));
  bench.reader.stop();
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(
      wait_until([] { return scripted_device::calls().back().ends_with("-> -3 received=0"); }));
  bench.reader.stop();
  EXPECT_EQ(queued(bench.reader), 0u);
}

TEST(Reader, FineTimesComeFromTheDefaultTableAndNotFromTheDevice) {
  Bytes bytes;
  append_big_endian(bytes, cf_record(2, 1000, 2), 8);
  Bench bench(Script{.reads = {{.bytes = bytes}}});
  bench.device.fine_lut.fill(std::vector<std::int64_t>(8192, 1111));
  StreamFileHeader header = external_raw64();
  header.mode = StreamMode::internal;
  header.timestamp_layout = "raw_cf";
  bench.reader.start(header, chunk, 1024);
  ASSERT_TRUE(wait_until([&] { return queued(bench.reader) == 1; }));
  std::vector<TimeTag> batch;
  bench.reader.drain(batch);
  EXPECT_THAT(batch, ElementsAre(TimeTag{2, 1000 * 3333 - 37}));
}

TEST(ReaderDestructor, EndsARunningThread) {
  scripted_device::load({});
  Device device = Device::open("ftdi://", 3'000'000);
  {
    TagStreamReader reader(device);
    reader.start(external_raw64(), chunk, 1024);
  }
  const std::size_t calls = scripted_device::calls().size();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(scripted_device::calls().size(), calls);
}

}  // namespace
}  // namespace zelk::timing
