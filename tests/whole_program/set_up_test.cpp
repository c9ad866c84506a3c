// From the open call to the start of the stream: what reaches the device, what
// the report says about it, and how every failing call ends the run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/smoke_test_run.hpp"
#include "tests/support/wire_words.hpp"
#include "tests/whole_program/expected_report.hpp"

namespace zelk::test_support {
namespace {

using scripted_device::make_identity;
using scripted_device::Script;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::vector<std::string> external_raw64(std::vector<std::string> more = {}) {
  std::vector<std::string> arguments{"format=raw64", "mode=external", "capture_s=0"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

void expect_report(const SmokeTestResult& result, const ExpectedReport& expected) {
  EXPECT_EQ(result.output, expected.text());
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 3);
}

TEST(SetUp, CallsComeInTheirOrderWithEverySettingGiven) {
  const SmokeTestResult result = run_smoke_test(
      Script{.identity = make_identity("", "", "AB 12/x", "unit"),
             .reference_clock = {2, 2, 1, 1, 1, 1, 0, 0, 0x1F},
             .applied_dead_time_ps = 6666,
             .read_back_masks = {{0x1F, 0x00, 0x0A, 0xFF}},
             .divider = 77},
      {"port=usb://1", "format=delta32", "mode=ext", "capture_s=0", "ref=ext", "ref_signal=1pps",
       "tdl_mask=0x1f", "threshold_v=1", "dead_time_ns=5", "channel_mask=3", "packed_bits=20"});
  EXPECT_THAT(
      scripted_device::without_reads(result.calls),
      ElementsAre("qx_open_serial port=usb://1 -> 0", "qx_identify record=zeroed -> 0",
                  "qx_load_calibration flag=1 -> 0",
                  "qx_set_reference_clock source=2 signal=1 record=zeroed -> 0",
                  "qx_set_tdl_active_masks masks=1f,1f,1f,1f -> 0",
                  "qx_get_tdl_active_masks masks_before=00,00,00,00 -> 0",
                  "qx_set_dac_codes codes=c000,c000,c000,c000 -> 0",
                  "qx_set_input_dead_time dead_time_ps=5000 applied_before=zeroed -> 0",
                  "qx_set_stream_interface transport=1 format=1 -> 0",
                  "qx_set_stream_channel_mask mask=03 -> 0", "qx_disable_calibration_source -> 0",
                  "qx_start_stream_mode mode=1 flags=0 -> 0", "qx_stop_stream_mode flag=true -> 0",
                  "qx_close"));
  expect_report(
      result, {.reference_line = "ref_requested=external ref_active=external ref_signal=1pps "
                                 "ref_external_present=1 ref_external_locked=1 ref_fallback=0 "
                                 "ref_missing_warning=0 ref_raw=0x1f\n",
               .device = "unit",
               .port = "usb://1 transport=usb format=delta32 mode=external",
               .ref_active = "2 divider=0",
               .calibration_path = "/home/operator/.zelk.timing/calibrations/zelk_cal_AB_12_x.cal",
               .tdl_masks = "0x1f,0x0,0xa,0xff",
               .dead_time_ps = "6666"});
}

TEST(Identity, FullFieldsAreTakenWhole) {
  const std::string serial = "0123456789ABCDEF";
  const std::string text = "A device text of exactly forty-eight characters!";
  ASSERT_EQ(text.size(), 48u);
  expect_report(
      run_smoke_test(Script{.identity = make_identity(serial, serial, serial, text)},
                     external_raw64()),
      {.device = text,
       .calibration_path = "/home/operator/.zelk.timing/calibrations/zelk_cal_" + serial + ".cal"});
}

TEST(Identity, EmptyTextsArePrintedEmptyAndTheSerialAsUnknown) {
  expect_report(
      run_smoke_test(Script{.identity = make_identity("a", "b", "", "")}, external_raw64()),
      {.device = "",
       .calibration_path = "/home/operator/.zelk.timing/calibrations/zelk_cal_unknown.cal"});
}

TEST(CalibrationPath, StartsInTheWorkingDirectoryWithoutAHome) {
  const ExpectedReport expected{.calibration_path = "./.zelk.timing/calibrations/zelk_cal_SN1.cal"};
  SmokeTest empty({}, external_raw64());
  empty.program().environment["HOME"] = "";
  expect_report(empty.run(), expected);
  SmokeTest unset({}, external_raw64());
  unset.program().environment.erase("HOME");
  expect_report(unset.run(), expected);
}

TEST(Calibration, FailedLoadIsOnlyReported) {
  const SmokeTestResult result =
      run_smoke_test(Script{.statuses = {{"qx_load_calibration", {-1}}}}, external_raw64());
  expect_report(result, {.calibration_loaded = "0"});
  EXPECT_THAT(result.calls, Contains("qx_load_calibration flag=1 -> -1"));
}

TEST(Calibration, NotAskedForIsReportedAsNotLoaded) {
  const SmokeTestResult result = run_smoke_test({}, external_raw64({"load_calibration=off"}));
  expect_report(result, {.calibration_loaded = "0"});
  EXPECT_THAT(result.calls, Not(Contains(HasSubstr("qx_load_calibration"))));
}

TEST(ReferenceClock, UncontrollableOneIsTolerated) {
  for (const qx_status status : {-3, -4, -7}) {
    for (const char* argument : {"ref=none", "ref=external"}) {
      const SmokeTestResult result =
          run_smoke_test(Script{.statuses = {{"qx_set_reference_clock", {status}},
                                             {"qx_get_reference_clock_status", {status}}},
                                .reference_clock = {2, 2, 1, 1, 1, 1, 1, 1, 99}},
                         external_raw64({argument}));
      expect_report(result, {.reference_line = "reference_clock_control=unavailable; "
                                               "fixed_internal_clock_assumed=1\n",
                             .ref_active = "-1 divider=0"});
    }
  }
}

TEST(ReferenceClock, QueryIsPrintedLikeASetting) {
  const SmokeTestResult result =
      run_smoke_test(Script{.reference_clock = {0, 1, 0, 0, 0, 7, 1, 1, 0xFFFFFFFF}},
                     external_raw64({"ref=none"}));
  EXPECT_THAT(result.calls, Contains("qx_get_reference_clock_status record=zeroed -> 0"));
  expect_report(result, {.reference_line = "ref_requested=auto ref_active=internal "
                                           "ref_signal=10mhz ref_external_present=0 "
                                           "ref_external_locked=0 ref_fallback=1 "
                                           "ref_missing_warning=1 ref_raw=0xffffffff\n"});
}

TEST(ReferenceClock, UnknownWordsArePrintedAsUnknown) {
  const SmokeTestResult result = run_smoke_test(
      Script{.reference_clock = {7, 0x80000000, 2, 0, 0, 0, 0, 0, 0}}, external_raw64());
  expect_report(result, {.reference_line = "ref_requested=unknown ref_active=unknown "
                                           "ref_signal=unknown ref_external_present=0 "
                                           "ref_external_locked=0 ref_fallback=0 "
                                           "ref_missing_warning=0 ref_raw=0x0\n",
                         .ref_active = "-2147483648 divider=0"});
}

TEST(Threshold, CodesRiseFromZeroToFourVolts) {
  const auto expect_code = [](const std::string& volts, const std::string& code) {
    const SmokeTestResult result = run_smoke_test({}, external_raw64({"threshold_v=" + volts}));
    EXPECT_THAT(result.calls, Contains("qx_set_dac_codes codes=" + code + "," + code + "," + code +
                                       "," + code + " -> 0"));
  };
  expect_code("0", "8000");
  expect_code("1", "c000");
  expect_code("2", "0000");
  expect_code("4", "7fff");
  expect_code("40", "7fff");
  expect_code("-0.5", "8000");
}

TEST(Threshold, NonFiniteValueIsNotProgrammed) {
  for (const char* argument : {"threshold_v=nan", "threshold_v=inf", "threshold_v=-inf"}) {
    EXPECT_THAT(run_smoke_test({}, external_raw64({argument})).calls,
                Not(Contains(HasSubstr("qx_set_dac_codes"))));
  }
}

TEST(DeadTime, AppliedValueIsReported) {
  expect_report(
      run_smoke_test(Script{.applied_dead_time_ps = -3}, external_raw64({"dead_time_ps=0"})),
      {.dead_time_ps = "-3"});
}

TEST(DeadTime, NegativeRequestLeavesNoLine) {
  expect_report(
      run_smoke_test(Script{.applied_dead_time_ps = 6666}, external_raw64({"dead_time_ps=-5"})),
      {});
}

TEST(CalibrationSource, DividerIsReportedInInternalMode) {
  const SmokeTestResult result = run_smoke_test(
      Script{.divider = 4294967295}, {"format=raw64", "capture_s=0", "cal_freq_hz=-0.125"});
  EXPECT_THAT(result.calls,
              Contains("qx_set_calibration_freq frequency_hz=-0.125 divider_before=zeroed -> 0"));
  expect_report(result, {.port = "ftdi:// transport=usb format=raw64 mode=internal",
                         .ref_active = "1 divider=4294967295"});
}

TEST(FirstDevice, EmptyPortOpensTheFirstOneDiscovered) {
  const SmokeTestResult result =
      run_smoke_test(Script{.discovered = {{"usb://1", std::nullopt},
                                           {std::nullopt, make_identity("", "", "", "")}}},
                     external_raw64({"port="}));
  std::vector<std::string> calls = scripted_device::without_reads(result.calls);
  ASSERT_GE(calls.size(), 9u);
  calls.resize(9);
  EXPECT_THAT(
      calls, ElementsAre("qx_discover -> 0", "qx_discover_count -> 2",
                         "qx_discover_port index=0 -> usb://1",
                         "qx_discover_identity index=0 -> null", "qx_discover_port index=1 -> null",
                         "qx_discover_identity index=1 -> identity", "qx_discover_free",
                         "qx_open_serial port=usb://1 -> 0", "qx_identify record=zeroed -> 0"));
  expect_report(result, {.port = " transport=usb format=raw64 mode=external"});
}

TEST(FirstDevice, NothingAttachedEndsTheRun) {
  const SmokeTestResult result = run_smoke_test({}, external_raw64({"port="}));
  EXPECT_EQ(result.error, "open_first: no ZELK device found\n");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.calls,
              ElementsAre("qx_discover -> 0", "qx_discover_count -> 0", "qx_discover_free"));
}

TEST(FirstDevice, FailedDiscoveryEndsTheRun) {
  const SmokeTestResult result =
      run_smoke_test(Script{.statuses = {{"qx_discover", {-13}}}, .last_error = "never shown"},
                     external_raw64({"port="}));
  EXPECT_EQ(result.error, "discover: status -13\n");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.calls, ElementsAre("qx_discover -> -13", "qx_status_string status=-13"));
}

TEST(FirstDevice, NoOtherOneIsTriedWhenItCannotBeOpened) {
  const SmokeTestResult result =
      run_smoke_test(Script{.statuses = {{"qx_open_serial", {-2, 0}}},
                            .discovered = {{"usb://1", {}}, {"usb://2", {}}}},
                     external_raw64({"port="}));
  EXPECT_EQ(result.error, "open: status -2\n");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(std::count_if(result.calls.begin(), result.calls.end(),
                          [](const std::string& call) { return call.starts_with("qx_open"); }),
            1);
}

// The fine-time file describes the device, not the stream.
TEST(FirstDevice, FineTimeFileDoesNotChangeTheStreamsTimes) {
  SmokeTest test(Script{.discovered = {{"usb://1", {}}},
                        .reads = {{.bytes = big_endian_64({cf_record(2, 10, 2)})}}},
                 {"port=", "format=raw64", "capture_s=0.25"});
  {
    std::ofstream out(test.program().directory / "fine_lut.bin", std::ios::binary);
    const auto number = [&out](auto value) {
      out.write(reinterpret_cast<const char*>(&value), sizeof value);
    };
    out << "TLUT";
    number(std::uint32_t{1});
    for (int channel = 0; channel < 4; ++channel) {
      number(std::uint32_t{3});
      for (const std::int64_t entry : {500, 500, 500}) {
        number(entry);
      }
    }
  }
  // 10 x 3333 - 37 = 33293, which is 3296 behind nine clock periods.
  const ExpectedReport expected{.port = " transport=usb format=raw64 mode=internal",
                                .tags_total = "1",
                                .counts = {"0", "0", "1", "0"},
                                .residues = {{{}, {}, {"1", "0", "3296:1"}, {}}},
                                .bins = {"ch0=0 ch1=0 ch2=1 ch3=0"}};
  expect_report(test.run(), expected);
}

}  // namespace
}  // namespace zelk::test_support
