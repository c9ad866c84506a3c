#include "smoke_test/capture.hpp"

#include <chrono>
#include <thread>
#include <vector>

#include "smoke_test/deadline.hpp"
#include "smoke_test/interrupt.hpp"
#include "smoke_test/progress.hpp"
#include "timing/tag_stream_reader.hpp"

using zelk::timing::TagStreamReader;
using zelk::timing::TimeTag;

namespace {

constexpr std::size_t read_chunk_bytes = 262144;
constexpr std::chrono::milliseconds empty_queue_pause{2};

void collect_tags(TagStreamReader& reader, double capture_s, const InterruptWatch& interrupt,
                  CaptureStatistics& statistics, Watchdog& watchdog) {
  Progress progress(capture_s);
  std::vector<TimeTag> batch;
  const Deadline deadline(capture_s);
  while (deadline.is_ahead() && interrupt.signal_number() == 0) {
    watchdog.kick(Watchdog::streaming_limit);
    reader.drain(batch);
    progress.update(deadline.elapsed(), statistics.total());
    if (batch.empty()) {
      std::this_thread::sleep_for(empty_queue_pause);
      continue;
    }
    for (const TimeTag& tag : batch) {
      statistics.add(tag);
    }
  }
}

}  // namespace

Capture capture_tags(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
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
