// What it costs to decode a clean stream that comes in chunks of 256 KiB, one
// benchmark per format: four channels in turn, each pulsing at a steady rate.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "simulator/encoders/delta32_encoder.hpp"
#include "simulator/encoders/packed_delta_encoder.hpp"
#include "simulator/encoders/raw64_encoder.hpp"
#include "timing/stream_decoder.hpp"
#include "timing/stream_header.hpp"
#include "timing/time_tag.hpp"

namespace {

using zelk::simulator::Delta32Encoder;
using zelk::simulator::PackedDeltaEncoder;
using zelk::simulator::Raw64Encoder;
using zelk::simulator::StreamEncoder;
using zelk::timing::channel_count;
using zelk::timing::Format;
using zelk::timing::StreamDecoder;
using zelk::timing::StreamFileHeader;
using zelk::timing::StreamMode;
using zelk::timing::TimeTag;

constexpr std::size_t chunk_bytes = 262144;
constexpr int stream_tags = 1'000'000;
constexpr std::int64_t tag_interval_ps = 50'000;  // 20 million tags per second

std::vector<std::uint8_t> encoded_stream(StreamEncoder& encoder) {
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < stream_tags; ++i) {
    encoder.append({static_cast<std::uint8_t>(i % channel_count), (i + 1) * tag_interval_ps},
                   bytes);
  }
  encoder.flush(bytes);
  return bytes;
}

// Decodes the whole stream once per iteration, with a new decoder each time.
void feed_stream(benchmark::State& state, Format format, StreamEncoder& encoder) {
  const std::vector<std::uint8_t> bytes = encoded_stream(encoder);
  StreamFileHeader header;
  header.format = format;
  header.mode = StreamMode::external;
  std::size_t tags = 0;
  for ([[maybe_unused]] const auto _ : state) {
    StreamDecoder decoder(header);
    for (std::size_t done = 0; done < bytes.size(); done += chunk_bytes) {
      const std::size_t size = std::min(chunk_bytes, bytes.size() - done);
      const std::vector<TimeTag> decoded = decoder.feed(bytes.data() + done, size);
      benchmark::DoNotOptimize(decoded.data());
      tags += decoded.size();
    }
  }
  if (tags != static_cast<std::size_t>(state.iterations()) * stream_tags) {
    state.SkipWithError("the decoder did not return every tag");
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(tags));
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes.size()) * state.iterations());
}

void feed_raw64(benchmark::State& state) {
  Raw64Encoder encoder;
  feed_stream(state, Format::raw64, encoder);
}

void feed_delta32(benchmark::State& state) {
  Delta32Encoder encoder;
  feed_stream(state, Format::delta32, encoder);
}

void feed_packed_delta(benchmark::State& state) {
  PackedDeltaEncoder encoder(16, 8);
  feed_stream(state, Format::packed_delta, encoder);
}

BENCHMARK(feed_raw64)->Unit(benchmark::kMillisecond);
BENCHMARK(feed_delta32)->Unit(benchmark::kMillisecond);
BENCHMARK(feed_packed_delta)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
