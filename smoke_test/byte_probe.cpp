#include "smoke_test/byte_probe.hpp"

#include <algorithm>
#include <chrono>
#include <thread>

#include "smoke_test/deadline.hpp"
#include "smoke_test/interrupt.hpp"
#include "timing/stream_decoder.hpp"

using zelk::timing::StreamDecoder;
using zelk::timing::TimeTag;

namespace {

constexpr std::size_t read_buffer_bytes = 65536;
constexpr std::chrono::milliseconds empty_read_pause{1};

}  // namespace

void ByteProbe::add_bytes(std::span<const std::uint8_t> bytes) {
  const auto is_nonzero = [](std::uint8_t byte) { return byte != 0; };
  if (first_nonzero_offset < 0) {
    const auto first = std::ranges::find_if(bytes, is_nonzero);
    if (first != bytes.end()) {
      first_nonzero_offset = static_cast<std::int64_t>(payload_bytes) + (first - bytes.begin());
    }
  }
  nonzero_bytes += static_cast<std::uint64_t>(std::ranges::count_if(bytes, is_nonzero));
  payload_bytes += bytes.size();
  const auto kept = bytes.first(std::min(bytes.size(), first_bytes_kept - first_bytes.size()));
  first_bytes.insert(first_bytes.end(), kept.begin(), kept.end());
}

void ByteProbe::add_tags(std::span<const TimeTag> tags) {
  decoded_total += tags.size();
  for (const TimeTag& tag : tags) {
    if (tag.channel < decoded.size()) {
      ++decoded[tag.channel];
    }
  }
}

ByteProbe probe_bytes(zelk::timing::Device& device, ActiveStream& stream, const Config& config,
                      const zelk::timing::StreamFileHeader& header, Watchdog& watchdog) {
  ByteProbe probe;
  const InterruptWatch interrupt;
  StreamDecoder decoder(header);
  std::vector<std::uint8_t> buffer(read_buffer_bytes);
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
