#include "simulator/faults/faulty_device.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <thread>
#include <utility>

#include "simulator/ports/port_query.hpp"
#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

// Answers everything, counts the calls that reach it, and streams the bytes 0,
// 1, 2, ... as fast as they are read, `available` of them from every start.
class HealthyDevice final : public DeviceModel {
 public:
  qx_identity identity() override {
    ++calls;
    return {};
  }
  void load_calibration(int /*flag*/) override { ++calls; }
  qx_reference_clock reference_clock() override {
    ++calls;
    return clock.status();
  }
  qx_reference_clock set_reference_clock(std::uint32_t source, std::uint32_t signal) override {
    ++calls;
    clock.request(source, signal);
    return clock.status();
  }
  void set_delay_line_masks(std::span<const std::uint8_t, 4> /*masks*/) override { ++calls; }
  DelayLineMasks delay_line_masks() override {
    ++calls;
    return {};
  }
  void set_threshold_codes(std::span<const std::uint16_t, 4> /*codes*/) override { ++calls; }
  std::int64_t set_dead_time(std::int64_t requested_ps) override {
    ++calls;
    return requested_ps;
  }
  PackedDeltaSettings set_packed_delta(std::uint8_t /*bits*/, std::uint16_t /*quantum*/) override {
    ++calls;
    return {};
  }
  void set_stream_interface(std::uint32_t /*transport*/, std::uint32_t /*format*/) override {
    ++calls;
  }
  void set_channel_mask(std::uint8_t /*mask*/) override { ++calls; }
  std::uint32_t set_calibration_frequency(double /*frequency_hz*/) override {
    ++calls;
    return 1;
  }
  void enable_calibration_source(bool /*enabled*/) override { ++calls; }
  void start_stream(std::uint32_t /*mode*/, std::uint32_t /*flags*/) override {
    ++calls;
    next = 0;
    streaming = true;
  }
  void stop_stream(bool /*flag*/) override {
    ++calls;
    streaming = false;
  }
  std::size_t read_stream(std::span<std::uint8_t> buffer,
                          std::chrono::milliseconds timeout) override {
    ++calls;
    if (!streaming) {
      throw Failure(Status::not_streaming, "");
    }
    const std::size_t count = std::min(buffer.size(), available - next);
    for (std::size_t i = 0; i < count; ++i) {
      buffer[i] = static_cast<std::uint8_t>(next++);
    }
    if (count == 0 && !buffer.empty()) {
      std::this_thread::sleep_for(timeout);
      throw Failure(Status::timed_out, "");
    }
    return count;
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
    device = with_faults(std::move(made), take_fault_plan(keys), seed);
  }

  void start() const { device->start_stream(1, 0); }

  Bytes read(std::size_t size, std::chrono::milliseconds timeout = 20ms) const {
    Bytes bytes(size);
    bytes.resize(device->read_stream(bytes, timeout));
    return bytes;
  }

  HealthyDevice* healthy;
  std::unique_ptr<DeviceModel> device;
};

// Every call on an open device.
std::vector<std::pair<CallKind, std::function<void(DeviceModel&)>>> every_call() {
  static constexpr std::array<std::uint8_t, 4> masks{};
  static constexpr std::array<std::uint16_t, 4> codes{};
  static Bytes buffer(8);
  return {
      {CallKind::identify, [](DeviceModel& d) { d.identity(); }},
      {CallKind::load_calibration, [](DeviceModel& d) { d.load_calibration(1); }},
      {CallKind::get_reference_clock_status, [](DeviceModel& d) { d.reference_clock(); }},
      {CallKind::set_reference_clock, [](DeviceModel& d) { d.set_reference_clock(1, 0); }},
      {CallKind::set_tdl_active_masks, [](DeviceModel& d) { d.set_delay_line_masks(masks); }},
      {CallKind::get_tdl_active_masks, [](DeviceModel& d) { d.delay_line_masks(); }},
      {CallKind::set_dac_codes, [](DeviceModel& d) { d.set_threshold_codes(codes); }},
      {CallKind::set_input_dead_time, [](DeviceModel& d) { d.set_dead_time(0); }},
      {CallKind::set_packed_delta_config, [](DeviceModel& d) { d.set_packed_delta(16, 8); }},
      {CallKind::set_stream_interface, [](DeviceModel& d) { d.set_stream_interface(1, 0); }},
      {CallKind::set_stream_channel_mask, [](DeviceModel& d) { d.set_channel_mask(15); }},
      {CallKind::set_calibration_freq, [](DeviceModel& d) { d.set_calibration_frequency(1e4); }},
      {CallKind::enable_calibration_source,
       [](DeviceModel& d) { d.enable_calibration_source(true); }},
      {CallKind::disable_calibration_source,
       [](DeviceModel& d) { d.enable_calibration_source(false); }},
      {CallKind::start_stream_mode, [](DeviceModel& d) { d.start_stream(1, 0); }},
      {CallKind::read_stream_bytes, [](DeviceModel& d) { d.read_stream(buffer, 0ms); }},
      {CallKind::stop_stream_mode, [](DeviceModel& d) { d.stop_stream(true); }},
  };
}

std::chrono::duration<double> time_of(const std::function<void()>& action) {
  const Clock::time_point start = Clock::now();
  action();
  return Clock::now() - start;
}

TEST(FaultyDevice, StandsInFrontOnlyWhenSomethingGoesWrong) {
  for (const char* const query : {"", "flip_bits=0", "external_reference=locked"}) {
    const Bench bench(query);
    EXPECT_EQ(bench.device.get(), bench.healthy) << query;
  }
  const Bench faulty("vanish_at_s=1000");
  EXPECT_NE(faulty.device.get(), faulty.healthy);
}

TEST(FaultyDevice, EveryCallFailsWhenAskedToAndNoOther) {
  for (const auto& [failing, unused] : every_call()) {
    const std::string name(shape_of(failing).name);
    SCOPED_TRACE(name);
    const Bench bench("fail=" + name + ":-77:state 0x17");
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
  const Bench bench("fail=identify:9");
  EXPECT_EQ(failure_text(static_cast<Status>(9), [&] { bench.device->identity(); }), "");
}

TEST(FaultyDevice, OpeningFailsAtOnce) {
  failure_text(static_cast<Status>(-50), [] { Bench("fail=open:-50:never shown"); });
}

TEST(FaultyDevice, OnlyTheNthCallFails) {
  const Bench bench("fail=identify#3:9");
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
  const Bench bench("fail=identify#2:5,identify:6,identify#1:7");
  failure_text(static_cast<Status>(6), [&] { bench.device->identity(); });
  failure_text(static_cast<Status>(5), [&] { bench.device->identity(); });
  failure_text(static_cast<Status>(6), [&] { bench.device->identity(); });
}

TEST(FaultyDevice, MomentsCountFromTheStartOfTheStream) {
  const Bench bench("fail=identify@0:9,load_calibration@1000:9");
  EXPECT_NO_THROW(bench.device->identity());
  bench.start();
  failure_text(static_cast<Status>(9), [&] { bench.device->identity(); });
  EXPECT_NO_THROW(bench.device->load_calibration(1));
}

TEST(FaultyDevice, CallsFailOnceTheirMomentHasCome) {
  const Bench bench("fail=identify@0.05:9");
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
  const Bench bench("vanish_at_s=0&fail=identify:9");
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
  const Bench bench("silent_at_s=0");
  bench.start();
  EXPECT_GE(time_of([&] { failure_text(Status::timed_out, [&] { bench.read(8, 30ms); }); }), 30ms);
  failure_text(Status::timed_out, [&] { bench.read(8, 0ms); });
}

TEST(FaultyDevice, SilenceEndsInTheMiddleOfARead) {
  const Bench bench("silent_at_s=0&silent_for_s=0.05");
  const Clock::time_point before = Clock::now();
  bench.start();
  EXPECT_EQ(bench.read(3, 600'000ms), (Bytes{0, 1, 2}));
  EXPECT_GE(Clock::now() - before, 50ms);
  EXPECT_LT(Clock::now() - before, 60s);
}

TEST(FaultyDevice, SilenceOfNoLengthIsNone) {
  const Bench bench("silent_at_s=0&silent_for_s=0&empty_at_s=0&empty_for_s=0");
  bench.start();
  EXPECT_EQ(bench.read(2), (Bytes{0, 1}));
}

TEST(FaultyDevice, EmptyReadsSucceedButNotAtOnce) {
  const Bench bench("empty_at_s=0");
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
  const Bench bench("silent_at_s=0&hang_at_s=0&empty_at_s=0&lose_bytes=1");
  failure_text(Status::not_streaming, [&] { bench.read(8); });
  bench.start();
  bench.device->stop_stream(true);
  failure_text(Status::not_streaming, [&] { bench.read(8); });
}

TEST(FaultyDevice, FailingStopLeavesTheStreamRunning) {
  const Bench bench("fail=stop_stream_mode#1:9");
  bench.start();
  failure_text(static_cast<Status>(9), [&] { bench.device->stop_stream(true); });
  EXPECT_EQ(bench.read(1).size(), 1U);
}

TEST(FaultyDevice, UnavailableReferenceClockAnswersNeitherCall) {
  const Bench bench("reference_unavailable=-7");
  failure_text(Status::not_available, [&] { bench.device->reference_clock(); });
  failure_text(Status::not_available, [&] { bench.device->set_reference_clock(1, 0); });
  EXPECT_EQ(bench.healthy->calls, 0);
}

TEST(FaultyDevice, ReferenceIsLostOnceTheStreamHasRun) {
  const Bench bench("reference_lost_at_s=0");
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
    const Bench bench(query, 5);
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
  const Bench bench("flip_bits=0.01&remove_bits=0.001&lose_bytes=0.01");
  bench.start();
  const Bytes first = bench.read(10'000);
  bench.read(3);  // what is left over of this stream is not part of the next
  bench.device->stop_stream(true);
  bench.start();
  EXPECT_EQ(bench.read(10'000), first);
}

TEST(FaultyDevice, ReadsNeverTakeMoreThanTheirBufferHolds) {
  const Bench bench("insert_bytes=1");
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
  const Bench bench("insert_bits=1");
  bench.healthy->available = 1'000'000;
  bench.start();
  const std::size_t size = bench.read(1'000'000).size();
  EXPECT_GT(size, 0U);
  EXPECT_LE(size, 65'536U);
}

TEST(FaultyDevice, StreamThatLosesEverythingTimesOut) {
  const Bench bench("lose_bytes=1");
  bench.start();
  EXPECT_GE(time_of([&] { failure_text(Status::timed_out, [&] { bench.read(8, 20ms); }); }), 20ms);
}

TEST(FaultyDevice, TimedOutReadsOfADamagedStreamStayTimedOut) {
  const Bench bench("flip_bits=0.5");
  bench.healthy->available = 4;
  bench.start();
  EXPECT_EQ(bench.read(8).size(), 4U);
  failure_text(Status::timed_out, [&] { bench.read(8, 1ms); });
}

TEST(FaultyDevice, OneSlipMovesTheStreamOnce) {
  const Bench bench("remove_bit_at_s=0");
  bench.start();
  // 0, 1, 2, ... moved by one bit to the left are 0, 2, 4, ...; the last bits wait.
  EXPECT_EQ(bench.read(4), (Bytes{0, 2, 4}));
  EXPECT_EQ(bench.read(4), (Bytes{6, 8, 10, 12}));
}

TEST(FaultyDevice, InsertedSlipMovesTheStreamTheOtherWay) {
  const Bench bench("insert_bit_at_s=0");
  bench.start();
  const Bytes bytes = bench.read(6);
  ASSERT_EQ(bytes.size(), 6U);
  EXPECT_EQ(bytes[0] & 0x7F, 0);
  EXPECT_EQ(Bytes(bytes.begin() + 1, bytes.end()), (Bytes{0x00, 0x81, 0x01, 0x82, 0x02}));
  EXPECT_EQ(bench.read(4), (Bytes{0x83, 0x03, 0x84, 0x04}));
}

TEST(FaultyDevice, StuckStreamIsAllZerosOrAllOnes) {
  const Bench zeros("zeros_at_s=0");
  zeros.start();
  EXPECT_EQ(zeros.read(5), Bytes(5, 0x00));
  const Bench ones("ones_at_s=0");
  ones.start();
  EXPECT_EQ(ones.read(5), Bytes(5, 0xFF));
  const Bench later("zeros_at_s=1000");
  later.start();
  EXPECT_EQ(later.read(3), (Bytes{0, 1, 2}));
}

TEST(FaultyDevice, OfTwoStuckLinesTheLaterShows) {
  for (const auto& [query, byte] :
       {std::pair{"zeros_at_s=0&ones_at_s=0.001", 0xFF}, {"ones_at_s=0&zeros_at_s=0.001", 0x00}}) {
    const Bench bench(query);
    bench.start();
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(bench.read(2), Bytes(2, static_cast<std::uint8_t>(byte)));
  }
}

}  // namespace
}  // namespace zelk::simulator
