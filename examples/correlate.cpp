// Shows once a second how two channels are correlated:
// correlate SECONDS CHANNEL_A CHANNEL_B [PORT]
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

#include "timing/device.hpp"
#include "timing/tag_stream_reader.hpp"
#include "timing/xcorr_histogram.hpp"

namespace timing = zelk::timing;

namespace {

using Times = std::vector<std::int64_t>;
using Clock = std::chrono::steady_clock;

constexpr std::int64_t range_ps = 5000;  // on either side of no difference at all
constexpr std::int64_t bin_width_ps = 20;

int channel_called(const char* text) {
  const int channel = std::atoi(text);
  if (channel < 0 || channel >= timing::channel_count) {
    throw std::runtime_error("channels are 0, 1, 2 and 3");
  }
  return channel;
}

// Takes what has arrived until `end`, into one list of times per channel.
void collect(timing::TagStreamReader& reader, Clock::time_point end,
             std::array<Times, timing::channel_count>& times) {
  do {
    const auto tags = reader.drain();
    if (tags.empty()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    for (const timing::TimeTag& tag : tags) {
      times[tag.channel].push_back(tag.timestamp_ps);
    }
  } while (Clock::now() < end);
}

void show(const Times& a, const Times& b) {
  const timing::XcorrHistogram histogram = timing::xcorr_histogram(a, b, range_ps, bin_width_ps, 0);
  const auto fullest = std::ranges::max_element(histogram.counts) - histogram.counts.begin();
  const std::int64_t pairs =
      std::accumulate(histogram.counts.begin(), histogram.counts.end(), std::int64_t{0});
  if (pairs == 0) {
    std::printf("no pairs\n");
    return;
  }
  std::printf("%lld pairs, most of them %lld ps apart, rms %.1f ps\n",
              static_cast<long long>(pairs),
              static_cast<long long>(histogram.centers_ps[static_cast<std::size_t>(fullest)]),
              histogram.rms_ps());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 4) {
    throw std::runtime_error("usage: correlate SECONDS CHANNEL_A CHANNEL_B [PORT]");
  }
  const int seconds = std::atoi(argv[1]);
  const auto a = static_cast<std::size_t>(channel_called(argv[2]));
  const auto b = static_cast<std::size_t>(channel_called(argv[3]));

  timing::StreamFileHeader stream;
  stream.format = timing::Format::raw64;
  stream.transport = timing::Transport::usb;
  stream.mode = timing::StreamMode::external;
  stream.channel_mask = static_cast<std::uint8_t>((1U << a) | (1U << b));

  timing::Device device =
      timing::Device::open(argc > 4 ? argv[4] : "ftdi://", timing::Device::standard_rate);
  device.load_calibration();
  device.set_stream_interface(stream.transport, stream.format);
  device.set_stream_channels(stream.channel_mask);
  device.disable_calibration_source();
  device.start_stream(stream.mode);

  timing::TagStreamReader reader(device);
  reader.start(stream, 262'144, 10'000'000);
  const Clock::time_point start = Clock::now();
  for (int second = 1; second <= seconds; ++second) {
    std::array<Times, timing::channel_count> times;
    collect(reader, start + std::chrono::seconds(second), times);
    show(times[a], times[b]);
  }
  reader.stop();
  device.stop_stream_any(true);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
