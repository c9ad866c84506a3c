// Which units are attached, and a run with the one of a serial number.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using namespace std::chrono_literals;
using scripted_device::make_identity;
using scripted_device::Script;
using testing::ElementsAre;
using testing::IsEmpty;

Script two_units() {
  return {.identity = make_identity("", "", "B2", "second unit"),
          .discovered = {{"usb://1", make_identity("x", "y", "A1", "first unit")},
                         {"usb://2", make_identity("x", "y", "B2", "second unit")}}};
}

void expect_refused(const SmokeTestResult& result, const std::string& line) {
  EXPECT_EQ(result.error, line + "\n");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exit_status, 2);
}

// ---- list=1 -------------------------------------------------------------------

TEST(UnitList, PrintsEachUnitAndOpensNone) {
  const SmokeTestResult result = run_smoke_test(two_units(), {"list=1"});
  EXPECT_EQ(result.output,
            "port=usb://1 serial=A1 text=first unit\n"
            "port=usb://2 serial=B2 text=second unit\n");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(
      result.calls,
      ElementsAre("qx_discover -> 0", "qx_discover_count -> 2",
                  "qx_discover_port index=0 -> usb://1", "qx_discover_identity index=0 -> identity",
                  "qx_discover_port index=1 -> usb://2", "qx_discover_identity index=1 -> identity",
                  "qx_discover_free"));
}

TEST(UnitList, IsEmptyWithoutUnitsAndNoFailure) {
  const SmokeTestResult result = run_smoke_test({}, {"list=1"});
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.calls,
              ElementsAre("qx_discover -> 0", "qx_discover_count -> 0", "qx_discover_free"));
}

TEST(UnitList, KeepsOneLinePerUnitWhateverItSays) {
  const SmokeTestResult result = run_smoke_test(
      Script{.discovered = {{"usb://1", make_identity("", "", "0123456789ABCDEF", "a\nb\x1b[2J")},
                            {std::nullopt, std::nullopt}}},
      {"list=1"});
  EXPECT_EQ(result.output,
            "port=usb://1 serial=0123456789ABCDEF text=a\\nb\\x1b[2J\n"
            "port= serial= text=\n");
  EXPECT_EQ(result.exit_status, 0);
}

TEST(UnitList, FailsWhenDiscoveryFails) {
  const SmokeTestResult result = run_smoke_test(Script{.statuses = {{"qx_discover", {-13}}},
                                                       .status_texts = {{-13, "no bus"}},
                                                       .last_error = "never shown"},
                                                {"list=1"});
  expect_refused(result, "discover: no bus");
  EXPECT_THAT(result.calls, ElementsAre("qx_discover -> -13", "qx_status_string status=-13"));
}

TEST(UnitList, FailsWhenItCannotBeWritten) {
  for (const Program::Output output :
       {Program::Output::closed_pipe, Program::Output::full_device, Program::Output::closed}) {
    SmokeTest test(two_units(), {"list=1"});
    test.program().output = output;
    expect_refused(test.run(), "cannot write the report to standard output");
  }
}

TEST(UnitList, IsNotMadeAfterASignal) {
  Script script = two_units();
  script.delays_ms = {{"qx_discover", {1000}}};
  SmokeTest test(script, {"list=1"});
  test.program().signals = {{SIGTERM, {}, {}, 400ms}};
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 128 + SIGTERM);
  EXPECT_EQ(result.error, "interrupted during set-up\n");
  EXPECT_EQ(result.output, "");
}

TEST(UnitList, EndsAtOnceBySignalWhileItsOutputTakesNothing) {
  SmokeTest test(two_units(), {"list=1"});
  test.program().output = Program::Output::full_pipe;
  test.program().signals = {{SIGTERM, test.log_file(), "qx_discover_free", 300ms}};
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 128 + SIGTERM);
  EXPECT_EQ(result.error, "");
}

TEST(UnitList, IsSwitchedOffLikeEveryOtherSetting) {
  EXPECT_EQ(run_smoke_test(two_units(), {"list=1", "list=0", "capture_s=0"}).calls.front(),
            "qx_open_serial port=ftdi:// -> 0");
}

// ---- serial= ------------------------------------------------------------------

TEST(UnitChoice, OpensTheUnitWithTheSerialAtItsPort) {
  const SmokeTestResult result = run_smoke_test(two_units(), raw64_arguments({"serial=B2"}));
  expect_report(result,
                {.device = "second unit",
                 .port = "usb://2 transport=usb format=raw64 mode=external",
                 .calibration_path = "/home/operator/.zelk.timing/calibrations/zelk_cal_B2.cal"},
                3);
  std::vector<std::string> calls = scripted_device::without_timeouts(result.calls);
  ASSERT_GE(calls.size(), 9U);
  calls.resize(9);
  EXPECT_THAT(
      calls,
      ElementsAre("qx_discover -> 0", "qx_discover_count -> 2",
                  "qx_discover_port index=0 -> usb://1", "qx_discover_identity index=0 -> identity",
                  "qx_discover_port index=1 -> usb://2", "qx_discover_identity index=1 -> identity",
                  "qx_discover_free", "qx_open_serial port=usb://2 -> 0",
                  "qx_identify record=zeroed -> 0"));
}

TEST(UnitChoice, NeedsAUnitWithTheSerial) {
  const SmokeTestResult result = run_smoke_test(two_units(), raw64_arguments({"serial=b2"}));
  expect_refused(result, "no unit with serial b2: attached are A1 and B2");
  EXPECT_EQ(result.calls.back(), "qx_discover_free");
  expect_refused(run_smoke_test({}, raw64_arguments({"serial=B2"})),
                 "no unit with serial B2: no unit is attached");
}

TEST(UnitChoice, KeepsItsErrorOnOneLine) {
  expect_refused(run_smoke_test({}, raw64_arguments({"serial=B\n2"})),
                 "no unit with serial B\\n2: no unit is attached");
}

TEST(UnitChoice, IsRefusedBetweenTwoOfTheSameSerial) {
  Script script = two_units();
  script.discovered[0].identity = make_identity("", "", "B2", "first unit");
  const SmokeTestResult result = run_smoke_test(script, raw64_arguments({"serial=B2"}));
  expect_refused(result, "2 units with serial B2, at usb://1 and usb://2: choose one with port=");
  EXPECT_EQ(result.calls.back(), "qx_discover_free");
}

TEST(UnitChoice, PassesOverEntriesWithoutAPort) {
  const qx_identity identity = make_identity("", "", "B2", "unit");
  for (const auto& port : {std::optional<std::string>(), std::optional<std::string>("")}) {
    const SmokeTestResult result =
        run_smoke_test(Script{.discovered = {{port, identity}}}, raw64_arguments({"serial=B2"}));
    expect_refused(result, "no unit with serial B2: no attached unit has a port");
    EXPECT_EQ(result.calls.back(), "qx_discover_free");
  }
}

TEST(UnitChoice, FailsWithDiscoveryAndWithTheOpen) {
  Script script = two_units();
  script.statuses = {{"qx_open_serial", {-2}}};
  const SmokeTestResult result = run_smoke_test(script, raw64_arguments({"serial=A1"}));
  expect_refused(result, "open: status -2");
  EXPECT_EQ(result.calls[7], "qx_open_serial port=usb://1 -> -2");
  script.statuses = {{"qx_discover", {-13}}};
  expect_refused(run_smoke_test(script, raw64_arguments({"serial=A1"})), "discover: status -13");
}

TEST(UnitChoice, IsMadeInOneWayOnly) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"serial=B2", "port=usb://2"},
                                             {"port=usb://2", "serial=B2"},
                                             {"serial=B2", "port="},
                                             {"--CONTROL_PORT=", "capture_s=1", "--Serial=B2"},
                                             {"port=ftdi://", "serial=B2", "list=1"},
                                             {"serial=B2", "control_port=usb://2"}}) {
    const SmokeTestResult result = run_smoke_test(two_units(), arguments);
    expect_refused(result, "port and serial both choose the unit: give one of them");
    EXPECT_THAT(result.calls, IsEmpty());
  }
}

TEST(UnitChoice, NeedsASerial) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"serial="}, {"serial=", "serial=B2"}, {"--SERIAL="}}) {
    const SmokeTestResult result = run_smoke_test(two_units(), arguments);
    expect_refused(result, "serial must not be empty: list=1 shows those of the attached units");
    EXPECT_THAT(result.calls, IsEmpty());
  }
}

// ---- with the simulated library -----------------------------------------------

ProgramResult run_simulated(const char* discovery, std::vector<std::string> arguments) {
  Program program = simulated_smoke_test(std::move(arguments));
  if (discovery != nullptr) {
    program.environment["ZELK_SIM_DISCOVERY"] = discovery;
  }
  return run(program);
}

TEST(SimulatedUnits, AreListed) {
  EXPECT_EQ(run_simulated(nullptr, {"list=1"}).output,
            "port=ftdi://ZK4-0001 serial=ZK4-0001 text=ZK4 four-channel TDC, simulated\n");
  const ProgramResult empty = run_simulated("empty", {"list=1"});
  EXPECT_EQ(empty.output, "");
  EXPECT_EQ(empty.error, "");
  EXPECT_EQ(empty.exit_status, 0);
  const ProgramResult failing = run_simulated("fail:-13", {"list=1"});
  EXPECT_EQ(failing.output, "");
  EXPECT_THAT(failing.error, testing::MatchesRegex("discover: [^\n]+\n"));
  EXPECT_EQ(failing.exit_status, 2);
}

TEST(SimulatedUnits, AreChosenByTheirSerial) {
  const ProgramResult result = run_simulated(nullptr, {"serial=ZK4-0001", "capture_s=0"});
  EXPECT_THAT(result.output, testing::HasSubstr("\nport=ftdi://ZK4-0001 transport="));
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_EQ(run_simulated(nullptr, {"serial=ZK4-0002"}).error,
            "no unit with serial ZK4-0002: attached is ZK4-0001\n");
}

}  // namespace
}  // namespace zelk::test_support
