// Counts the tags of a tenth of a second on the first device found.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <thread>
#include <vector>

#include "timing/device.hpp"
#include "timing/tag_stream_reader.hpp"

#if defined(_FORTIFY_SOURCE) || defined(_GLIBCXX_ASSERTIONS)
#error "checks of the library's own build came along with it"
#endif

namespace {

// With the warnings of the library this would not compile.
int unused_parameter(int ignored) {
  return 0;
}

std::uint64_t count_tags() {
  namespace timing = zelk::timing;
  timing::Device device = timing::Device::open_first(timing::Device::standard_rate);
  const std::uint8_t channels = 0x3;
  device.set_stream_interface(timing::Transport::usb, timing::Format::raw64);
  device.set_stream_channels(channels);
  device.disable_calibration_source();
  device.start_stream(timing::StreamMode::external);

  timing::StreamFileHeader header;
  header.format = timing::Format::raw64;
  header.mode = timing::StreamMode::external;
  header.channel_mask = channels;
  timing::TagStreamReader reader(device);
  reader.start(header, 65536, 1'000'000);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  reader.stop();
  device.stop_stream_any(true);

  std::uint64_t count = 0;
  std::vector<timing::TimeTag> batch;
  do {
    reader.drain(batch);
    count += batch.size();
  } while (!batch.empty());
  return count;
}

}  // namespace

int main() {
  try {
    const std::uint64_t count = count_tags();
    std::printf("%llu tags\n", static_cast<unsigned long long>(count));
    return count > 0 ? unused_parameter(1) : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
