// What the analysis after a capture costs, stage by stage, for two channels
// with correlated tags. Each stage runs beside its yardstick in the same
// iteration, so that the ratio holds on a noisy machine:
//   ns_per_tag    of the stage; tags of both channels count
//   yardstick_ns  per tag, of the yardstick that the row's name tells
//   ratio         stage / yardstick: below 1 the stage is faster
// Arguments: tags per channel before losses, and the percentage that is kept
// on each channel. Run the smallest size alone with
// --benchmark_filter=tags:100000/.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <numeric>
#include <random>
#include <span>
#include <utility>
#include <vector>

#include "benchmarks/stopwatch.hpp"
#include "smoke_test/analysis.hpp"
#include "smoke_test/channel_analysis.hpp"
#include "smoke_test/pair_analysis.hpp"
#include "tests/reference/plain_passes.hpp"
#include "timing/detail/sorted_times.hpp"
#include "timing/xcorr_histogram.hpp"

namespace {

using zelk::timing::detail::SortedTimes;
using Times = std::vector<std::int64_t>;
using Span = std::span<const std::int64_t>;

constexpr std::int64_t window_ps = 1000;
constexpr std::int64_t bin_ps = 8;
constexpr std::int64_t offset_ps = 137;

struct Pair {
  Times a;
  Times b;

  [[nodiscard]] std::size_t tags() const { return a.size() + b.size(); }
};

// Pairs at random moments, 21 million per second, each tag with a jitter. The
// lists are ascending, as a unit sends them.
Pair make_pair(std::size_t tags, int kept_percent) {
  std::mt19937_64 random(1);
  std::exponential_distribution<double> gap_ps(1.0 / 47'000.0);
  std::normal_distribution<double> jitter_ps(0.0, 100.0);
  std::uniform_int_distribution<int> percent(0, 99);
  Pair pair;
  std::int64_t time = 0;
  for (std::size_t i = 0; i < tags; ++i) {
    time += static_cast<std::int64_t>(gap_ps(random));
    for (const auto& [list, delay] :
         {std::pair{&pair.a, std::int64_t{0}}, std::pair{&pair.b, offset_ps}}) {
      const std::int64_t tag = time + delay + static_cast<std::int64_t>(jitter_ps(random));
      if (percent(random) < kept_percent) {
        list->push_back(tag);
      }
    }
  }
  std::ranges::sort(pair.a);
  std::ranges::sort(pair.b);
  return pair;
}

// The lists of the row; those of the previous one are made anew only when the
// arguments change.
const Pair& pair_of(const benchmark::State& state) {
  static Pair pair;
  static std::pair<std::int64_t, std::int64_t> made_for;
  const std::pair arguments(state.range(0), state.range(1));
  if (made_for != arguments) {
    pair = {};
    pair = make_pair(static_cast<std::size_t>(arguments.first), static_cast<int>(arguments.second));
    made_for = arguments;
  }
  return pair;
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

template <typename Stage, typename Yardstick>
void compare(benchmark::State& state, Stage stage, Yardstick yardstick,
             std::size_t most_tags = SIZE_MAX) {
  const Pair& pair = pair_of(state);
  std::vector<double> stage_s;
  std::vector<double> yardstick_s;
  std::vector<double> ratio;
  for ([[maybe_unused]] const auto _ : state) {
    yardstick_s.push_back(seconds([&] { yardstick(pair); }));
    stage_s.push_back(seconds([&] { stage(pair); }));
    ratio.push_back(stage_s.back() / yardstick_s.back());
    state.SetIterationTime(stage_s.back());
  }
  const double ns_per_tag = 1e9 / static_cast<double>(std::min(pair.tags(), most_tags));
  state.counters["ns_per_tag"] = median(stage_s) * ns_per_tag;
  state.counters["yardstick_ns"] = median(yardstick_s) * ns_per_tag;
  state.counters["ratio"] = median(ratio);
}

// Calls action(list) for both lists.
template <typename Action>
auto on_both(Action action) {
  return [action](const Pair& pair) {
    benchmark::DoNotOptimize(action(Span(pair.a)));
    benchmark::DoNotOptimize(action(Span(pair.b)));
  };
}

const auto one_read = on_both(
    [](Span times) { return std::accumulate(times.begin(), times.end(), std::int64_t{0}); });

void order_to_read(benchmark::State& state) {
  compare(state, on_both([](Span times) { return std::ranges::is_sorted(times); }), one_read);
}

void steps_to_read(benchmark::State& state) {
  compare(state, on_both(step_statistics), one_read);
}

void steps_to_plain(benchmark::State& state) {
  compare(state, on_both(step_statistics), on_both(zelk::reference::plain_steps));
}

void residues_to_read(benchmark::State& state) {
  compare(state, on_both(residue_statistics), one_read);
}

// The beginning of each list, for the map would take seconds over all.
void residues_to_map(benchmark::State& state) {
  constexpr std::size_t most = 1'000'000;
  const auto beginning = [=](Span times) { return times.first(std::min(times.size(), most)); };
  compare(state, on_both([=](Span times) { return residue_statistics(beginning(times)); }),
          on_both([=](Span times) {
            std::map<std::int64_t, std::uint64_t> counts;
            for (const std::int64_t time : beginning(times)) {
              ++counts[(time % 3333 + 3333) % 3333];
            }
            return counts.size();
          }),
          2 * most);
}

void coincidences_to_plain(benchmark::State& state) {
  const SortedTimes a(pair_of(state).a, true);
  const SortedTimes b(pair_of(state).b, true);
  compare(
      state, [&](const Pair&) { benchmark::DoNotOptimize(count_coincidences(a, b, window_ps)); },
      [](const Pair& pair) {
        benchmark::DoNotOptimize(zelk::reference::plain_coincidences(pair.a, pair.b, window_ps));
      });
}

void histogram_to_plain(benchmark::State& state) {
  const SortedTimes a(pair_of(state).a, true);
  const SortedTimes b(pair_of(state).b, true);
  compare(
      state,
      [&](const Pair&) {
        benchmark::DoNotOptimize(
            zelk::timing::xcorr_histogram(a, b, window_ps, bin_ps, offset_ps).counts.data());
      },
      [](const Pair& pair) {
        benchmark::DoNotOptimize(
            zelk::reference::plain_histogram<bin_ps>(pair.a, pair.b, window_ps, offset_ps).data());
      });
}

void offset_to_read(benchmark::State& state) {
  const SortedTimes a(pair_of(state).a, true);
  const SortedTimes b(pair_of(state).b, true);
  compare(
      state, [&](const Pair&) { benchmark::DoNotOptimize(estimate_offset(a, b, window_ps)); },
      one_read);
}

// Everything between the end of a capture and its report.
void whole_to_read(benchmark::State& state) {
  Capture capture{.statistics = CaptureStatistics(1.0)};
  const Pair& pair = pair_of(state);
  for (std::size_t i = 0; i < std::max(pair.a.size(), pair.b.size()); ++i) {
    if (i < pair.a.size()) {
      capture.statistics.add({0, pair.a[i]});
    }
    if (i < pair.b.size()) {
      capture.statistics.add({1, pair.b[i]});
    }
  }
  compare(
      state,
      [&](const Pair&) {
        benchmark::DoNotOptimize(analyse(capture, 0, 1, window_ps).pair.coincidences);
      },
      one_read);
}

// Ascending sizes; within a size the rows share their lists.
void sizes(benchmark::internal::Benchmark* row) {
  row->ArgNames({"tags", "kept"})
      ->Args({100'000, 100})
      ->Args({100'000, 50})
      ->Args({10'000'000, 100})
      ->Args({10'000'000, 50})
      ->Iterations(5)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

BENCHMARK(order_to_read)->Apply(sizes);
BENCHMARK(steps_to_read)->Apply(sizes);
BENCHMARK(steps_to_plain)->Apply(sizes);
BENCHMARK(residues_to_read)->Apply(sizes);
BENCHMARK(residues_to_map)->Apply(sizes);
BENCHMARK(coincidences_to_plain)->Apply(sizes);
BENCHMARK(histogram_to_plain)->Apply(sizes);
BENCHMARK(offset_to_read)->Apply(sizes);
BENCHMARK(whole_to_read)->Apply(sizes);

// Two busy channels: 84 million tags.
BENCHMARK(whole_to_read)
    ->ArgNames({"tags", "kept"})
    ->Args({42'000'000, 100})
    ->Iterations(5)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
