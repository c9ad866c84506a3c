// Faults of a simulated unit up to the start of its stream: every call failing
// in turn, discovery, and the reference clock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/logged_run.hpp"
#include "tests/whole_program/expected_report.hpp"

namespace zelk::test_support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct FailingCall {
  const char* call;
  const char* operation;
  bool after_reference;  // the reference clock's line is already out
  const char* argument;  // what makes the run come to this call
};

std::string call_name(const testing::TestParamInfo<FailingCall>& failing) {
  return failing.param.call;
}

class SimulatedFailingCall : public testing::TestWithParam<FailingCall> {};

// The device is opened, asked up to the failing call, and closed.
void expect_ended_at(const SmokeTestResult& result, const FailingCall& failing,
                     const std::string& status) {
  EXPECT_EQ(result.output, failing.after_reference ? internal_reference_line : "");
  EXPECT_EQ(result.exit_status, 2);
  ASSERT_GE(result.calls.size(), 3U);
  EXPECT_EQ(result.calls.front(), "qx_open_serial -> 0");
  EXPECT_EQ(result.calls.end()[-2], "qx_" + std::string(failing.call) + " -> " + status);
  EXPECT_EQ(result.calls.back(), clean_close);
  EXPECT_TRUE(std::all_of(result.calls.begin(), result.calls.end() - 2,
                          [](const std::string& line) { return line.ends_with(" -> 0"); }));
}

TEST_P(SimulatedFailingCall, EndsTheRunWithItsLastError) {
  const FailingCall& failing = GetParam();
  const SmokeTestResult result =
      run_logged({"port=ftdi://?fail=" + std::string(failing.call) + ":-321:state 0x17%2C bus 2",
                  "threshold_v=1", "dead_time_ps=1", failing.argument});
  EXPECT_EQ(result.error,
            std::string(failing.operation) + ": unknown status (state 0x17, bus 2)\n");
  expect_ended_at(result, failing, "-321");
}

TEST_P(SimulatedFailingCall, EndsTheRunWithoutOneToo) {
  const FailingCall& failing = GetParam();
  const SmokeTestResult result =
      run_logged({"port=ftdi://?fail=" + std::string(failing.call) + ":-9", "threshold_v=1",
                  "dead_time_ps=1", failing.argument});
  EXPECT_EQ(result.error, std::string(failing.operation) + ": value out of range\n");
  expect_ended_at(result, failing, "-9");
}

INSTANTIATE_TEST_SUITE_P(
    Each, SimulatedFailingCall,
    testing::Values(FailingCall{"identify", "identify", false, ""},
                    FailingCall{"set_reference_clock", "set_reference_clock", false, ""},
                    FailingCall{"get_reference_clock_status", "reference_clock_status", false,
                                "ref=none"},
                    FailingCall{"set_tdl_active_masks", "set_tdl_active_masks", true, ""},
                    FailingCall{"get_tdl_active_masks", "get_tdl_active_masks", true, ""},
                    FailingCall{"set_dac_codes", "set_dac_codes", true, ""},
                    FailingCall{"set_input_dead_time", "set_input_dead_time", true, ""},
                    FailingCall{"set_packed_delta_config", "set_packed_delta_config", true, ""},
                    FailingCall{"set_stream_interface", "set_stream_interface", true, ""},
                    FailingCall{"set_stream_channel_mask", "set_stream_channels", true, ""},
                    FailingCall{"set_calibration_freq", "set_calibration_freq", true, ""},
                    FailingCall{"enable_calibration_source", "enable_calibration_source", true, ""},
                    FailingCall{"disable_calibration_source", "disable_calibration_source", true,
                                "mode=external"},
                    FailingCall{"start_stream_mode", "start_stream(mode)", true, ""}),
    call_name);

TEST(SimulatedOpenFailure, LeavesNothingToClose) {
  const SmokeTestResult result = run_logged({"port=ftdi://?fail=open:-7:never shown"});
  EXPECT_EQ(result.error, "open: not available on this unit\n");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.calls, ElementsAre("qx_open_serial -> -7"));
}

// The status of an unknown key, which the port does not have.
TEST(SimulatedOpenFailure, HasTheFixedTextOfItsStatus) {
  EXPECT_EQ(run_logged({"port=ftdi://?fail=open:-23:never shown"}).error,
            "open: unknown key in port string\n");
  EXPECT_EQ(run_logged({"port="}, {{"ZELK_SIM_DISCOVERY", "fail:-40"}}).error,
            "discover: malformed value of ZELK_SIM_DISCOVERY\n");
}

TEST(SimulatedFaultKeys, WithABadValueFailTheOpenByName) {
  const SmokeTestResult result = run_logged({"port=ftdi://?vanish_at_s=soon"});
  EXPECT_EQ(result.error,
            "open: port key vanish_at_s takes a number from 0 to 1000000 s, not \"soon\"\n");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(run_logged({"port=ftdi://?fail=frobnicate:1"}).error,
            "open: port key fail takes CALL[#N|@SECONDS]:STATUS[:TEXT], or several of these "
            "joined by commas, not \"frobnicate:1\"\n");
}

TEST(SimulatedCalibration, ThatDoesNotLoadIsReportedAndNoFailure) {
  const SmokeTestResult result = run_logged(
      {"port=ftdi://?fail=load_calibration:-321:no table", "capture_s=0.2", "channel_mask=3"});
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.output, HasSubstr("\ncalibration_loaded=0\n"));
  EXPECT_THAT(calls_of_stream(result),
              ElementsAre("qx_start_stream_mode -> 0", "qx_stop_stream_mode -> 0", clean_close));
}

TEST(SimulatedDiscovery, FailureLeavesNoListToFree) {
  const SmokeTestResult result = run_logged({"port="}, {{"ZELK_SIM_DISCOVERY", "fail:-7"}});
  EXPECT_EQ(result.error, "discover: not available on this unit\n");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.calls, ElementsAre("qx_discover -> -7"));
}

TEST(SimulatedDiscovery, ThatFindsNothingEndsTheRun) {
  const SmokeTestResult result = run_logged({"port="}, {{"ZELK_SIM_DISCOVERY", "empty"}});
  EXPECT_EQ(result.error, "open_first: no ZELK device found\n");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.calls, ElementsAre("qx_discover -> 0", "qx_discover_free"));
}

TEST(SimulatedDiscovery, EntryOfNullPointersIsNoUnit) {
  const SmokeTestResult result = run_logged({"port="}, {{"ZELK_SIM_DISCOVERY", "null"}});
  EXPECT_EQ(result.error,
            "open: no such unit: ``; there are ftdi://, ftdi://ZK4-0001, sim://tags, sim://pulses, "
            "sim://random, sim://pairs, sim://burst, sim://silent, tap://FILE and replay://FILE\n");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.calls,
              ElementsAre("qx_discover -> 0", "qx_discover_free", "qx_open_serial -> -20"));
}

TEST(SimulatedDiscovery, MalformedRequestFailsByName) {
  const SmokeTestResult result = run_logged({"port="}, {{"ZELK_SIM_DISCOVERY", "nothing"}});
  EXPECT_EQ(result.error,
            "discover: malformed value of ZELK_SIM_DISCOVERY: `nothing` is none of fail:STATUS, "
            "empty, null and port:PORT\n");
  EXPECT_EQ(result.exit_status, 2);
}

TEST(SimulatedDiscovery, TakesAHostToAnyPort) {
  const SmokeTestResult result =
      run_logged({"port="}, {{"ZELK_SIM_DISCOVERY", "port:ftdi://?fail=identify:-9"}});
  EXPECT_EQ(result.error, "identify: value out of range\n");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.calls.back(), clean_close);
}

// A silent unit: its report has no figure that differs from run to run.
ExpectedReport silent_report(const std::string& keys) {
  ExpectedReport report;
  report.device = "ZK4 four-channel TDC, simulated";
  report.port = "ftdi://?silent_at_s=0&" + keys + " transport=usb format=raw64 mode=external";
  report.calibration_path = "/home/operator/.zelk.timing/calibrations/zelk_cal_ZK4-0001.cal";
  return report;
}

SmokeTestResult run_silent(const std::string& keys, const std::string& argument) {
  SmokeTestResult result = run_logged({"port=ftdi://?silent_at_s=0&" + keys, "format=raw64",
                                       "mode=external", "capture_s=0.05", argument});
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_THAT(calls_of_stream(result),
              ElementsAre("qx_start_stream_mode -> 0", "qx_stop_stream_mode -> 0", clean_close));
  return result;
}

TEST(SimulatedReferenceClock, ThatCannotBeControlledIsReportedAndNoFailure) {
  for (const char* const status : {"-3", "-4", "-7"}) {
    for (const char* const argument : {"ref=external", "ref=none"}) {
      const std::string keys = std::string("reference_unavailable=") + status;
      ExpectedReport report = silent_report(keys);
      report.reference_line =
          "reference_clock_control=unavailable; fixed_internal_clock_assumed=1\n";
      report.ref_active = "-1 divider=0";
      EXPECT_EQ(run_silent(keys, argument).output, report.text());
    }
  }
}

TEST(SimulatedReferenceClock, ThatDoesNotLockIsFallenBackFrom) {
  ExpectedReport report = silent_report("external_reference=unlocked");
  report.reference_line =
      "ref_requested=external ref_active=internal ref_signal=10mhz ref_external_present=1 "
      "ref_external_locked=0 ref_fallback=1 ref_missing_warning=0 ref_raw=0x5\n";
  EXPECT_EQ(run_silent("external_reference=unlocked", "ref=external").output, report.text());
}

TEST(SimulatedReferenceClock, ThatLocksIsRunOn) {
  ExpectedReport report = silent_report("external_reference=locked");
  report.reference_line =
      "ref_requested=external ref_active=external ref_signal=10mhz ref_external_present=1 "
      "ref_external_locked=1 ref_fallback=0 ref_missing_warning=0 ref_raw=0x3\n";
  report.ref_active = "2 divider=0";
  EXPECT_EQ(run_silent("external_reference=locked", "ref=external").output, report.text());
}

// The host asks before the stream starts, so it sees the clock as it was.
TEST(SimulatedReferenceClock, ThatIsLostInMidRunDoesNotStopTheRun) {
  const std::string keys = "external_reference=locked&reference_lost_at_s=0.01";
  ExpectedReport report = silent_report(keys);
  report.reference_line =
      "ref_requested=external ref_active=external ref_signal=10mhz ref_external_present=1 "
      "ref_external_locked=1 ref_fallback=0 ref_missing_warning=0 ref_raw=0x3\n";
  report.ref_active = "2 divider=0";
  EXPECT_EQ(run_silent(keys, "ref=external").output, report.text());
}

}  // namespace
}  // namespace zelk::test_support
