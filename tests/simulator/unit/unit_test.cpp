#include "simulator/unit/unit.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <set>
#include <string>

#include "tests/simulator/device_client.hpp"
#include "tests/simulator/expect_failure.hpp"
#include "tests/simulator/packed_streams.hpp"
#include "tests/simulator/round_trip.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

using namespace std::chrono_literals;
using timing::Format;
using timing::StreamMode;
using timing::TimeTag;

constexpr std::uint32_t internal_mode = 0;
constexpr std::uint32_t external_mode = 1;
constexpr std::uint32_t usb = 1;

// Everything that arrives until a read of 20 ms stays empty, or until `wanted`
// bytes are there.
std::vector<std::uint8_t> read_bytes(UnitClient& unit, std::size_t wanted) {
  std::vector<std::uint8_t> bytes;
  std::vector<std::uint8_t> buffer(65536);
  while (bytes.size() < wanted) {
    std::size_t got = 0;
    try {
      got = unit.read_stream(buffer, 20ms);
    } catch (const Failure& failure) {
      if (failure.status() != Status::timed_out) {
        throw;
      }
      break;
    }
    bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(got));
  }
  return bytes;
}

TEST(Unit, HasAnIdentity) {
  const qx_identity identity = UnitClient(parse_device_port("ftdi://")).identity();
  EXPECT_STREQ(identity.serial, "ZK4-0001");
  EXPECT_STREQ(identity.device_text, "ZK4 four-channel TDC, simulated");
}

TEST(Unit, EveryScenarioHasASerialNumberOfItsOwn) {
  std::set<std::string> serials{UnitClient(parse_device_port("ftdi://")).identity().serial,
                                "SIM-TAGS"};
  for (const char* const scenario : {"pulses", "random", "pairs", "burst", "silent"}) {
    UnitClient unit(parse_device_port(std::string("sim://") + scenario));
    EXPECT_TRUE(serials.insert(unit.identity().serial).second) << scenario;
  }
}

TEST(Unit, KeepsFiveDelayLineBitsAChannel) {
  UnitClient unit(parse_device_port("ftdi://"));
  EXPECT_EQ(unit.delay_line_masks(), (std::array<std::uint8_t, 4>{0x1F, 0x1F, 0x1F, 0x1F}));
  unit.set_delay_line_masks(std::array<std::uint8_t, 4>{0x07, 0x00, 0xFF, 0x20});
  EXPECT_EQ(unit.delay_line_masks(), (std::array<std::uint8_t, 4>{0x07, 0x00, 0x1F, 0x00}));
}

TEST(Unit, AcceptsPackedDeltaParametersWithinItsLimits) {
  for (const auto& [bits, accepted] :
       {std::pair{0, 4}, {3, 4}, {4, 4}, {16, 16}, {24, 24}, {25, 24}, {255, 24}}) {
    EXPECT_EQ(accepted_packed_delta(static_cast<std::uint8_t>(bits), 8).bits, accepted) << bits;
  }
  for (const auto& [quantum, accepted] : {std::pair{0, 1},
                                          {1, 1},
                                          {3, 2},
                                          {8, 8},
                                          {1023, 512},
                                          {1024, 1024},
                                          {1025, 1024},
                                          {65535, 1024}}) {
    EXPECT_EQ(accepted_packed_delta(16, static_cast<std::uint16_t>(quantum)).quantum_ps, accepted)
        << quantum;
  }
}

TEST(Unit, RefusesStreamInterfacesThatItDoesNotHave) {
  UnitClient unit(parse_device_port("ftdi://"));
  EXPECT_NE(
      failure_text(Status::not_supported, [&] { unit.set_stream_interface(0, 0); }).find("uart"),
      std::string::npos);
  EXPECT_NE(failure_text(Status::out_of_range, [&] { unit.set_stream_interface(2, 0); })
                .find("transport 2"),
            std::string::npos);
  EXPECT_NE(failure_text(Status::out_of_range, [&] { unit.set_stream_interface(usb, 3); })
                .find("format 3"),
            std::string::npos);
}

TEST(Unit, RefusesChannelsThatItDoesNotHave) {
  UnitClient unit(parse_device_port("ftdi://"));
  EXPECT_NE(failure_text(Status::out_of_range, [&] { unit.set_channel_mask(0x10); }).find("16"),
            std::string::npos);
}

TEST(Unit, RefusesUnknownStreamModesAndFlags) {
  UnitClient unit(parse_device_port("ftdi://"));
  failure_text(Status::out_of_range, [&] { unit.start_stream(2, 0); });
  failure_text(Status::out_of_range, [&] { unit.start_stream(0, 1); });
  failure_text(Status::not_streaming, [&] { read_bytes(unit, 1); });
}

TEST(Unit, SettingsAreRefusedWhileStreamingAndTakenAfterIt) {
  UnitClient unit(parse_device_port("ftdi://"));
  const std::array<std::uint8_t, 4> masks{};
  const std::array<std::uint16_t, 4> codes{};
  const std::vector<std::function<void()>> requests{
      [&] { unit.load_calibration(1); },
      [&] { unit.set_reference_clock(1, 0); },
      [&] { unit.set_delay_line_masks(masks); },
      [&] { unit.set_threshold_codes(codes); },
      [&] { unit.set_dead_time(0); },
      [&] { unit.set_channel_mask(15); },
      [&] { unit.set_stream_interface(usb, 0); },
      [&] { unit.set_packed_delta(16, 8); },
      [&] { unit.set_calibration_frequency(1e3); },
      [&] { unit.enable_calibration_source(true); },
      [&] { unit.enable_calibration_source(false); },
  };
  unit.start_stream(external_mode, 0);
  for (const auto& request : requests) {
    EXPECT_NE(failure_text(Status::busy, request).find("stop the stream"), std::string::npos);
  }
  failure_text(Status::busy, [&] { unit.start_stream(external_mode, 0); });
  unit.stop_stream(true);
  for (const auto& request : requests) {
    EXPECT_NO_THROW(request());
  }
}

TEST(Unit, StopWithoutAStreamIsHarmless) {
  UnitClient unit(parse_device_port("ftdi://"));
  EXPECT_NO_THROW(unit.stop_stream(true));
  failure_text(Status::not_streaming, [&] { read_bytes(unit, 1); });
}

TEST(Unit, InternalModeIsSilentWithoutTheCalibrationSource) {
  UnitClient unit(parse_device_port("ftdi://"));
  unit.start_stream(internal_mode, 0);
  EXPECT_TRUE(read_bytes(unit, 1).empty());
}

TEST(Unit, InternalModeGivesCalibrationPulsesAtTheDividedClock) {
  UnitClient unit(parse_device_port("ftdi://"));
  unit.set_stream_interface(usb, 1);
  EXPECT_EQ(unit.set_calibration_frequency(100e3), 3000U);
  unit.enable_calibration_source(true);
  unit.start_stream(internal_mode, 0);
  const auto tags = decoded(read_bytes(unit, 10'000), Format::delta32, StreamMode::internal);
  ASSERT_GT(tags.size(), 1000U);
  std::array<std::int64_t, 4> count{};
  for (const TimeTag& tag : tags) {
    const std::int64_t expected_ps = ++count[tag.channel] * 3000 * 3333;
    EXPECT_GE(tag.timestamp_ps, expected_ps - 14);
    EXPECT_LE(tag.timestamp_ps, expected_ps + 65 + 14);
  }
}

TEST(Unit, PackedDeltaCarriesTheCalibrationPulses) {
  UnitClient unit(parse_device_port("ftdi://?start_bits=1001"));
  unit.set_stream_interface(usb, 2);
  unit.set_calibration_frequency(100e3);
  unit.enable_calibration_source(true);
  unit.start_stream(internal_mode, 0);
  // Enough for three sets of syncs.
  const TagList tags = host_tags({.mode = StreamMode::internal}, read_bytes(unit, 30'000));
  ASSERT_GT(tags.size(), 1000U);
  std::array<std::int64_t, 4> last_ps{};
  for (const TimeTag& tag : tags) {
    std::int64_t& last = last_ps[tag.channel];
    if (last != 0) {
      EXPECT_NEAR(static_cast<double>(tag.timestamp_ps - last), 3000 * 3333, 2 * 14 + 8);
    }
    last = tag.timestamp_ps;
  }
  for (const std::int64_t last : last_ps) {
    EXPECT_GT(last, 10'000'000'000);
  }
}

TEST(Unit, AThresholdAboveThePulsesSilencesThem) {
  UnitClient unit(parse_device_port("ftdi://"));
  unit.set_threshold_codes(std::array<std::uint16_t, 4>{0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF});  // 4 V
  unit.enable_calibration_source(true);
  unit.start_stream(internal_mode, 0);
  EXPECT_TRUE(read_bytes(unit, 1).empty());
}

class RecordedUnit : public testing::Test {
 protected:
  RecordedUnit() {
    std::ofstream(directory_.path() / "tags.csv")
        << "channel,timestamp_ps\n0,700\n1,800\n2,900\n3,1000\n0,4000\n0,9000\n";
  }

  std::string port() const {
    return "sim://tags?pace=max&file=" + (directory_.path() / "tags.csv").string();
  }

  test_support::TemporaryDirectory directory_;
};

TEST_F(RecordedUnit, EveryRunPlaysTheFileFromItsStart) {
  UnitClient unit(parse_device_port(port()));
  EXPECT_STREQ(unit.identity().serial, "SIM-TAGS");
  for (const Format format : {Format::raw64, Format::delta32, Format::raw64}) {
    unit.set_stream_interface(usb, static_cast<std::uint32_t>(format));
    unit.start_stream(external_mode, 0);
    EXPECT_EQ(
        decoded(read_bytes(unit, 1000), format, StreamMode::external),
        (std::vector<TimeTag>{{0, 700}, {1, 800}, {2, 900}, {3, 1000}, {0, 4000}, {0, 9000}}));
    unit.stop_stream(true);
  }
}

TEST_F(RecordedUnit, PackedDeltaHasTheAcceptedParameters) {
  UnitClient unit(parse_device_port(port()));
  unit.set_stream_interface(usb, 2);
  unit.start_stream(external_mode, 0);
  const TagList tags{{0, 700}, {1, 800}, {2, 900}, {3, 1000}, {0, 4000}, {0, 9000}};
  EXPECT_EQ(read_bytes(unit, 1000), flushed_bytes({.bits = 16, .quantum_ps = 8}, tags));
  unit.stop_stream(true);
  unit.set_packed_delta(2, 100);
  unit.start_stream(external_mode, 0);
  EXPECT_EQ(read_bytes(unit, 1000), flushed_bytes({.bits = 4, .quantum_ps = 64}, tags));
}

TEST_F(RecordedUnit, BitsAreMissingAtTheStartOfEachPackedDeltaStreamOnly) {
  UnitClient unit(parse_device_port(port() + "&start_bits=20"));
  const TagList tags{{0, 700}, {1, 800}, {2, 900}, {3, 1000}, {0, 4000}, {0, 9000}};
  for (int run = 0; run < 2; ++run) {
    unit.set_stream_interface(usb, 2);
    unit.start_stream(external_mode, 0);
    EXPECT_EQ(read_bytes(unit, 1000), flushed_bytes({}, tags, 20));
    unit.stop_stream(true);
    for (const Format format : {Format::raw64, Format::delta32}) {
      unit.set_stream_interface(usb, static_cast<std::uint32_t>(format));
      unit.start_stream(external_mode, 0);
      EXPECT_EQ(decoded(read_bytes(unit, 1000), format, StreamMode::external).size(), 6U);
      unit.stop_stream(true);
    }
  }
}

TEST_F(RecordedUnit, AStoppedStreamLeavesNothingForTheNext) {
  UnitClient unit(parse_device_port(port()));
  for (int run = 0; run < 2; ++run) {
    unit.start_stream(external_mode, 0);
    std::vector<std::uint8_t> buffer(8);
    ASSERT_EQ(unit.read_stream(buffer, 20ms), 8U);
    EXPECT_EQ(decoded(buffer, Format::raw64, StreamMode::external),
              (std::vector<TimeTag>{{0, 700}}));
    unit.stop_stream(true);
  }
}

TEST_F(RecordedUnit, SettingsShapeTheTags) {
  UnitClient unit(parse_device_port(port()));
  EXPECT_EQ(unit.set_dead_time(3334), 6666);
  unit.set_channel_mask(0x0B);
  unit.set_delay_line_masks(std::array<std::uint8_t, 4>{1, 0, 1, 1});
  // 2.5 V is code 40959 - 32768 = 0x1FFF; one more is above the pulses.
  unit.set_threshold_codes(std::array<std::uint16_t, 4>{0x1FFF, 0x1FFF, 0x1FFF, 0x2000});
  unit.start_stream(external_mode, 0);
  EXPECT_EQ(decoded(read_bytes(unit, 1000), Format::raw64, StreamMode::external),
            (std::vector<TimeTag>{{0, 700}, {1, 3333}, {0, 9000}}));
}

TEST_F(RecordedUnit, ExternalModeIgnoresTheCalibrationSource) {
  UnitClient unit(parse_device_port(port()));
  unit.enable_calibration_source(true);
  unit.start_stream(external_mode, 0);
  EXPECT_EQ(read_bytes(unit, 1000).size(), 6 * 8U);
  unit.stop_stream(true);
  unit.start_stream(internal_mode, 0);
  EXPECT_FALSE(read_bytes(unit, 100).empty());
}

}  // namespace
}  // namespace zelk::simulator
