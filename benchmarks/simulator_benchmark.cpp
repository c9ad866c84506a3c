// What the simulated unit costs the host that reads it: streams that are made as
// they are read, prepared ones, and recordings. As many bytes are copied in the
// same iteration, so that the ratio holds on a noisy machine:
//   bytes_per_second  of the reads
//   tags_per_s        all records count as tags, of which a few per thousand are none
//   ratio             reads / copies, in time: a read that is only a copy has 1
// The argument is the number of the format.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "benchmarks/stopwatch.hpp"
#include "simulator/device_backend.hpp"
#include "simulator/encoders/encoder_for.hpp"
#include "simulator/open_backend.hpp"
#include "simulator/recordings/recording_writer.hpp"
#include "tests/support/temporary_directory.hpp"
#include "timing/time_tag.hpp"

namespace {

using zelk::simulator::bits_per_tag;
using zelk::simulator::CallKind;
using zelk::simulator::DeviceBackend;
using zelk::simulator::DeviceCall;
using zelk::simulator::open_backend;
using zelk::simulator::RecordedCall;
using zelk::simulator::RecordingWriter;
using zelk::test_support::TemporaryDirectory;
using zelk::timing::Format;

constexpr std::size_t read_bytes = std::size_t{1} << 18;
constexpr std::size_t bytes_per_iteration = std::size_t{1} << 24;
constexpr int time_out_ms = 1000;

std::unique_ptr<DeviceBackend> started_device(const std::string& port, Format format) {
  std::unique_ptr<DeviceBackend> device = open_backend(port, {});
  if (!port.starts_with("replay:")) {
    DeviceCall interface { .kind = CallKind::set_stream_interface };
    interface.arguments = {1, static_cast<std::uint64_t>(format)};
    device->call(interface);
  }
  DeviceCall start{.kind = CallKind::start_stream_mode};
  start.arguments = {static_cast<std::uint64_t>(zelk::timing::StreamMode::external), 0};
  device->call(start);
  return device;
}

// Reads and copies in turn, and adds up the time of each.
class Race {
 public:
  // Returns the seconds that the reads took.
  double run(DeviceBackend& device) {
    const double begin_s = processor_seconds();
    for (std::size_t done = 0; done < bytes_per_iteration;) {
      std::size_t received = 0;
      device.read(buffer_, received, time_out_ms);
      benchmark::DoNotOptimize(buffer_.data());
      done += received;
    }
    const double middle_s = processor_seconds();
    for (std::size_t done = 0; done < bytes_per_iteration; done += read_bytes) {
      std::memcpy(buffer_.data(), source_.data() + done, read_bytes);
      benchmark::DoNotOptimize(buffer_.data());
      benchmark::ClobberMemory();
    }
    read_s_ += middle_s - begin_s;
    copy_s_ += processor_seconds() - middle_s;
    return middle_s - begin_s;
  }

  void report(benchmark::State& state) const {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes_per_iteration));
    state.counters["ratio"] = read_s_ / copy_s_;
  }

  void report(benchmark::State& state, Format format) const {
    report(state);
    const double bytes =
        static_cast<double>(state.iterations()) * static_cast<double>(bytes_per_iteration);
    state.counters["tags_per_s"] = bytes * 8 / bits_per_tag(format, {}) / read_s_;
  }

 private:
  std::vector<std::uint8_t> source_ = std::vector<std::uint8_t>(bytes_per_iteration, 1);
  std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(read_bytes);
  double read_s_ = 0;
  double copy_s_ = 0;
};

void read_made(benchmark::State& state, const std::string& port) {
  const auto format = static_cast<Format>(state.range(0));
  const std::unique_ptr<DeviceBackend> device = started_device(port, format);
  Race race;
  for ([[maybe_unused]] const auto _ : state) {
    state.SetIterationTime(race.run(*device));
  }
  race.report(state, format);
}

void burst_made_as_read(benchmark::State& state) {
  read_made(state, "sim://burst?pace=max");
}

// A million tags on four channels in turn, 10 ns apart in the mean.
void tags_made_as_read(benchmark::State& state) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() / "tags.csv";
  std::ofstream file(path);
  file << "channel,timestamp_ps\n";
  std::mt19937_64 random(1);
  std::uint64_t time_ps = 0;
  for (int i = 0; i < 1'000'000; ++i) {
    time_ps += 1 + random() % 20'000;
    file << i % zelk::timing::channel_count << ',' << time_ps << '\n';
  }
  file.close();
  read_made(state, "sim://tags?pace=max&loop=1&file=" + path);
}

// What all bytes of an iteration take at 400 MB/s, and a little more.
void prepared(benchmark::State& state) {
  const auto format = static_cast<Format>(state.range(0));
  Race race;
  for ([[maybe_unused]] const auto _ : state) {
    const std::unique_ptr<DeviceBackend> device = started_device(
        "sim://burst?pace=max&pause_us=0&link_bytes_per_s=400000000&prepared_s=0.043", format);
    state.SetIterationTime(race.run(*device));
  }
  race.report(state, format);
}

// A recording of the bytes of an iteration, in chunks of the size of a read.
std::string write_recording(const std::string& path) {
  RecordingWriter writer(path, {.library = "none", .port = "none"});
  RecordedCall start;
  start.call.kind = CallKind::start_stream_mode;
  start.call.arguments = {static_cast<std::uint64_t>(zelk::timing::StreamMode::external), 0};
  writer.add(start);
  std::vector<std::uint8_t> chunk(read_bytes);
  std::mt19937_64 random(1);
  for (std::size_t done = 0; done < bytes_per_iteration; done += chunk.size()) {
    std::generate(chunk.begin(), chunk.end(), [&] { return static_cast<std::uint8_t>(random()); });
    writer.add_chunk(0, chunk);
  }
  writer.finish(0);
  return path;
}

void replay(benchmark::State& state) {
  const TemporaryDirectory directory;
  const std::string path = write_recording(directory.path() / "stream.rec");
  Race race;
  for ([[maybe_unused]] const auto _ : state) {
    const auto device = started_device("replay://" + path + "?pace=max", Format::raw64);
    state.SetIterationTime(race.run(*device));
  }
  race.report(state);
}

constexpr auto raw64 = static_cast<std::int64_t>(Format::raw64);
constexpr auto packed_delta = static_cast<std::int64_t>(Format::packed_delta);

BENCHMARK(burst_made_as_read)->ArgName("format")->DenseRange(raw64, packed_delta)->UseManualTime();
BENCHMARK(tags_made_as_read)->ArgName("format")->DenseRange(raw64, packed_delta)->UseManualTime();
BENCHMARK(prepared)->ArgName("format")->DenseRange(raw64, packed_delta)->UseManualTime();
BENCHMARK(replay)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
