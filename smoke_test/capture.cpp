#include "smoke_test/capture.hpp"

#include <chrono>
#include <new>
#include <span>
#include <stdexcept>
#include <thread>
#include <vector>

#include "smoke_test/deadline.hpp"
#include "smoke_test/interrupt.hpp"
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

void collect_tags(TagStreamReader& reader, double capture_s, const InterruptWatch& interrupt,
                  CaptureStatistics& statistics, Watchdog& watchdog) {
  Progress progress(capture_s);
  const Deadline deadline(capture_s);
  while (deadline.is_ahead() && interrupt.signal_number() == 0) {
    watchdog.kick(Watchdog::streaming_limit);
    const std::span<const TimeTag> tags = reader.drain();
    progress.update(deadline.elapsed(), statistics.total());
    statistics.add(tags);
    if (tags.empty()) {
      std::this_thread::sleep_for(empty_queue_pause);
    }
  }
}

Capture run_capture(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
                    const zelk::timing::StreamFileHeader& header, Watchdog& watchdog) {
  Capture capture{.statistics = CaptureStatistics(config.bin_s)};
  const InterruptWatch interrupt;
  TagStreamReader reader(device);
  reader.start(header, read_chunk_bytes, config.queue_limit);
  collect_tags(reader, config.capture_s, interrupt, capture.statistics, watchdog);
  watchdog.kick(Watchdog::streaming_limit);
  reader.stop();
  stream.stop();
  capture.reader_dropped = reader.dropped;
  capture.interrupting_signal = interrupt.signal_number();
  return capture;
}

}  // namespace

Capture capture_tags(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
                     const zelk::timing::StreamFileHeader& header, Watchdog& watchdog) {
  try {
    return run_capture(device, stream, config, header, watchdog);
  } catch (const std::bad_alloc&) {  // of either thread
    throw std::runtime_error("not enough memory for the captured tags");
  }
}

ByteProbe probe_bytes(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
                      const zelk::timing::StreamFileHeader& header, Watchdog& watchdog) {
  ByteProbe probe;
  const InterruptWatch interrupt;
  zelk::timing::StreamDecoder decoder(header);
  std::vector<std::uint8_t> buffer(probe_buffer_bytes);
  const Deadline deadline(config.capture_s);
  while (deadline.is_ahead() && interrupt.signal_number() == 0) {
    watchdog.kick(Watchdog::streaming_limit);
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
  probe.interrupting_signal = interrupt.signal_number();
  return probe;
}
