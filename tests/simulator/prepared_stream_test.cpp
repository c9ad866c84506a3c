// Streams that are made when they start: the bytes are those of the same stream
// without that, none is lost, and the link brings them at its rate.
#include "simulator/unit/prepared_stream.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "simulator/open_backend.hpp"
#include "tests/simulator/expect_failure.hpp"
#include "tests/simulator/listed_source.hpp"
#include "tests/simulator/unit_streams.hpp"
#include "tests/support/wire_words.hpp"

namespace zelk::simulator {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;
using test_support::big_endian_64;
using test_support::ps_record;

constexpr std::int64_t ms_ps = 1'000'000'000;

// Everything that a prepared stream brings; the time-out is the one of its end.
Bytes all_bytes(const std::string& port, const Wire& wire) {
  UnitClient unit(parse_device_port(port));
  start(unit, wire);
  Bytes bytes;
  for (;;) {
    const Bytes part = read_some(unit, 100'000, 100ms);
    if (part.empty()) {
      return bytes;
    }
    bytes.insert(bytes.end(), part.begin(), part.end());
  }
}

bool is_front_of(const Bytes& front, const Bytes& bytes) {
  return front.size() <= bytes.size() && std::equal(front.begin(), front.end(), bytes.begin());
}

constexpr Wire packed_delta_16_8{.name = "packed_delta_16_8",
                                 .format = timing::Format::packed_delta,
                                 .bits = 16,
                                 .quantum_ps = 8};
constexpr Wire raw64_internal{.name = "raw64_internal", .mode = timing::StreamMode::internal};
constexpr Wire delta32_internal{.name = "delta32_internal",
                                .format = timing::Format::delta32,
                                .mode = timing::StreamMode::internal};

class PreparedStreams : public testing::TestWithParam<Wire> {};

// What fills the last byte at the end of a prepared packed_delta stream is not
// there in one that goes on.
TEST_P(PreparedStreams, AreTheBeginningOfTheEndlessOne) {
  for (const std::string port :
       {"sim://random?pace=max&rate_hz=1e6&afterpulse_percent=5&seed=3",
        "sim://burst?pace=max&pause_us=0&link_bytes_per_s=400000000&start_epoch=20"}) {
    SCOPED_TRACE(port);
    Bytes prepared = all_bytes(port + "&prepared_s=0.05", GetParam());
    ASSERT_GT(prepared.size(), 10'000U);
    const Bytes endless = first_bytes(port, GetParam(), prepared.size());
    if (GetParam().format == timing::Format::packed_delta) {
      prepared.resize(prepared.size() - 32);
    }
    EXPECT_TRUE(is_front_of(prepared, endless));
  }
}

// With ends of bytes at each tick.
TEST_P(PreparedStreams, AreInRealTimeWhatAHostSeesThatIsNeverLate) {
  const std::string port = "sim://random?rate_hz=30000&seed=4&host_buffer_bytes=1000000";
  const Bytes prepared = all_bytes(port + "&prepared_s=0.0205", GetParam());
  ASSERT_GT(prepared.size(), 4000U);
  const Bytes endless = first_bytes(port, GetParam(), prepared.size());
  EXPECT_EQ(prepared.size(), endless.size());
  // The stream ends between two ticks.
  EXPECT_TRUE(is_front_of(Bytes(prepared.begin(), prepared.end() - 32), endless));
}

TEST_P(PreparedStreams, AreTheSameAtEachStartHoweverTheyAreRead) {
  const std::string port =
      "sim://burst?pause_us=0&prepared_s=0.03&link_bytes_per_s=400000000&host_buffer_bytes=4096";
  UnitClient unit(parse_device_port(port));
  Bytes first;
  for (const auto pause : {0ms, 50ms}) {
    start(unit, GetParam());
    std::this_thread::sleep_for(pause);
    Bytes bytes;
    for (Bytes part; !(part = read_some(unit, 65'536, 100ms)).empty();) {
      bytes.insert(bytes.end(), part.begin(), part.end());
    }
    unit.stop_stream(true);
    EXPECT_TRUE(first.empty() || bytes == first);
    first = bytes;
  }
  if (GetParam().mode == timing::StreamMode::external) {
    // 0.1 % is left free, and steps are found to within 0.1 %.
    EXPECT_LE(first.size(), 12'000'000U);
    EXPECT_GE(first.size(), 11'970'000U);
  }
  EXPECT_EQ(all_bytes(port + "&short_reads=1", GetParam()), first);
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, PreparedStreams,
                         testing::Values(raw64, delta32, packed_delta, packed_delta_16_8,
                                         raw64_internal, delta32_internal),
                         wire_name);

// A tag per microsecond for 20 ms makes 8 MB/s.
std::unique_ptr<SignalSource> fast_tags() {
  std::vector<Event> events;
  for (std::int64_t i = 0; i < 20'000; ++i) {
    events.push_back({i * 1'000'000, 2.5, 0});
  }
  return std::make_unique<ListedSource>(std::move(events));
}

PreparedStream prepared(Pace pace, std::int64_t length_ps, const LinkSettings& link = {},
                        std::int64_t max_bytes = max_prepared_bytes) {
  return {{fast_tags(), 0, pace},
          FrontEndSettings{},
          encoder_for(timing::Format::raw64, timing::StreamMode::external),
          length_ps,
          link,
          0,
          max_bytes};
}

TEST(PreparedStream, EndsWithTheLastTagBeforeItsLength) {
  for (const Pace pace : {Pace::as_read, Pace::real_time}) {
    PreparedStream stream = prepared(pace, 3'000'000);
    Bytes buffer(1000);
    buffer.resize(stream.read(buffer, 10s));
    EXPECT_EQ(buffer,
              big_endian_64({ps_record(0, 0), ps_record(0, 1'000'000), ps_record(0, 2'000'000)}));
    const auto start = Clock::now();
    buffer.resize(1000);
    EXPECT_EQ(stream.read(buffer, 30ms), 0U);
    EXPECT_GE(Clock::now() - start, 30ms);
  }
}

TEST(PreparedStream, ComesAtTheRateOfTheLinkAndLosesNothing) {
  const LinkSettings link{
      .fifo_bytes = 512, .rate_bytes_per_s = 2'000'000, .host_buffer_bytes = 4096};
  const auto start = Clock::now();
  PreparedStream stream = prepared(Pace::real_time, 20 * ms_ps, link);
  Bytes buffer(65'536);
  std::size_t bytes = 0;
  while (bytes < 160'000) {
    const std::size_t got = stream.read(buffer, 10s);
    ASSERT_NE(got, 0U);
    bytes += got;
    const std::chrono::duration<double> passed = Clock::now() - start;
    EXPECT_LE(static_cast<double>(bytes), 2e6 * passed.count() + 2000);  // a tick's bytes
  }
  EXPECT_EQ(bytes, 160'000U);
  EXPECT_EQ(stream.read(buffer, 0s), 0U);
}

TEST(PreparedStream, AHostThatIsLateFindsAllThatHasCome) {
  const LinkSettings link{.fifo_bytes = 512, .host_buffer_bytes = 4096};
  PreparedStream stream = prepared(Pace::real_time, 20 * ms_ps, link);
  std::this_thread::sleep_for(25ms);
  Bytes buffer(160'000);
  EXPECT_EQ(stream.read(buffer, 0s), 159'744U);  // whole packets
  EXPECT_EQ(stream.read(buffer, 0s), 256U);
}

TEST(PreparedStream, AnEmptyBufferIsFilledAtOnce) {
  PreparedStream stream = prepared(Pace::real_time, 20 * ms_ps);
  EXPECT_EQ(stream.read({}, 10s), 0U);
}

TEST(PreparedStream, TooManyBytesAreRefused) {
  EXPECT_NO_THROW(prepared(Pace::as_read, 20 * ms_ps, {}, 160'000));
  for (const Pace pace : {Pace::as_read, Pace::real_time}) {
    EXPECT_EQ(failure_text(Status::out_of_range, [&] { prepared(pace, 20 * ms_ps, {}, 159'999); }),
              "prepared_s: the stream would take more than 159999 bytes");
  }
}

// As with a fault in front of any other unit.
TEST(PreparedStream, MayHaveFaultsInFront) {
  const std::string port = "sim://random?rate_hz=1e6&prepared_s=0.01&pace=max";
  const Bytes healthy = all_bytes(port, raw64);
  ASSERT_GT(healthy.size(), 100'000U);
  const auto device = open_backend((port + "&ones_at_s=0").c_str(), 115'200);
  DeviceClient client(*device);
  client.start_stream(1, 0);
  Bytes bytes(1'000'000);
  std::size_t size = 0;
  while (size < healthy.size()) {
    size += client.read_stream(std::span(bytes).subspan(size), 10s);
  }
  EXPECT_EQ(size, healthy.size());
  EXPECT_EQ(std::count(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size), 0xFF),
            static_cast<std::ptrdiff_t>(size));
}

}  // namespace
}  // namespace zelk::simulator
