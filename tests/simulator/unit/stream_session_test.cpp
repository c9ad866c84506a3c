#include "simulator/unit/stream_session.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <utility>

#include "simulator/encoders/encoder_for.hpp"
#include "tests/simulator/listed_source.hpp"
#include "tests/support/wire_words.hpp"

namespace zelk::simulator {
namespace {

using namespace std::chrono_literals;
using test_support::big_endian_64;
using test_support::Bytes;
using test_support::ps_record;
using Clock = std::chrono::steady_clock;

StreamSession session_of(std::vector<Event> events, Pace pace, std::int64_t origin_ps = 0) {
  return {{std::make_unique<ListedSource>(std::move(events)), origin_ps, pace},
          FrontEndSettings{},
          encoder_for(timing::Format::raw64, timing::StreamMode::external)};
}

Bytes read(StreamSession& session, std::size_t capacity, std::chrono::milliseconds timeout) {
  Bytes buffer(capacity);
  buffer.resize(session.read(buffer, timeout));
  return buffer;
}

TEST(StreamSession, BytesThatDoNotFitWaitForTheNextRead) {
  StreamSession session = session_of({{1, 2.5, 0}, {2, 2.5, 1}, {3, 2.5, 2}}, Pace::as_read);
  Bytes all;
  while (true) {
    const Bytes part = read(session, 5, 0ms);
    if (part.empty()) {
      break;
    }
    EXPECT_LE(part.size(), 5U);
    all.insert(all.end(), part.begin(), part.end());
  }
  EXPECT_EQ(all, big_endian_64({ps_record(0, 1), ps_record(1, 2), ps_record(2, 3)}));
}

TEST(StreamSession, AReadWithoutDataWaitsForItsTimeout) {
  StreamSession session = session_of({}, Pace::real_time);
  const auto start = Clock::now();
  EXPECT_TRUE(read(session, 100, 30ms).empty());
  EXPECT_GE(Clock::now() - start, 30ms);
}

TEST(StreamSession, AReadReturnsWhenAnEventHasArrived) {
  StreamSession session = session_of({{5'500'000'000, 2.5, 0}}, Pace::real_time);
  const auto start = Clock::now();
  EXPECT_EQ(read(session, 100, 10'000ms), big_endian_64({ps_record(0, 5'500'000'000)}));
  EXPECT_GE(Clock::now() - start, 5500us);
  EXPECT_LT(Clock::now() - start, 5'000ms);
}

TEST(StreamSession, DataArriveInStepsNotRecordByRecord) {
  std::vector<Event> events;
  for (std::int64_t i = 0; i < 2000; ++i) {
    events.push_back({i * 10'000'000, 2.5, 0});  // every 10 us for 20 ms
  }
  StreamSession session = session_of(events, Pace::real_time);
  std::size_t bytes = 0;
  int reads = 0;
  while (bytes < 2000 * 8) {
    const std::size_t got = read(session, 65536, 1000ms).size();
    ASSERT_NE(got, 0U);
    bytes += got;
    ++reads;
  }
  EXPECT_LE(reads, 20);
}

TEST(StreamSession, StreamTimeBeginsAtTheOriginOfTheSignal) {
  const std::int64_t origin_ps = 3'600'000'000'000'000;  // one hour
  StreamSession session = session_of({{origin_ps + 1, 2.5, 0}}, Pace::real_time, origin_ps);
  EXPECT_EQ(read(session, 8, 5000ms).size(), 8U);
}

class EndlessSource final : public SignalSource {
 public:
  const Event* peek() override { return &event_; }
  void pop() override { ++event_.time_ps; }

 private:
  Event event_{.time_ps = 0, .amplitude_v = 0.0, .channel = 0};  // below the threshold
};

TEST(StreamSession, ASignalThatMakesNoTagsCannotHoldAReadForLong) {
  StreamSession session({std::make_unique<EndlessSource>(), 0, Pace::as_read}, FrontEndSettings{},
                        encoder_for(timing::Format::raw64, timing::StreamMode::external));
  const auto start = Clock::now();
  EXPECT_TRUE(read(session, 100, 20ms).empty());
  EXPECT_LT(Clock::now() - start, 1000ms);
}

// A tag of 8 bytes per microsecond on a link of 1 MB/s, and a host that sleeps:
// its buffer and the FIFO fill up, and what comes then is lost.
TEST(StreamSession, TagsThatFindTheFifoFullAreLost) {
  std::vector<Event> events;
  for (std::int64_t i = 0; i < 20'000; ++i) {
    events.push_back({i * 1'000'000, 2.5, 0});
  }
  const LinkSettings link{
      .fifo_bytes = 512, .rate_bytes_per_s = 1'000'000, .host_buffer_bytes = 4096};
  StreamSession session({std::make_unique<ListedSource>(std::move(events)), 0, Pace::real_time},
                        FrontEndSettings{},
                        encoder_for(timing::Format::raw64, timing::StreamMode::external), link);
  std::this_thread::sleep_for(25ms);
  Bytes bytes = read(session, 65'536, 10'000ms);
  EXPECT_EQ(bytes.size(), 4096U);
  while (bytes.size() < 4608) {
    const Bytes more = read(session, 65'536, 10'000ms);
    ASSERT_FALSE(more.empty());
    bytes.insert(bytes.end(), more.begin(), more.end());
  }
  EXPECT_EQ(bytes.size(), 4608U);
  EXPECT_TRUE(read(session, 65'536, 5ms).empty());
  // The FIFO gains 7 bytes per tag: tag 73 finds 511 in it, tag 74 finds 518.
  for (std::size_t tag = 0; tag <= 73; ++tag) {
    const Bytes record(bytes.begin() + static_cast<std::ptrdiff_t>(8 * tag),
                       bytes.begin() + static_cast<std::ptrdiff_t>(8 * tag + 8));
    ASSERT_EQ(record, big_endian_64({ps_record(0, 1'000'000 * tag)})) << tag;
  }
  const Bytes next(bytes.begin() + 8 * 74, bytes.begin() + 8 * 75);
  EXPECT_NE(next, big_endian_64({ps_record(0, 74'000'000)}));
}

// A pulse every 100 us, made on a machine that takes four times as long.
class LaboriousSource final : public SignalSource {
 public:
  static constexpr std::uint64_t events = 4000;
  static constexpr std::int64_t step_ps = 100'000'000;

  const Event* peek() override { return made_ < events ? &event_ : nullptr; }

  void pop() override {
    event_.time_ps += step_ps;
    if (++made_ % 10 == 0) {
      std::this_thread::sleep_for(4ms);
    }
  }

 private:
  Event event_{.time_ps = 0, .amplitude_v = 2.5, .channel = 0};
  std::uint64_t made_ = 0;
};

// The buffers hold 0.2 s of the signal.
TEST(StreamSession, AMachineThatIsTooSlowLosesNothing) {
  const LinkSettings link{.fifo_bytes = 512, .host_buffer_bytes = 16'384};
  StreamSession session({std::make_unique<LaboriousSource>(), 0, Pace::real_time},
                        FrontEndSettings{},
                        encoder_for(timing::Format::raw64, timing::StreamMode::external), link);
  Bytes bytes;
  while (bytes.size() < 8 * LaboriousSource::events) {
    const Bytes part = read(session, 65'536, 1000ms);
    if (part.empty()) {
      break;
    }
    bytes.insert(bytes.end(), part.begin(), part.end());
  }
  Bytes expected;
  for (std::uint64_t i = 0; i < LaboriousSource::events; ++i) {
    const Bytes record = big_endian_64({ps_record(0, LaboriousSource::step_ps * i)});
    expected.insert(expected.end(), record.begin(), record.end());
  }
  EXPECT_EQ(bytes, expected);
}

TEST(StreamSession, AnEmptyBufferIsFilledAtOnce) {
  StreamSession session = session_of({{0, 2.5, 0}}, Pace::as_read);
  EXPECT_TRUE(read(session, 0, 10'000ms).empty());
  EXPECT_EQ(read(session, 8, 0ms).size(), 8U);
}

}  // namespace
}  // namespace zelk::simulator
