#include "simulator/faults/faulty_device.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <optional>
#include <thread>
#include <utility>

#include "simulator/call_records.hpp"
#include "simulator/ports/port_query.hpp"
#include "tests/simulator/device_client.hpp"
#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

// Answers everything, counts the calls that reach it, and streams the bytes 0,
// 1, 2, ... as fast as they are read, `available` of them from every start.
class HealthyDevice final : public DeviceBackend {
 public:
  qx_status call(DeviceCall& call) override {
    ++calls;
    switch (call.kind) {
      case CallKind::set_reference_clock:
        clock.request(static_cast<std::uint32_t>(call.arguments[0]),
                      static_cast<std::uint32_t>(call.arguments[1]));
        [[fallthrough]];
      case CallKind::get_reference_clock_status:
        clock_to_words(clock.status(), call.results);
        break;
      case CallKind::start_stream_mode:
        next = 0;
        streaming = true;
        break;
      case CallKind::stop_stream_mode:
        streaming = false;
        break;
      default:
        break;
    }
    return 0;
  }
  qx_status read(std::span<std::uint8_t> buffer, std::size_t& received, int timeout_ms) override {
    ++calls;
    if (!streaming) {
      throw Failure(Status::not_streaming, "");
    }
    received = std::min(buffer.size(), available - next);
    for (std::uint8_t& byte : buffer.first(received)) {
      byte = static_cast<std::uint8_t>(next++);
    }
    if (received == 0 && !buffer.empty()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(timeout_ms));
      throw Failure(Status::timed_out, "");
    }
    return 0;
  }

  int calls = 0;
  std::size_t next = 0;
  std::size_t available = SIZE_MAX;
  bool streaming = false;
  ReferenceClock clock{ExternalReference::locked};
};

// A device with the faults that `query` asks for.
struct Bench {
  explicit Bench(const std::string& query, std::uint32_t seed = 1) {
    PortQuery keys(query);
    auto made = std::make_unique<HealthyDevice>();
    healthy = made.get();
    backend = with_faults(std::move(made), take_fault_plan(keys), seed);
    device.emplace(*backend);
  }

  void start() { device->start_stream(1, 0); }

  Bytes read(std::size_t size, std::chrono::milliseconds timeout = 20ms) {
    Bytes bytes(size);
    bytes.resize(device->read_stream(bytes, timeout));
    return bytes;
  }

  HealthyDevice* healthy;
  std::unique_ptr<DeviceBackend> backend;
  std::optional<DeviceClient> device;
};

// Every call on an open device.
std::vector<std::pair<CallKind, std::function<void(DeviceClient&)>>> every_call() {
  static constexpr std::array<std::uint8_t, 4> masks{};
  static constexpr std::array<std::uint16_t, 4> codes{};
  static Bytes buffer(8);
  return {
      {CallKind::identify, [](DeviceClient& d) { d.identity(); }},
      {CallKind::load_calibration, [](DeviceClient& d) { d.load_calibration(1); }},
      {CallKind::get_reference_clock_status, [](DeviceClient& d) { d.reference_clock(); }},
      {CallKind::set_reference_clock, [](DeviceClient& d) { d.set_reference_clock(1, 0); }},
      {CallKind::set_tdl_active_masks, [](DeviceClient& d) { d.set_delay_line_masks(masks); }},
      {CallKind::get_tdl_active_masks, [](DeviceClient& d) { d.delay_line_masks(); }},
      {CallKind::set_dac_codes, [](DeviceClient& d) { d.set_threshold_codes(codes); }},
      {CallKind::set_input_dead_time, [](DeviceClient& d) { d.set_dead_time(0); }},
      {CallKind::set_packed_delta_config, [](DeviceClient& d) { d.set_packed_delta(16, 8); }},
      {CallKind::set_stream_interface, [](DeviceClient& d) { d.set_stream_interface(1, 0); }},
      {CallKind::set_stream_channel_mask, [](DeviceClient& d) { d.set_channel_mask(15); }},
      {CallKind::set_calibration_freq, [](DeviceClient& d) { d.set_calibration_frequency(1e4); }},
      {CallKind::enable_calibration_source,
       [](DeviceClient& d) { d.enable_calibration_source(true); }},
      {CallKind::disable_calibration_source,
       [](DeviceClient& d) { d.enable_calibration_source(false); }},
      {CallKind::start_stream_mode, [](DeviceClient& d) { d.start_stream(1, 0); }},
      {CallKind::read_stream_bytes, [](DeviceClient& d) { d.read_stream(buffer, 0ms); }},
      {CallKind::stop_stream_mode, [](DeviceClient& d) { d.stop_stream(true); }},
  };
}

std::chrono::duration<double> time_of(const std::function<void()>& action) {
  const Clock::time_point start = Clock::now();
  action();
  return Clock::now() - start;
}

TEST(FaultyDevice, StandsInFrontOnlyWhenSomethingGoesWrong) {
  for (const char* const query : {"", "flip_bits=0"}) {
    Bench bench(query);
    EXPECT_EQ(bench.backend.get(), bench.healthy) << query;
  }
  Bench faulty("vanish_at_s=1000");
  EXPECT_NE(faulty.backend.get(), faulty.healthy);
}

TEST(FaultyDevice, EveryCallFailsWhenAskedToAndNoOther) {
  for (const auto& [failing, unused] : every_call()) {
    const std::string name(shape_of(failing).name);
    SCOPED_TRACE(name);
    Bench bench("fail=" + name + ":-77:state 0x17");
    for (const auto& [call, make] : every_call()) {
      // A read needs a stream also when it is the start that fails.
      bench.healthy->streaming = true;
      bench.healthy->calls = 0;
      if (call == failing) {
        EXPECT_EQ(
            failure_text(static_cast<Status>(-77), [&, &make = make] { make(*bench.device); }),
            "state 0x17");
        EXPECT_EQ(bench.healthy->calls, 0);
      } else {
        EXPECT_NO_THROW(make(*bench.device));
        EXPECT_EQ(bench.healthy->calls, 1);
      }
    }
  }
}

TEST(FaultyDevice, FailureWithoutATextHasAnEmptyOne) {
  Bench bench("fail=identify:9");
  EXPECT_EQ(failure_text(static_cast<Status>(9), [&] { bench.device->identity(); }), "");
}

TEST(FaultyDevice, OpeningFailsAtOnce) {
  failure_text(static_cast<Status>(-50), [] { Bench("fail=open:-50:never shown"); });
}

TEST(FaultyDevice, OnlyTheNthCallFails) {
  Bench bench("fail=identify#3:9");
  for (const bool fails : {false, false, true, false, false}) {
    if (fails) {
      failure_text(static_cast<Status>(9), [&] { bench.device->identity(); });
    } else {
      EXPECT_NO_THROW(bench.device->identity());
    }
    bench.device->load_calibration(1);  // calls of another kind do not count
  }
}

TEST(FaultyDevice, OfSeveralFailuresTheFirstThatAppliesHolds) {
  Bench bench("fail=identify#2:5,identify:6,identify#1:7");
  failure_text(static_cast<Status>(6), [&] { bench.device->identity(); });
  failure_text(static_cast<Status>(5), [&] { bench.device->identity(); });
  failure_text(static_cast<Status>(6), [&] { bench.device->identity(); });
}

TEST(FaultyDevice, MomentsCountFromTheStartOfTheStream) {
  Bench bench("fail=identify@0:9,load_calibration@1000:9");
  EXPECT_NO_THROW(bench.device->identity());
  bench.start();
  failure_text(static_cast<Status>(9), [&] { bench.device->identity(); });
  EXPECT_NO_THROW(bench.device->load_calibration(1));
}

TEST(FaultyDevice, CallsFailOnceTheirMomentHasCome) {
  Bench bench("fail=identify@0.05:9");
  const Clock::time_point before = Clock::now();
  bench.start();
  try {
    for (;;) {
      bench.device->identity();
    }
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), static_cast<Status>(9));
  }
  EXPECT_GE(Clock::now() - before, 50ms);
}

TEST(FaultyDevice, VanishedUnitAnswersNoCall) {
  Bench bench("vanish_at_s=0&fail=identify:9");
  EXPECT_NO_THROW(bench.device->load_calibration(1));
  bench.start();
  bench.healthy->calls = 0;
  for (int round = 0; round < 2; ++round) {
    for (const auto& [call, make] : every_call()) {
      EXPECT_EQ(failure_text(Status::unit_vanished, [&, &make = make] { make(*bench.device); }),
                "nothing answers at its port any more");
    }
  }
  EXPECT_EQ(bench.healthy->calls, 0);
}

TEST(FaultyDevice, SilentReadsWaitForTheirTimeOut) {
  Bench bench("silent_at_s=0");
  bench.start();
  EXPECT_GE(time_of([&] { failure_text(Status::timed_out, [&] { bench.read(8, 30ms); }); }), 30ms);
  failure_text(Status::timed_out, [&] { bench.read(8, 0ms); });
}

TEST(FaultyDevice, SilenceEndsInTheMiddleOfARead) {
  Bench bench("silent_at_s=0&silent_for_s=0.05");
  const Clock::time_point before = Clock::now();
  bench.start();
  EXPECT_EQ(bench.read(3, 600'000ms), (Bytes{0, 1, 2}));
  EXPECT_GE(Clock::now() - before, 50ms);
  EXPECT_LT(Clock::now() - before, 60s);
}

TEST(FaultyDevice, SilenceOfNoLengthIsNone) {
  Bench bench("silent_at_s=0&silent_for_s=0&empty_at_s=0&empty_for_s=0");
  bench.start();
  EXPECT_EQ(bench.read(2), (Bytes{0, 1}));
}

TEST(FaultyDevice, EmptyReadsSucceedButNotAtOnce) {
  Bench bench("empty_at_s=0");
  bench.start();
  EXPECT_GE(time_of([&] {
              for (int i = 0; i < 10; ++i) {
                EXPECT_TRUE(bench.read(8).empty());
              }
            }),
            10ms);
  EXPECT_EQ(bench.healthy->next, 0U);
}

TEST(FaultyDevice, ReadsAreRefusedAsUsualWithoutAStream) {
  Bench bench("silent_at_s=0&hang_at_s=0&empty_at_s=0&lose_bytes=1");
  failure_text(Status::not_streaming, [&] { bench.read(8); });
  bench.start();
  bench.device->stop_stream(true);
  failure_text(Status::not_streaming, [&] { bench.read(8); });
}

TEST(FaultyDevice, FailingStopLeavesTheStreamRunning) {
  Bench bench("fail=stop_stream_mode#1:9");
  bench.start();
  failure_text(static_cast<Status>(9), [&] { bench.device->stop_stream(true); });
  EXPECT_EQ(bench.read(1).size(), 1U);
}

TEST(FaultyDevice, UnavailableReferenceClockAnswersNeitherCall) {
  Bench bench("reference_unavailable=-7");
  failure_text(Status::not_available, [&] { bench.device->reference_clock(); });
  failure_text(Status::not_available, [&] { bench.device->set_reference_clock(1, 0); });
  EXPECT_EQ(bench.healthy->calls, 0);
}

TEST(FaultyDevice, ReferenceIsLostOnceTheStreamHasRun) {
  Bench bench("reference_lost_at_s=0");
  EXPECT_EQ(bench.device->set_reference_clock(2, 0).raw, 0x3U);
  bench.start();
  EXPECT_EQ(bench.device->reference_clock().raw, 0xCU);
  EXPECT_EQ(bench.device->set_reference_clock(0, 0).missing_warning, 1U);
}

TEST(FaultyDevice, DamageIsTheSameHoweverTheHostReads) {
  const std::string query =
      "flip_bits=0.001&lose_bytes=0.01&insert_bytes=0.02&remove_bits=0.001&insert_bits=0.002";
  constexpr std::size_t wanted = 100'000;
  const auto stream_read_in = [&](const std::vector<std::size_t>& sizes) {
    Bench bench(query, 5);
    bench.start();
    Bytes all;
    for (std::size_t i = 0; all.size() < wanted; ++i) {
      const Bytes piece = bench.read(sizes[i % sizes.size()]);
      all.insert(all.end(), piece.begin(), piece.end());
    }
    all.resize(wanted);
    return all;
  };
  const Bytes whole = stream_read_in({1'000'000});
  EXPECT_EQ(stream_read_in({1, 2, 3, 5, 1000}), whole);
  EXPECT_EQ(stream_read_in({4096}), whole);
}

TEST(FaultyDevice, EveryStartBringsTheSameDamageAnew) {
  Bench bench("flip_bits=0.01&remove_bits=0.001&lose_bytes=0.01");
  bench.start();
  const Bytes first = bench.read(10'000);
  bench.read(3);  // what is left over of this stream is not part of the next
  bench.device->stop_stream(true);
  bench.start();
  EXPECT_EQ(bench.read(10'000), first);
}

TEST(FaultyDevice, ReadsNeverTakeMoreThanTheirBufferHolds) {
  Bench bench("insert_bytes=1");
  bench.start();
  Bytes all;
  for (int i = 0; i < 50; ++i) {
    const Bytes piece = bench.read(7);
    ASSERT_LE(piece.size(), 7U);
    all.insert(all.end(), piece.begin(), piece.end());
  }
  for (std::size_t i = 1; i < all.size(); i += 2) {
    EXPECT_EQ(all[i], i / 2);
  }
}

// Half a million random numbers in a read would hold it for long.
TEST(FaultyDevice, DamageIsMadeInSmallPieces) {
  Bench bench("insert_bits=1");
  bench.healthy->available = 1'000'000;
  bench.start();
  const std::size_t size = bench.read(1'000'000).size();
  EXPECT_GT(size, 0U);
  EXPECT_LE(size, 65'536U);
}

TEST(FaultyDevice, StreamThatLosesEverythingTimesOut) {
  Bench bench("lose_bytes=1");
  bench.start();
  EXPECT_GE(time_of([&] { failure_text(Status::timed_out, [&] { bench.read(8, 20ms); }); }), 20ms);
}

TEST(FaultyDevice, TimedOutReadsOfADamagedStreamStayTimedOut) {
  Bench bench("flip_bits=0.5");
  bench.healthy->available = 4;
  bench.start();
  EXPECT_EQ(bench.read(8).size(), 4U);
  failure_text(Status::timed_out, [&] { bench.read(8, 1ms); });
}

TEST(FaultyDevice, OneSlipMovesTheStreamOnce) {
  Bench bench("remove_bit_at_s=0");
  bench.start();
  // 0, 1, 2, ... moved by one bit to the left are 0, 2, 4, ...; the last bits wait.
  EXPECT_EQ(bench.read(4), (Bytes{0, 2, 4}));
  EXPECT_EQ(bench.read(4), (Bytes{6, 8, 10, 12}));
}

TEST(FaultyDevice, InsertedSlipMovesTheStreamTheOtherWay) {
  Bench bench("insert_bit_at_s=0");
  bench.start();
  const Bytes bytes = bench.read(6);
  ASSERT_EQ(bytes.size(), 6U);
  EXPECT_EQ(bytes[0] & 0x7F, 0);
  EXPECT_EQ(Bytes(bytes.begin() + 1, bytes.end()), (Bytes{0x00, 0x81, 0x01, 0x82, 0x02}));
  EXPECT_EQ(bench.read(4), (Bytes{0x83, 0x03, 0x84, 0x04}));
}

TEST(FaultyDevice, StuckStreamIsAllZerosOrAllOnes) {
  Bench zeros("zeros_at_s=0");
  zeros.start();
  EXPECT_EQ(zeros.read(5), Bytes(5, 0x00));
  Bench ones("ones_at_s=0");
  ones.start();
  EXPECT_EQ(ones.read(5), Bytes(5, 0xFF));
  Bench later("zeros_at_s=1000");
  later.start();
  EXPECT_EQ(later.read(3), (Bytes{0, 1, 2}));
}

TEST(FaultyDevice, OfTwoStuckLinesTheLaterShows) {
  for (const auto& [query, byte] :
       {std::pair{"zeros_at_s=0&ones_at_s=0.001", 0xFF}, {"ones_at_s=0&zeros_at_s=0.001", 0x00}}) {
    Bench bench(query);
    bench.start();
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(bench.read(2), Bytes(2, static_cast<std::uint8_t>(byte)));
  }
}

}  // namespace
}  // namespace zelk::simulator
