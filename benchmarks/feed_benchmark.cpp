// What it costs to decode a stream of four channels, per format and size of the
// chunks that it comes in. The stream has 1 MiB, so that it stays in the caches
// as bytes do that were just read.
//
// The yardstick is the plain record loop: load 8 bytes, swap, test the mask,
// store a tag into an array of 32768, all of it warm. It runs in the same process
// and in turn with the decoder. `ratio` is its time per record over the
// decoder's: 1 means that decoding costs no more than the loop.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "benchmarks/stopwatch.hpp"
#include "simulator/encoders/delta32_encoder.hpp"
#include "simulator/encoders/packed_delta_encoder.hpp"
#include "simulator/encoders/raw64_encoder.hpp"
#include "timing/detail/byte_order.hpp"
#include "timing/stream_decoder.hpp"
#include "timing/stream_header.hpp"
#include "timing/time_tag.hpp"
#include "timing/wire_format.hpp"

namespace {

using zelk::simulator::BitWriter;
using zelk::simulator::CoarseFineEncoder;
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
namespace packed = zelk::timing::wire::packed_delta;
namespace raw64 = zelk::timing::wire::raw64;

constexpr std::size_t stream_bytes = 1048576;
constexpr int rounds = 4;                         // over the stream, so that the caches are its own
constexpr std::int64_t tag_interval_ps = 10'000;  // 100 million tags per second
constexpr int payload_bits = 16;
constexpr int packed_width = payload_bits + packed::header_bits;

struct Stream {
  Format format = Format::raw64;
  StreamMode mode = StreamMode::external;
  std::vector<std::uint8_t> bytes{};
  std::size_t records = 0;
  std::size_t tags = 0;
};

enum class Channels { in_turn, at_random };

// Tags at a steady rate, all of which the encoder sends.
Stream encoded_stream(Format format, StreamMode mode, StreamEncoder& encoder,
                      Channels channels = Channels::in_turn) {
  Stream stream{.format = format, .mode = mode};
  std::mt19937_64 random(1);
  for (std::int64_t i = 0; stream.bytes.size() < stream_bytes; ++i) {
    const std::uint64_t turn = channels == Channels::in_turn || i < channel_count
                                   ? static_cast<std::uint64_t>(i)
                                   : random();
    encoder.append({static_cast<std::uint8_t>(turn % channel_count), (i + 1) * tag_interval_ps},
                   stream.bytes);
    ++stream.tags;
  }
  encoder.flush(stream.bytes);
  stream.records = stream.tags;
  return stream;
}

Stream raw64_stream() {
  Raw64Encoder encoder;
  return encoded_stream(Format::raw64, StreamMode::external, encoder);
}

Stream delta32_stream() {
  Delta32Encoder encoder;
  return encoded_stream(Format::delta32, StreamMode::external, encoder);
}

Stream packed_stream(Channels channels) {
  PackedDeltaEncoder encoder(payload_bits, packed::default_quantum_ps);
  return encoded_stream(Format::packed_delta, StreamMode::external, encoder, channels);
}

// Records with random fields: only the syncs in front are as a unit sends them.
class PackedRecords {
 public:
  explicit PackedRecords(Stream& stream) : stream_(stream) {
    constexpr std::uint64_t all_ones = (std::uint64_t{1} << payload_bits) - 1;
    for (std::uint64_t channel = 0; channel < channel_count; ++channel) {
      put(channel, true, all_ones);
      for (int chunk = 0; chunk < packed::sync_chunks(payload_bits); ++chunk) {
        put(channel, false, 1);
      }
      put(channel, false, 1);
    }
  }
  void put(std::uint64_t channel, bool flag, std::uint64_t payload) {
    writer_.put((channel << 1 | (flag ? 1 : 0)) << payload_bits | payload, packed_width,
                stream_.bytes);
  }

 private:
  Stream& stream_;
  BitWriter writer_{0};
};

// Every other record, at random, is an overflow.
Stream packed_overflow_stream() {
  Stream stream{.format = Format::packed_delta};
  PackedRecords records(stream);
  stream.tags = channel_count;
  std::mt19937_64 random(1);
  while (stream.bytes.size() < stream_bytes) {
    const bool is_overflow = random() % 2 == 0;
    records.put(random() % channel_count, is_overflow, is_overflow ? random() % 4 : 1000);
    stream.tags += is_overflow ? 0 : 1;
    ++stream.records;
  }
  records.put(0, true, 0);  // completes the byte in which the last tag ends
  return stream;
}

// Bytes without any meaning, in which no alignment is found.
Stream noise_stream() {
  Stream stream{.format = Format::packed_delta};
  stream.records = 8 * stream_bytes / packed_width;
  stream.bytes.resize(stream_bytes);
  std::mt19937_64 random(1);
  for (std::uint8_t& byte : stream.bytes) {
    byte = static_cast<std::uint8_t>(random());
  }
  return stream;
}

// The yardstick, over a raw64 stream. Returns its time per record.
double plain_record_seconds() {
  static std::array<TimeTag, 32768> tags;
  static const Stream stream = raw64_stream();
  const auto read_all = [&] {
    const std::uint8_t* const bytes = stream.bytes.data();
    std::size_t count = 0;
    for (std::size_t next = 0; next < stream.bytes.size(); next += raw64::record_bytes) {
      const std::uint64_t word = zelk::timing::detail::load_be64(bytes + next);
      if ((word & raw64::ps_fixed_mask) == raw64::ps_fixed_value) {
        tags[count % tags.size()] = {
            static_cast<std::uint8_t>(word >> raw64::channel_shift & raw64::channel_mask),
            static_cast<std::int64_t>(word & raw64::ps_timestamp_mask)};
        ++count;
      }
    }
    benchmark::DoNotOptimize(tags.data());
    benchmark::ClobberMemory();
  };
  read_all();
  double s = 0;
  for (int round = 0; round < rounds; ++round) {
    s += seconds(read_all);
  }
  return s / static_cast<double>(rounds * stream.records);
}

// Decodes the stream from `done` on. Returns the number of tags.
std::size_t decode(const Stream& stream, StreamDecoder& decoder, std::size_t done,
                   std::size_t chunk_bytes, std::vector<TimeTag>& tags) {
  std::size_t count = 0;
  for (; done < stream.bytes.size(); done += chunk_bytes) {
    const std::size_t size = std::min(chunk_bytes, stream.bytes.size() - done);
    decoder.feed(stream.bytes.data() + done, size, tags);
    benchmark::DoNotOptimize(tags.data());
    count += tags.size();
  }
  return count;
}

// The first bytes of a stream are not measured: they are for finding the lock.
constexpr std::size_t head_bytes = 512;

// Argument: bytes in a chunk.
void feed(benchmark::State& state, const Stream& stream) {
  const auto chunk_bytes = static_cast<std::size_t>(state.range(0));
  StreamFileHeader header;
  header.format = stream.format;
  header.mode = stream.mode;
  std::vector<TimeTag> head_tags;
  std::vector<TimeTag> tags;
  double feed_s = 0;
  double plain_record_s = 0;
  std::size_t count = 0;
  const auto decode_all = [&] {
    StreamDecoder decoder(header);
    decoder.feed(stream.bytes.data(), head_bytes, head_tags);
    count += head_tags.size();
    return seconds([&] { count += decode(stream, decoder, head_bytes, chunk_bytes, tags); });
  };
  for ([[maybe_unused]] const auto _ : state) {
    plain_record_s += plain_record_seconds();
    decode_all();
    double s = 0;
    for (int round = 0; round < rounds; ++round) {
      s += decode_all();
    }
    feed_s += s;
    state.SetIterationTime(s);
  }
  const auto iterations = static_cast<double>(state.iterations());
  if (count != static_cast<std::size_t>(state.iterations()) * (1 + rounds) * stream.tags) {
    state.SkipWithError("the decoder did not return every tag");
  }
  const double feed_record_s = feed_s / static_cast<double>(rounds * stream.records);
  state.counters["record_ns"] = 1e9 * feed_record_s / iterations;
  state.counters["plain_ns"] = 1e9 * plain_record_s / iterations;
  state.counters["ratio"] = plain_record_s / feed_record_s;
}

void feed_raw64_ps(benchmark::State& state) {
  static const Stream stream = raw64_stream();
  feed(state, stream);
}

void feed_raw64_cf(benchmark::State& state) {
  static const Stream stream = [] {
    CoarseFineEncoder encoder;
    return encoded_stream(Format::raw64, StreamMode::internal, encoder);
  }();
  feed(state, stream);
}

void feed_delta32(benchmark::State& state) {
  static const Stream stream = delta32_stream();
  feed(state, stream);
}

void feed_packed_steady(benchmark::State& state) {
  static const Stream stream = packed_stream(Channels::in_turn);
  feed(state, stream);
}

void feed_packed_random_channels(benchmark::State& state) {
  static const Stream stream = packed_stream(Channels::at_random);
  feed(state, stream);
}

void feed_packed_random_overflows(benchmark::State& state) {
  static const Stream stream = packed_overflow_stream();
  feed(state, stream);
}

void feed_packed_noise(benchmark::State& state) {
  static const Stream stream = noise_stream();
  feed(state, stream);
}

void at_each_chunk_size(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("chunk")->Arg(512)->Arg(16384)->Arg(262144);
  benchmark->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(feed_raw64_ps)->Apply(at_each_chunk_size);
BENCHMARK(feed_raw64_cf)->Apply(at_each_chunk_size);
BENCHMARK(feed_delta32)->Apply(at_each_chunk_size);
BENCHMARK(feed_packed_steady)->Apply(at_each_chunk_size);
BENCHMARK(feed_packed_random_channels)->Apply(at_each_chunk_size);
BENCHMARK(feed_packed_random_overflows)->Apply(at_each_chunk_size);
BENCHMARK(feed_packed_noise)->Apply(at_each_chunk_size);

}  // namespace

BENCHMARK_MAIN();
