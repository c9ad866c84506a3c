// What it costs to pass decoded tags on to the consumer and to count them.
// Everything runs on one thread and in turn with what it is held against, so
// that the ratios hold on a noisy machine.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <span>
#include <vector>

#include "benchmarks/stopwatch.hpp"
#include "smoke_test/capture_statistics.hpp"
#include "tests/reference/literal_analysis.hpp"
#include "timing/tag_queue.hpp"
#include "timing/tag_stream_reader.hpp"
#include "timing/time_tag.hpp"

namespace {

using zelk::timing::channel_count;
using zelk::timing::TagQueue;
using zelk::timing::TimeTag;

constexpr std::size_t batch_size = zelk::timing::TagStreamReader::max_drain;
constexpr std::int64_t tag_interval_ps = 6'000;
constexpr double bin_s = 0.1;

enum class Channels { two_in_turn, four_at_random };

std::vector<TimeTag> steady_tags(std::size_t count, Channels channels) {
  std::vector<TimeTag> tags(count);
  std::mt19937_64 random(1);
  std::int64_t time_ps = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t channel = channels == Channels::two_in_turn ? i % 2 : random();
    tags[i] = {static_cast<std::uint8_t>(channel % channel_count), time_ps += tag_interval_ps};
  }
  return tags;
}

// Calls `action` with each batch of the tags, as a capture gets them.
template <typename Action>
void for_each_batch(std::span<const TimeTag> tags, Action&& action) {
  for (; !tags.empty(); tags = tags.subspan(std::min(batch_size, tags.size()))) {
    action(tags.first(std::min(batch_size, tags.size())));
  }
}

// The yardstick of counting: nothing but writing the times to fresh memory.
void write_times(const std::vector<TimeTag>& tags) {
  const auto times = std::make_unique_for_overwrite<std::int64_t[]>(tags.size());
  std::ranges::transform(tags, times.get(), &TimeTag::timestamp_ps);
  benchmark::DoNotOptimize(times.get());
  benchmark::ClobberMemory();
}

// The statistics of a capture. `ratio` is the yardstick's time over theirs, and
// `times_faster` compares them with tags that are counted one by one into lists
// that double. Arguments: channels, tags.
void count_tags(benchmark::State& state) {
  const std::vector<TimeTag> tags =
      steady_tags(static_cast<std::size_t>(state.range(1)), static_cast<Channels>(state.range(0)));
  double write_s = 0;
  double plain_s = 0;
  double count_s = 0;
  for ([[maybe_unused]] const auto _ : state) {
    write_s += seconds([&] { write_times(tags); });
    plain_s += seconds(
        [&] { benchmark::DoNotOptimize(zelk::reference::statistics(tags, bin_s).bin_overflow); });
    const double s = seconds([&] {
      CaptureStatistics statistics(bin_s);
      for_each_batch(tags, [&](std::span<const TimeTag> batch) { statistics.add(batch); });
      benchmark::DoNotOptimize(statistics.total());
    });
    count_s += s;
    state.SetIterationTime(s);
  }
  state.counters["tag_ns"] =
      1e9 * count_s / static_cast<double>(state.iterations() * state.range(1));
  state.counters["ratio"] = write_s / count_s;
  state.counters["times_faster"] = plain_s / count_s;
}

// The longest time that one batch takes while one channel's list grows, beside a
// vector that doubles. Argument: tags.
void longest_pause(benchmark::State& state) {
  std::vector<TimeTag> batch = steady_tags(batch_size, Channels::two_in_turn);
  std::ranges::for_each(batch, [](TimeTag& tag) { tag.channel = 0; });
  double pause_s = 0;
  double vector_pause_s = 0;
  for ([[maybe_unused]] const auto _ : state) {
    CaptureStatistics statistics(bin_s);
    std::vector<std::int64_t> doubling;
    double longest_s = 0;
    double vector_longest_s = 0;
    for (std::int64_t size = 0; size < state.range(0);
         size += static_cast<std::int64_t>(batch_size)) {
      longest_s = std::max(longest_s, seconds([&] { statistics.add(batch); }));
      vector_longest_s = std::max(vector_longest_s, seconds([&] {
                                    for (const TimeTag& tag : batch) {
                                      doubling.push_back(tag.timestamp_ps);
                                    }
                                  }));
    }
    pause_s += longest_s;
    vector_pause_s += vector_longest_s;
    state.SetIterationTime(longest_s);
  }
  const auto iterations = static_cast<double>(state.iterations());
  state.counters["pause_ms"] = 1e3 * pause_s / iterations;
  state.counters["vector_pause_ms"] = 1e3 * vector_pause_s / iterations;
  state.counters["times_shorter"] = vector_pause_s / pause_s;
}

void pass_through(TagQueue& queue, std::vector<TimeTag>& tags) {
  const std::size_t size = tags.size();
  queue.append(tags);
  while (!queue.empty()) {
    benchmark::DoNotOptimize(queue.take_front(batch_size).data());
  }
  tags.resize(size);
}

void pass_through(std::deque<TimeTag>& queue, const std::vector<TimeTag>& tags,
                  std::vector<TimeTag>& batch) {
  queue.insert(queue.end(), tags.begin(), tags.end());
  while (!queue.empty()) {
    const auto end =
        queue.begin() + static_cast<std::ptrdiff_t>(std::min(queue.size(), batch_size));
    batch.assign(queue.begin(), end);
    queue.erase(queue.begin(), end);
    benchmark::DoNotOptimize(batch.data());
  }
}

// Chunks of tags through the queue and out again. `ratio` is the time of one
// memcpy of them over the queue's, which copies none; `times_faster` compares
// it with a deque. Argument: tags in a chunk.
void pass_chunks(benchmark::State& state) {
  constexpr int rounds = 100;
  const auto size = static_cast<std::size_t>(state.range(0));
  std::vector<TimeTag> tags = steady_tags(size, Channels::two_in_turn);
  const std::vector<TimeTag> source = tags;
  std::vector<TimeTag> copy(size);
  std::vector<TimeTag> batch;
  TagQueue queue;
  std::deque<TimeTag> deque;
  double copy_s = 0;
  double deque_s = 0;
  double queue_s = 0;
  for ([[maybe_unused]] const auto _ : state) {
    double s = 0;
    for (int round = 0; round < rounds; ++round) {
      copy_s += seconds([&] {
        std::memcpy(copy.data(), source.data(), size * sizeof(TimeTag));
        benchmark::ClobberMemory();
      });
      deque_s += seconds([&] { pass_through(deque, source, batch); });
      s += seconds([&] { pass_through(queue, tags); });
    }
    queue_s += s;
    state.SetIterationTime(s);
  }
  state.counters["chunk_us"] = 1e6 * queue_s / static_cast<double>(state.iterations() * rounds);
  state.counters["ratio"] = copy_s / queue_s;
  state.counters["times_faster"] = deque_s / queue_s;
}

constexpr auto two_in_turn = static_cast<std::int64_t>(Channels::two_in_turn);
constexpr auto four_at_random = static_cast<std::int64_t>(Channels::four_at_random);

// Iterations are few and fixed: what the routines are held against takes longer.
BENCHMARK(count_tags)
    ->ArgNames({"channels", "tags"})
    ->ArgsProduct({{two_in_turn, four_at_random}, {1 << 23, 1 << 25}})
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

BENCHMARK(longest_pause)
    ->ArgName("tags")
    ->Arg(1 << 18)
    ->Arg(1 << 26)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

BENCHMARK(pass_chunks)
    ->ArgName("tags")
    ->Arg(2048)     // copied, since it is short
    ->Arg(32768)    // raw64 in 256 KiB
    ->Arg(110'376)  // packed_delta in 256 KiB
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
