// Counts the tags of each channel: count_tags SECONDS [PORT]
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <thread>

#include "timing/device.hpp"
#include "timing/tag_stream_reader.hpp"

namespace timing = zelk::timing;

int main(int argc, char** argv) try {
  using Clock = std::chrono::steady_clock;
  const std::chrono::duration<double> length(argc > 1 ? std::atof(argv[1]) : 1.0);
  const char* port = argc > 2 ? argv[2] : "ftdi://";

  timing::StreamFileHeader stream;
  stream.format = timing::Format::raw64;
  stream.transport = timing::Transport::usb;
  stream.mode = timing::StreamMode::external;
  stream.channel_mask = 0x0F;

  timing::Device device = timing::Device::open(port, timing::Device::standard_rate);
  device.load_calibration();
  device.set_stream_interface(stream.transport, stream.format);
  device.set_stream_channels(stream.channel_mask);
  device.disable_calibration_source();
  device.start_stream(stream.mode);

  timing::TagStreamReader reader(device);
  reader.start(stream, 262'144, 10'000'000);
  std::array<std::uint64_t, timing::channel_count> counts{};
  for (const auto end = Clock::now() + length; Clock::now() < end;) {
    const auto tags = reader.drain();
    if (tags.empty()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    for (const timing::TimeTag& tag : tags) {
      ++counts[tag.channel];
    }
  }
  reader.stop();
  device.stop_stream_any(true);

  for (std::size_t channel = 0; channel < counts.size(); ++channel) {
    std::printf("channel %zu: %llu tags\n", channel,
                static_cast<unsigned long long>(counts[channel]));
  }
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
