#include "smoke_test/capture.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <span>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "smoke_test/deadline.hpp"
#include "smoke_test/interrupt.hpp"
#include "smoke_test/last_tags.hpp"
#include "smoke_test/progress.hpp"
#include "timing/stream_decoder.hpp"
#include "timing/tag_stream_reader.hpp"

using zelk::timing::TagStreamReader;
using zelk::timing::TimeTag;

namespace {

constexpr std::size_t read_chunk_bytes = 262144;
constexpr std::chrono::milliseconds empty_queue_pause{2};
constexpr std::size_t probe_buffer_bytes = 65536;
constexpr std::chrono::milliseconds empty_read_pause{1};

void start(TagStreamReader& reader, const Config& config,
           const zelk::timing::StreamFileHeader& header) {
  const SignalsForMainThread handled_here;
  try {
    reader.start(header, read_chunk_bytes, config.queue_limit);
  } catch (const std::system_error& error) {
    throw std::runtime_error("cannot start the reader thread: " + error.code().message());
  }
}

double seconds(std::chrono::steady_clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

// Counts at most so many that there are `most` of them in all, and keeps what it counts.
void count_tags(CaptureStatistics& statistics, TagSink* sink, std::span<const TimeTag> tags,
                std::uint64_t most) {
  while (!tags.empty() && statistics.total() < most) {
    const std::uint64_t wanted = std::min<std::uint64_t>(tags.size(), most - statistics.total());
    const std::span<const TimeTag> some = tags.first(static_cast<std::size_t>(wanted));
    statistics.add(some);
    if (sink != nullptr) {
      sink->add(some);
    }
    tags = tags.subspan(static_cast<std::size_t>(wanted));
  }
}

void collect_tags(TagStreamReader& reader, const Config& config, const InterruptWatch& interrupt,
                  TagSink* sink, Capture& capture) {
  const std::uint64_t most_tags =
      config.stop_tags != 0 ? config.stop_tags : std::numeric_limits<std::uint64_t>::max();
  CaptureStatistics& statistics = capture.statistics;
  LastTags last_tags;
  Progress progress(config.capture_s, config.channel_mask);
  const Deadline deadline(config.capture_s);
  while (deadline.is_ahead() && interrupt.signal_number() == 0 && statistics.total() < most_tags) {
    const std::span<const TimeTag> tags = reader.drain();
    progress.update(deadline.elapsed(), statistics);
    if (tags.empty()) {
      std::this_thread::sleep_for(empty_queue_pause);
      continue;
    }
    count_tags(statistics, sink, tags, most_tags);
    last_tags.update(statistics, seconds(deadline.elapsed()));
  }
  capture.elapsed_s = seconds(deadline.elapsed());
  capture.silent_tail_s = last_tags.silent_tails_s(capture.elapsed_s);
}

}  // namespace

Capture capture_tags(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
                     const zelk::timing::StreamFileHeader& header, RunWatch& watch, TagSink* sink) {
  Capture capture{.statistics = CaptureStatistics(config.bin_s)};
  TagStreamReader reader(device);
  watch.attempt("the captured tags", [&] {  // in either thread
    start(reader, config, header);
    collect_tags(reader, config, watch.interrupt, sink, capture);
    reader.stop();
    if (sink != nullptr) {
      sink->finish();
    }
  });
  stream.stop();
  capture.reader_dropped = reader.dropped;
  capture.host_pause_s = seconds(reader.longest_pause);
  watch.interrupt.end_at_once_from_now_on();
  capture.interrupting_signal = watch.interrupt.signal_number();
  return capture;
}

ByteProbe probe_bytes(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
                      const zelk::timing::StreamFileHeader& header, RunWatch& watch) {
  ByteProbe probe;
  zelk::timing::StreamDecoder decoder(header);
  std::vector<std::uint8_t> buffer(probe_buffer_bytes);
  const Deadline deadline(config.capture_s);
  while (deadline.is_ahead() && watch.interrupt.signal_number() == 0) {
    const std::size_t received = device.read_stream_bytes(buffer).value_or(0);
    if (received == 0) {
      std::this_thread::sleep_for(empty_read_pause);
      continue;
    }
    const auto bytes = std::span(buffer).first(received);
    probe.add_bytes(bytes);
    probe.add_tags(decoder.feed(bytes.data(), bytes.size()));
  }
  stream.stop();
  watch.interrupt.end_at_once_from_now_on();
  probe.interrupting_signal = watch.interrupt.signal_number();
  return probe;
}
