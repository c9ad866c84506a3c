// What the search for the alignment of a packed_delta stream costs when there
// is none to find, beside the literal search that scans every candidate from
// its own start. Both run on the same bytes in the same iteration, so that the
// ratio holds on a noisy machine.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "benchmarks/stopwatch.hpp"
#include "tests/reference/literal_packed_delta.hpp"
#include "timing/packed_alignment.hpp"
#include "timing/stream_header.hpp"

namespace {

using zelk::reference::LiteralPackedDecoder;
using zelk::timing::PackedAlignmentSearch;
using zelk::timing::StreamMode;

constexpr std::size_t stream_bytes = 65536;
constexpr std::size_t piece_bytes = 512;

enum class Content { noise, zeros, ones };

std::vector<std::uint8_t> make_bytes(Content content) {
  std::vector<std::uint8_t> bytes(stream_bytes, content == Content::ones ? 0xFF : 0x00);
  if (content == Content::noise) {
    std::mt19937_64 random(1);
    for (std::uint8_t& byte : bytes) {
      byte = static_cast<std::uint8_t>(random());
    }
  }
  return bytes;
}

PackedAlignmentSearch::Stream make_stream(const benchmark::State& state) {
  return {.bits = static_cast<int>(state.range(0)),
          .active_mask = static_cast<std::uint8_t>(state.range(1)),
          .mode = StreamMode::internal};
}

// Arguments: payload bits, channel mask, content.
void search_beside_literal(benchmark::State& state) {
  const PackedAlignmentSearch::Stream stream = make_stream(state);
  const std::vector<std::uint8_t> bytes = make_bytes(static_cast<Content>(state.range(2)));
  zelk::timing::StreamFileHeader header;
  header.format = zelk::timing::Format::packed_delta;
  header.mode = stream.mode;
  header.channel_mask = stream.active_mask;
  header.packed_bits = static_cast<std::uint8_t>(stream.bits);
  LiteralPackedDecoder literal(header);
  literal.pending = bytes;

  double search_s = 0;
  double literal_s = 0;
  for ([[maybe_unused]] const auto _ : state) {
    const double s = seconds([&] {
      PackedAlignmentSearch search;
      benchmark::DoNotOptimize(search.search(stream, bytes));
    });
    literal_s += seconds([&] {
      benchmark::DoNotOptimize(literal.probe_packed_alignment(stream.bits, stream.bits + 3));
    });
    search_s += s;
    state.SetIterationTime(s);
  }
  state.counters["times_faster"] = literal_s / search_s;
}

// The same bytes in pieces, searched after each one, as a stream without an
// alignment arrives. Arguments as above.
void search_pieces(benchmark::State& state) {
  const PackedAlignmentSearch::Stream stream = make_stream(state);
  const std::vector<std::uint8_t> bytes = make_bytes(static_cast<Content>(state.range(2)));
  for ([[maybe_unused]] const auto _ : state) {
    PackedAlignmentSearch search;
    for (std::size_t size = piece_bytes; size <= bytes.size(); size += piece_bytes) {
      benchmark::DoNotOptimize(search.search(stream, std::span(bytes).first(size)));
    }
  }
}

constexpr auto noise = static_cast<std::int64_t>(Content::noise);
constexpr auto zeros = static_cast<std::int64_t>(Content::zeros);
constexpr auto ones = static_cast<std::int64_t>(Content::ones);

BENCHMARK(search_beside_literal)
    ->ArgNames({"bits", "mask", "content"})
    ->Args({16, 0xF, noise})
    ->Args({16, 0x5, noise})
    ->Args({1, 0xF, noise})
    ->Args({31, 0xF, noise})
    ->Args({16, 0xF, zeros})
    ->Args({16, 0xF, ones})
    ->UseManualTime()
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

BENCHMARK(search_pieces)
    ->ArgNames({"bits", "mask", "content"})
    ->Args({16, 0xF, noise})
    ->Args({16, 0x5, noise})
    ->Args({16, 0xF, ones})
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
