#include "smoke_test/device_setup.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "tests/scripted_device/scripted_device.hpp"
#include "tests/support/cout_capture.hpp"
#include "tests/support/error_of.hpp"
#include "timing/error.hpp"

namespace {

using scripted_device::make_identity;
using scripted_device::Script;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using zelk::test_support::CoutCapture;
using zelk::test_support::error_of;
using zelk::timing::Device;
using zelk::timing::Error;
using zelk::timing::Format;
using zelk::timing::ReferenceClockSource;
using zelk::timing::ReferenceSignal;
using zelk::timing::Transport;

struct SetUpRun {
  DeviceSettings settings;
  std::string printed;
  std::vector<std::string> calls;  // without opening and closing
};

// Sets the device up and starts its stream, as far as it gets.
SetUpRun set_up(const Script& script, const Config& config) {
  scripted_device::load(script);
  Device device = Device::open("ftdi://", Device::standard_rate);
  SetUpRun result;
  {
    const CoutCapture printed;
    set_up_device(device, config, result.settings);
    result.printed = printed.text();
  }
  device.start_stream(config.mode);
  result.calls = scripted_device::calls();
  result.calls.erase(result.calls.begin());
  return result;
}

TEST(DeviceSetUp, DefaultsMakeTheseCallsInThisOrder) {
  EXPECT_THAT(
      set_up({}, {}).calls,
      ElementsAre("qx_identify record=zeroed -> 0", "qx_load_calibration flag=1 -> 0",
                  "qx_set_reference_clock source=1 signal=0 record=zeroed -> 0",
                  "qx_set_tdl_active_masks masks=07,07,07,07 -> 0",
                  "qx_get_tdl_active_masks masks_before=00,00,00,00 -> 0",
                  "qx_set_packed_delta_config bits=16 quantum_ps=8 accepted_before=16,8 -> 0",
                  "qx_set_stream_interface transport=1 format=2 -> 0",
                  "qx_set_stream_channel_mask mask=0c -> 0",
                  "qx_set_calibration_freq frequency_hz=10000 divider_before=zeroed -> 0",
                  "qx_enable_calibration_source -> 0", "qx_start_stream_mode mode=0 flags=0 -> 0"));
}

TEST(DeviceSetUp, EverySettingReachesItsCall) {
  Config config;
  config.mode = StreamMode::external;
  config.ref_source = ReferenceClockSource::external;
  config.ref_signal = ReferenceSignal::one_pps;
  config.tdl_mask = 0x1F;
  config.threshold_v = 1.0;
  config.dead_time_ps = 123'456'789'012;
  config.packed_bits = 44;
  config.packed_quantum_ps = 65535;
  config.channel_mask = 0x0F;
  EXPECT_THAT(
      set_up({}, config).calls,
      ElementsAre("qx_identify record=zeroed -> 0", "qx_load_calibration flag=1 -> 0",
                  "qx_set_reference_clock source=2 signal=1 record=zeroed -> 0",
                  "qx_set_tdl_active_masks masks=1f,1f,1f,1f -> 0",
                  "qx_get_tdl_active_masks masks_before=00,00,00,00 -> 0",
                  "qx_set_dac_codes codes=c000,c000,c000,c000 -> 0",
                  "qx_set_input_dead_time dead_time_ps=123456789012 applied_before=zeroed -> 0",
                  "qx_set_packed_delta_config bits=44 quantum_ps=65535 accepted_before=16,8 -> 0",
                  "qx_set_stream_interface transport=1 format=2 -> 0",
                  "qx_set_stream_channel_mask mask=0f -> 0", "qx_disable_calibration_source -> 0",
                  "qx_start_stream_mode mode=1 flags=0 -> 0"));
}

TEST(DeviceSetUp, IdentityAndCalibrationPathAreKept) {
  setenv("HOME", "/home/lab", 1);
  const DeviceSettings settings =
      set_up(Script{.identity = make_identity("a", "b", "AB 12/x", "unit 5")}, {}).settings;
  EXPECT_EQ(settings.identity, (zelk::timing::Identity{"a", "b", "AB 12/x", "unit 5"}));
  EXPECT_EQ(settings.calibration_path, "/home/lab/.zelk.timing/calibrations/zelk_cal_AB_12_x.cal");
}

TEST(CalibrationPath, KeepsLettersDigitsDashAndUnderscore) {
  setenv("HOME", "/h", 1);
  const std::string stem = "/h/.zelk.timing/calibrations/zelk_cal_";
  EXPECT_EQ(calibration_path_for("AB 12/x"), stem + "AB_12_x.cal");
  EXPECT_EQ(calibration_path_for("a-Z_09"), stem + "a-Z_09.cal");
  EXPECT_EQ(calibration_path_for("../.."), stem + "_____.cal");
  EXPECT_EQ(calibration_path_for("\xC3\xA4\x01"), stem + "___.cal");
  EXPECT_EQ(calibration_path_for("0123456789abcdef"), stem + "0123456789abcdef.cal");
}

TEST(CalibrationPath, EmptySerialIsUnknown) {
  setenv("HOME", "/h", 1);
  EXPECT_EQ(calibration_path_for(""), "/h/.zelk.timing/calibrations/zelk_cal_unknown.cal");
}

TEST(Calibration, IsNotLoadedUnlessAskedFor) {
  Config config;
  config.load_calibration = false;
  const SetUpRun result = set_up({}, config);
  EXPECT_FALSE(result.settings.calibration_loaded);
  EXPECT_EQ(result.calls[1], "qx_set_reference_clock source=1 signal=0 record=zeroed -> 0");
}

TEST(Calibration, FailedLoadIsOnlyRecorded) {
  const SetUpRun result = set_up(Script{.statuses = {{"qx_load_calibration", {-1}}}}, {});
  EXPECT_FALSE(result.settings.calibration_loaded);
  EXPECT_THAT(result.calls, Not(Contains(HasSubstr("qx_last_error"))));
  EXPECT_TRUE(set_up({}, {}).settings.calibration_loaded);
}

TEST(ReferenceClock, ItsStateIsPrintedAtOnce) {
  const SetUpRun result =
      set_up(Script{.reference_clock = {2, 1, 1, 5, 0, 1, 1, 1, 0xABCDEF01}}, {});
  EXPECT_EQ(result.printed,
            "ref_requested=external ref_active=internal ref_signal=1pps ref_external_present=1 "
            "ref_external_locked=0 ref_fallback=1 ref_missing_warning=1 ref_raw=0xabcdef01\n");
  EXPECT_EQ(result.settings.active_reference, 1);
}

TEST(ReferenceClock, ActiveSourceIsKeptAsASignedNumber) {
  const SetUpRun result =
      set_up(Script{.reference_clock = {7, 0xFFFFFFF9, 2, 0, 1, 1, 0, 0, 0x1F}}, {});
  EXPECT_EQ(result.settings.active_reference, -7);
  EXPECT_EQ(result.printed,
            "ref_requested=unknown ref_active=unknown ref_signal=unknown ref_external_present=0 "
            "ref_external_locked=1 ref_fallback=0 ref_missing_warning=0 ref_raw=0x1f\n");
}

TEST(ReferenceClock, IsOnlyQueriedWhenItIsNotToBeSet) {
  Config config;
  config.set_reference = false;
  const SetUpRun result = set_up({}, config);
  EXPECT_EQ(result.calls[2], "qx_get_reference_clock_status record=zeroed -> 0");
  EXPECT_THAT(result.calls, Not(Contains(HasSubstr("qx_set_reference_clock"))));
}

TEST(ReferenceClock, UncontrollableOneIsTolerated) {
  for (const bool set_reference : {true, false}) {
    for (const qx_status status : {-3, -4, -7}) {
      Config config;
      config.set_reference = set_reference;
      const SetUpRun result =
          set_up(Script{.statuses = {{"qx_set_reference_clock", {status}},
                                     {"qx_get_reference_clock_status", {status}}}},
                 config);
      EXPECT_EQ(result.printed,
                "reference_clock_control=unavailable; fixed_internal_clock_assumed=1\n");
      EXPECT_EQ(result.settings.active_reference, -1);
      EXPECT_EQ(result.calls.back(), "qx_start_stream_mode mode=0 flags=0 -> 0");
    }
  }
}

TEST(ReferenceClock, AnyOtherStatusEndsTheSetUp) {
  for (const qx_status status : {-1, -2, -5, -6, -8, 3, 4, 7}) {
    const Script script{.statuses = {{"qx_set_reference_clock", {status}},
                                     {"qx_get_reference_clock_status", {status}}},
                        .status_texts = {{status, "refused"}},
                        .last_error = "no PLL"};
    Config config;
    const Error set = error_of([&] { set_up(script, config); });
    EXPECT_STREQ(set.what(), "set_reference_clock: refused (no PLL)");
    EXPECT_EQ(set.status, status);
    config.set_reference = false;
    const Error query = error_of([&] { set_up(script, config); });
    EXPECT_STREQ(query.what(), "reference_clock_status: refused (no PLL)");
    EXPECT_EQ(query.status, status);
  }
}

TEST(DelayLines, MasksAreThoseReadBack) {
  const SetUpRun result = set_up(Script{.read_back_masks = {{0x01, 0x1F, 0x00, 0xFF}}}, {});
  EXPECT_THAT(result.settings.tdl_masks, ElementsAre(0x01, 0x1F, 0x00, 0xFF));
}

TEST(ThresholdCode, SpansZeroToFourVolts) {
  EXPECT_EQ(threshold_code(0.0), 0x8000);
  EXPECT_EQ(threshold_code(1.0), 0xC000);
  EXPECT_EQ(threshold_code(2.0), 0x0000);
  EXPECT_EQ(threshold_code(4.0), 0x7FFF);
  // 3 V: 0.75 x 65535 + 0.5 = 49151.75, cut to 0xBFFF.
  EXPECT_EQ(threshold_code(3.0), 0x3FFF);
}

TEST(ThresholdCode, StepsChangeHalfWayBetweenCodes) {
  // One code is 4/65535 V.
  EXPECT_EQ(threshold_code(4.0 / 65535 * 0.49), 0x8000);
  EXPECT_EQ(threshold_code(4.0 / 65535 * 0.51), 0x8001);
}

TEST(ThresholdCode, ValuesOutsideTheScaleAreClamped) {
  for (const double volts : {-0.0, -1e-300, -1.0, -1e308}) {
    EXPECT_EQ(threshold_code(volts), 0x8000) << volts;
  }
  for (const double volts : {4.0001, 5.0, 1e308, std::numeric_limits<double>::max()}) {
    EXPECT_EQ(threshold_code(volts), 0x7FFF) << volts;
  }
}

TEST(Threshold, ValuesThatAreNotFiniteSkipTheCall) {
  for (const double volts : {std::nan(""), HUGE_VAL, -HUGE_VAL}) {
    Config config;
    config.threshold_v = volts;
    EXPECT_THAT(set_up({}, config).calls, Not(Contains(HasSubstr("qx_set_dac_codes")))) << volts;
  }
}

TEST(Threshold, ZeroVoltsIsProgrammed) {
  Config config;
  config.threshold_v = 0.0;
  EXPECT_THAT(set_up({}, config).calls,
              Contains("qx_set_dac_codes codes=8000,8000,8000,8000 -> 0"));
}

TEST(DeadTime, AppliedValueIsTheDevicesOwn) {
  Config config;
  config.dead_time_ps = 0;
  const SetUpRun result = set_up(Script{.applied_dead_time_ps = 6666}, config);
  EXPECT_EQ(result.settings.applied_dead_time_ps, 6666);
  EXPECT_THAT(result.calls, Contains("qx_set_input_dead_time dead_time_ps=0 applied_before=zeroed "
                                     "-> 0"));
}

TEST(DeadTime, NegativeValueLeavesTheDeviceAlone) {
  Config config;
  config.dead_time_ps = -5;
  const SetUpRun result = set_up(Script{.applied_dead_time_ps = 6666}, config);
  EXPECT_EQ(result.settings.applied_dead_time_ps, 0);
  EXPECT_THAT(result.calls, Not(Contains(HasSubstr("qx_set_input_dead_time"))));
}

TEST(PackedConfiguration, AcceptedPairReplacesTheRequest) {
  Config config;
  config.packed_bits = 20;
  config.packed_quantum_ps = 1;
  const SetUpRun result = set_up(Script{.accepted_packed = {{18, 4}}}, config);
  EXPECT_EQ(result.settings.packed.bits, 18);
  EXPECT_EQ(result.settings.packed.quantum_ps, 4);
}

TEST(PackedConfiguration, IsNotMadeForOtherFormats) {
  for (const Format format : {Format::raw64, Format::delta32}) {
    Config config;
    config.format = format;
    config.packed_bits = 20;
    config.packed_quantum_ps = 1;
    const SetUpRun result = set_up(Script{.accepted_packed = {{18, 4}}}, config);
    EXPECT_THAT(result.calls, Not(Contains(HasSubstr("qx_set_packed_delta_config"))));
    EXPECT_EQ(result.settings.packed.bits, 20);
    EXPECT_EQ(result.settings.packed.quantum_ps, 1);
  }
}

TEST(CalibrationSource, DividerIsZeroInExternalMode) {
  Config config;
  EXPECT_EQ(set_up(Script{.divider = 4000000000}, config).settings.calibration_divider,
            4000000000u);
  config.mode = StreamMode::external;
  EXPECT_EQ(set_up(Script{.divider = 4000000000}, config).settings.calibration_divider, 0u);
}

TEST(StartStream, ModeIsKeptOnceItHasBegun) {
  scripted_device::load(Script{.statuses = {{"qx_start_stream_mode", {-9, 0}}}});
  Device device = Device::open("ftdi://", Device::standard_rate);
  Config config;
  config.mode = StreamMode::external;
  EXPECT_THROW(device.start_stream(config.mode), Error);
  EXPECT_EQ(device.stream_mode, 0);
  device.start_stream(config.mode);
  EXPECT_EQ(device.stream_mode, 1);
}

TEST(StreamHeader, DescribesTheStreamAsTheDeviceAcceptedIt) {
  Config config;
  config.mode = StreamMode::external;
  config.channel_mask = 0x05;
  DeviceSettings settings;
  settings.packed.bits = 18;
  settings.packed.quantum_ps = 4;
  const zelk::timing::StreamFileHeader header = stream_header(config, settings);
  EXPECT_EQ(header.format, Format::packed_delta);
  EXPECT_EQ(header.mode, StreamMode::external);
  EXPECT_EQ(header.transport, Transport::usb);
  EXPECT_EQ(header.channel_mask, 0x05);
  EXPECT_EQ(header.reserved, 0);
  EXPECT_EQ(header.packed_bits, 18);
  EXPECT_EQ(header.packed_quantum_ps, 4);
  EXPECT_EQ(header.timestamp_layout, "ps");
  EXPECT_THAT(header.notes, testing::Each(""));
}

TEST(StreamHeader, OnlyInternalRaw64IsCoarseAndFine) {
  for (const Format format : {Format::raw64, Format::delta32, Format::packed_delta}) {
    for (const StreamMode mode : {StreamMode::internal, StreamMode::external}) {
      Config config;
      config.format = format;
      config.mode = mode;
      const bool coarse_fine = format == Format::raw64 && mode == StreamMode::internal;
      EXPECT_EQ(stream_header(config, {}).timestamp_layout, coarse_fine ? "raw_cf" : "ps");
    }
  }
}

TEST(OpenDevice, EmptyPortMeansTheFirstDiscoveredDevice) {
  Config config;
  scripted_device::load(Script{.discovered = {{"usb://9", {}}}});
  config.port = "";
  open_device(config);
  EXPECT_THAT(scripted_device::calls(), Contains("qx_open_serial port=usb://9 -> 0"));

  scripted_device::load({});
  config.port = "Other://Port";
  open_device(config);
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_open_serial port=Other://Port -> 0", "qx_close"));
}

}  // namespace
