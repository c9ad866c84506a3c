// The reader under stress. Many short rounds let consumer and reader thread meet
// in whatever order the scheduler comes up with, and each round holds a law that
// is true in every order: no tag is lost, doubled or moved, and the first error
// is the one that comes back. No round depends on how fast anything is.
#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tests/timing/reader_bench.hpp"
#include "timing/error.hpp"

namespace zelk::timing {
namespace {

using scripted_device::Read;
using scripted_device::Script;

using Random = std::mt19937;

// Of each test, under the sanitizers too. On a machine that is busy with other
// programs a round takes hundreds of times as long, since each of its many waits
// hands a processor over to them: the rounds then end early, after this time.
constexpr int rounds = 400;
constexpr int fewest_rounds = 20;
constexpr std::chrono::seconds time_for_rounds{25};

// In most rounds nothing is waited for: on a busy machine each wait takes long.
std::chrono::microseconds some_patience(Random& random) {
  return std::chrono::milliseconds(random() % 16 == 0 ? 3 : 0);
}

// A time-out that comes soon, so that nothing waits for a stream that has ended.
const Read soon_timed_out{.bytes = {}, .status = -3, .delay_ms = 1};

Read failing_read(qx_status status) {
  return {.bytes = {}, .status = status};
}

// Reads of random sizes whose tags carry the times 0, 1, 2, ... ps. Some time
// out on the way, some succeed without a byte.
std::vector<Read> numbered_reads(Random& random, int count, unsigned most_tags) {
  std::vector<Read> reads;
  std::uint64_t next = 0;
  for (int i = 0; i < count; ++i) {
    const std::uint64_t tags = random() % (most_tags + 1);
    reads.push_back({.bytes = records(next, tags)});
    next += tags;
    if (random() % 8 == 0) {
      reads.push_back({.bytes = records(next, 3), .status = -3});
    }
  }
  return reads;
}

// What the reader thread was given. Call it with no thread running.
struct Sent {
  std::uint64_t tags = 0;
  int reads = 0;
  int failed_reads = 0;
};

std::int64_t number_after(const std::string& line, std::string_view label) {
  std::int64_t number = 0;
  const char* const first = line.data() + line.find(label) + label.size();
  std::from_chars(first, line.data() + line.size(), number);
  return number;
}

// In reads of this size; starts of different sizes are told apart by it.
Sent sent_to(std::size_t read_chunk) {
  const std::string begin = "qx_read_stream_bytes capacity=" + std::to_string(read_chunk) + " ";
  Sent sent;
  for (const std::string& line : scripted_device::calls()) {
    if (!line.starts_with(begin)) {
      continue;
    }
    ++sent.reads;
    const std::int64_t status = number_after(line, " -> ");
    if (status == 0) {
      sent.tags += static_cast<std::uint64_t>(number_after(line, " received=")) / 8;
    } else if (status != -3) {
      ++sent.failed_reads;
    }
  }
  return sent;
}

// What a consumer got of numbered tags.
struct Received {
  std::uint64_t tags = 0;
  std::int64_t last_ps = -1;
  bool in_order = true;

  void add(std::span<const TimeTag> batch) {
    for (const TimeTag& tag : batch) {
      in_order = in_order && tag.timestamp_ps > last_ps;
      last_ps = tag.timestamp_ps;
    }
    tags += batch.size();
  }
};

void pause(Random& random) {
  for (auto n = random() % 32; n != 0; --n) {
    std::this_thread::yield();
  }
}

// Either form of drain().
void drain_into(Received& received, TagStreamReader& reader, Random& random) {
  if (random() % 2 == 0) {
    std::vector<TimeTag> batch;
    reader.drain(batch);
    received.add(batch);
  } else {
    received.add(reader.drain());
  }
}

void drain_the_rest(Received& received, TagStreamReader& reader, Random& random) {
  while (queued(reader) != 0) {
    drain_into(received, reader, random);
  }
}

// The status of the Error that the action ends in, if it does.
template <typename Action>
std::optional<qx_status> status_of(Action action) {
  try {
    action();
  } catch (const Error& error) {
    return error.status;
  }
  return std::nullopt;
}

// The round's number is the seed, and shows in every message.
template <typename Round>
void in_many_rounds(Round round) {
  const auto end = std::chrono::steady_clock::now() + time_for_rounds;
  const auto may_go_on = [end](int done) {
    return done < fewest_rounds || std::chrono::steady_clock::now() < end;
  };
  int done = 0;
  while (done < rounds && may_go_on(done) && !testing::Test::HasFailure()) {
    SCOPED_TRACE("round " + std::to_string(done));
    Random random(static_cast<Random::result_type>(done));
    round(random);
    ++done;
  }
  testing::Test::RecordProperty("rounds", done);
}

TEST(ReaderStress, AStopAtAnyMomentLosesNoTag) {
  in_many_rounds([](Random& random) {
    Bench bench(Script{.reads = numbered_reads(random, 12, 40), .forever = soon_timed_out});
    bench.reader.consumer_patience = some_patience(random);
    Received received;
    bench.reader.start(external_raw64(), chunk, 1024);
    for (auto drains = random() % 20; drains != 0; --drains) {
      drain_into(received, bench.reader, random);
      pause(random);
    }
    bench.reader.stop();
    EXPECT_EQ(received.tags + queued(bench.reader), sent_to(chunk).tags);
    drain_the_rest(received, bench.reader, random);
    EXPECT_EQ(received.tags, sent_to(chunk).tags);
    EXPECT_EQ(received.last_ps + 1, static_cast<std::int64_t>(received.tags));
    EXPECT_TRUE(received.in_order);
    EXPECT_EQ(bench.reader.dropped, 0u);
  });
}

// Reads of up to 2000 tags meet a queue of 1024. Whatever is dropped is counted,
// and it is never the newest.
TEST(ReaderStress, AConsumerThatIsMuchTooSlowLosesOnlyOldTagsAndEachIsCounted) {
  in_many_rounds([](Random& random) {
    Bench bench(Script{.reads = numbered_reads(random, 5, 2000), .forever = soon_timed_out});
    bench.reader.consumer_patience = some_patience(random);
    Received received;
    std::uint64_t dropped = 0;
    bench.reader.start(external_raw64(), chunk, 1024);
    for (auto drains = random() % 6; drains != 0; --drains) {
      pause(random);
      drain_into(received, bench.reader, random);
      const std::uint64_t dropped_by_now = bench.reader.dropped;
      EXPECT_GE(dropped_by_now, dropped);
      dropped = dropped_by_now;
      EXPECT_LE(queued(bench.reader), 1024u);
    }
    bench.reader.stop();
    const Sent sent = sent_to(chunk);
    EXPECT_EQ(received.tags + bench.reader.dropped + queued(bench.reader), sent.tags);
    drain_the_rest(received, bench.reader, random);
    EXPECT_EQ(received.last_ps + 1, static_cast<std::int64_t>(sent.tags));
    EXPECT_TRUE(received.in_order);
  });
}

// Blocks long enough to be handed over as they are, most of which are dropped
// while the consumer still reads from one of them.
TEST(ReaderStress, LentTagsStayAsTheyAreWhileTheReaderDropsOthers) {
  Random sizes(1);
  const std::vector<Read> reads = numbered_reads(sizes, 8, 2 * TagQueue::least_block);
  for (int i = 0; i < rounds / 10 && !HasFailure(); ++i) {
    SCOPED_TRACE("round " + std::to_string(i));
    Random random(static_cast<Random::result_type>(i));
    Bench bench(Script{.reads = reads, .forever = soon_timed_out});
    Received received;
    bench.reader.start(external_raw64(), chunk, TagQueue::least_block);
    for (auto drains = 1 + random() % 6; drains != 0; --drains) {
      const std::span<const TimeTag> lent = bench.reader.drain();
      const std::vector<TimeTag> copy(lent.begin(), lent.end());
      pause(random);
      EXPECT_TRUE(std::ranges::equal(lent, copy));
      received.add(lent);
    }
    bench.reader.stop();
    EXPECT_EQ(received.tags + bench.reader.dropped + queued(bench.reader), sent_to(chunk).tags);
    EXPECT_TRUE(received.in_order);
  }
}

// A stop may come before the first read is made. There is no error then, and no
// read either.
TEST(ReaderStress, AFailureInTheVeryFirstReadIsTheOneThatComesBack) {
  in_many_rounds([](Random& random) {
    Bench bench(Script{.reads = {failing_read(-12)}, .forever = failing_read(-13)});
    bench.reader.consumer_patience = some_patience(random);
    bench.reader.start(external_raw64(), chunk, 1024);
    for (auto drains = random() % 12; drains != 0; --drains) {
      std::vector<TimeTag> batch;
      EXPECT_EQ(status_of([&] { bench.reader.drain(batch); }).value_or(-12), -12);
      EXPECT_TRUE(batch.empty());
      pause(random);
    }
    const std::optional<qx_status> stopped_with = status_of([&] { bench.reader.stop(); });
    const Sent sent = sent_to(chunk);
    EXPECT_LE(sent.reads, 1);
    EXPECT_EQ(stopped_with, sent.reads == 1 ? std::optional(-12) : std::nullopt);
    EXPECT_EQ(status_of([&] { bench.reader.drain(); }), stopped_with);
    EXPECT_FALSE(bench.reader.running);
  });
}

TEST(ReaderStress, AFailureInMidStreamLosesNoTagThatCameBefore) {
  in_many_rounds([](Random& random) {
    Script script{.reads = numbered_reads(random, 6, 40), .forever = failing_read(-13)};
    script.reads.push_back(failing_read(-12));
    Bench bench(std::move(script));
    bench.reader.consumer_patience = some_patience(random);
    Received received;
    bench.reader.start(external_raw64(), chunk, 1024);
    for (auto drains = random() % 12; drains != 0; --drains) {
      std::vector<TimeTag> batch;
      EXPECT_EQ(status_of([&] { bench.reader.drain(batch); }).value_or(-12), -12);
      received.add(batch);
      pause(random);
    }
    const std::optional<qx_status> stopped_with = status_of([&] { bench.reader.stop(); });
    const Sent sent = sent_to(chunk);
    EXPECT_EQ(stopped_with, sent.failed_reads == 1 ? std::optional(-12) : std::nullopt);
    EXPECT_LE(sent.failed_reads, 1);
    EXPECT_EQ(received.tags + queued(bench.reader), sent.tags);
    EXPECT_EQ(received.last_ps + 1, static_cast<std::int64_t>(received.tags));
    EXPECT_TRUE(received.in_order);
  });
}

// Whoever holds the lock keeps the thread from storing its error. So the failed
// read lies behind the last drain and before the stop, but in rounds in which it
// was there before the lock was.
TEST(ReaderStress, AFailureBetweenTheLastDrainAndTheStopComesBackFromTheStop) {
  const Script script{
      .reads = {{.bytes = records(0, 40)}, {.bytes = {}, .status = -12, .delay_ms = 5}},
      .forever = failing_read(-13)};
  for (int i = 0; i < rounds / 4 && !HasFailure(); ++i) {
    SCOPED_TRACE("round " + std::to_string(i));
    Bench bench(script);
    bench.reader.start(external_raw64(), chunk, 1024);
    while (queued(bench.reader) == 0) {
      std::this_thread::yield();
    }
    std::uint64_t last_drained = 0;
    {
      const std::lock_guard lock(bench.reader.mutex);
      last_drained = bench.reader.queue.take_front(TagStreamReader::max_drain).size();
      // The last call that the thread makes before it stores its error.
      EXPECT_TRUE(wait_until(
          [] { return scripted_device::calls().back() == "qx_status_string status=-12"; }));
    }
    EXPECT_EQ(status_of([&] { bench.reader.stop(); }), -12);
    EXPECT_EQ(last_drained, 40u);
    EXPECT_EQ(queued(bench.reader), 0u);
    EXPECT_EQ(sent_to(chunk).failed_reads, 1);
  }
}

// The device is closed right after: no read may be under way by then.
TEST(ReaderStress, DestructionWhileRunningEndsTheThreadBeforeTheDeviceIsClosed) {
  in_many_rounds([](Random& random) {
    {
      Script script{.reads = numbered_reads(random, 12, 40), .forever = soon_timed_out};
      if (random() % 4 == 0) {
        script.reads.push_back(failing_read(-12));
      }
      Bench bench(std::move(script));
      bench.reader.consumer_patience = some_patience(random);
      bench.reader.start(external_raw64(), chunk, 1024);
      pause(random);
      if (random() % 2 == 0) {
        status_of([&] { bench.reader.drain(); });
      }
    }
    EXPECT_EQ(scripted_device::calls().back(), "qx_close");
  });
}

// Each start goes on where the stream is, with nothing left of the one before.
TEST(ReaderStress, ARestartAfterSuccessBeginsWithAnEmptyQueueAndLosesNoLaterTag) {
  in_many_rounds([](Random& random) {
    Bench bench(Script{.reads = numbered_reads(random, 10, 600), .forever = soon_timed_out});
    bench.reader.consumer_patience = some_patience(random);
    Received received;
    for (std::size_t session = 0; session < 4; ++session) {
      const std::size_t session_chunk = chunk + session;
      const std::int64_t last_before_ps = received.last_ps;
      bench.reader.start(external_raw64(), session_chunk, 1024);
      const std::uint64_t received_before = received.tags;
      for (auto drains = random() % 6; drains != 0; --drains) {
        pause(random);
        drain_into(received, bench.reader, random);
      }
      // Every other start finds the thread still running, and stops it itself.
      if (session % 2 == 1) {
        bench.reader.stop();
        EXPECT_EQ(received.tags - received_before + bench.reader.dropped + queued(bench.reader),
                  sent_to(session_chunk).tags);
      }
      EXPECT_GE(received.last_ps, last_before_ps);
    }
    EXPECT_TRUE(received.in_order);
  });
}

// A stop may come before the read that fails. The next start then reads on.
TEST(ReaderStress, ARestartAfterAFailureRethrowsItAndReadsNothingMore) {
  in_many_rounds([](Random& random) {
    Script script{.reads = numbered_reads(random, 3, 40), .forever = failing_read(-13)};
    script.reads.push_back(failing_read(-12));
    Bench bench(std::move(script));
    bench.reader.consumer_patience = some_patience(random);
    bool has_failed = false;
    for (int start = 0; start < 6; ++start) {
      const std::size_t calls_before = scripted_device::calls().size();
      const std::optional<qx_status> started_with =
          status_of([&] { bench.reader.start(external_raw64(), chunk, 1024); });
      EXPECT_EQ(started_with.value_or(-12), -12);
      if (has_failed) {
        EXPECT_EQ(started_with, -12);
        EXPECT_EQ(scripted_device::calls().size(), calls_before);
      }
      has_failed = started_with.has_value();
      pause(random);
      if (random() % 2 == 0) {
        const std::optional<qx_status> stopped_with = status_of([&] { bench.reader.stop(); });
        EXPECT_EQ(stopped_with.value_or(-12), -12);
        has_failed = stopped_with.has_value();
      }
    }
    const std::optional<qx_status> stopped_with = status_of([&] { bench.reader.stop(); });
    EXPECT_EQ(stopped_with, sent_to(chunk).failed_reads != 0 ? std::optional(-12) : std::nullopt);
    EXPECT_LE(sent_to(chunk).failed_reads, 1);
    EXPECT_EQ(has_failed && !stopped_with, false);
  });
}

}  // namespace
}  // namespace zelk::timing
