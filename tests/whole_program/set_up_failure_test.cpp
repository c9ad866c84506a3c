// Every call between opening the device and streaming, failing in turn.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/smoke_test_run.hpp"
#include "tests/whole_program/expected_report.hpp"

namespace zelk::test_support {
namespace {

using scripted_device::Script;
using testing::ElementsAre;

struct FailingCall {
  const char* function;
  const char* operation;
  std::size_t calls_before;  // library calls of the run up to the failing one
  bool after_reference;      // the reference clock's line is already out
  const char* argument;      // what makes the run come to this call
};

std::string call_name(const testing::TestParamInfo<FailingCall>& call) {
  return call.param.function;
}

class FailingSetUpCall : public testing::TestWithParam<FailingCall> {};

TEST_P(FailingSetUpCall, EndsTheRunWithItsErrorAndClosesTheDeviceOnce) {
  const FailingCall& failing = GetParam();
  const SmokeTestResult result =
      run_smoke_test(Script{.statuses = {{failing.function, {-21}}},
                            .status_texts = {{-21, "refused by the device"}},
                            .last_error = "state 0x17"},
                     {"threshold_v=1", "dead_time_ps=1", failing.argument});
  EXPECT_EQ(result.error,
            std::string(failing.operation) + ": refused by the device (state 0x17)\n");
  EXPECT_EQ(result.output, failing.after_reference ? internal_reference_line : "");
  EXPECT_EQ(result.exit_status, 2);

  ASSERT_EQ(result.calls.size(), failing.calls_before + 4);
  const std::vector<std::string> end(result.calls.end() - 4, result.calls.end());
  EXPECT_THAT(end, ElementsAre(testing::AllOf(testing::StartsWith(failing.function),
                                              testing::EndsWith(" -> -21")),
                               "qx_last_error", "qx_status_string status=-21", "qx_close"));
}

TEST_P(FailingSetUpCall, WithoutALastErrorHasNoParentheses) {
  const FailingCall& failing = GetParam();
  const SmokeTestResult result = run_smoke_test(
      Script{.statuses = {{failing.function, {5}}}, .status_texts = {{5, "odd"}}, .last_error = ""},
      {"threshold_v=1", "dead_time_ps=1", failing.argument});
  EXPECT_EQ(result.error, std::string(failing.operation) + ": odd\n");
  EXPECT_EQ(result.exit_status, 2);
}

INSTANTIATE_TEST_SUITE_P(
    Each, FailingSetUpCall,
    testing::Values(
        FailingCall{"qx_identify", "identify", 1, false, ""},
        FailingCall{"qx_set_reference_clock", "set_reference_clock", 3, false, ""},
        FailingCall{"qx_get_reference_clock_status", "reference_clock_status", 3, false,
                    "ref=none"},
        FailingCall{"qx_set_tdl_active_masks", "set_tdl_active_masks", 4, true, ""},
        FailingCall{"qx_get_tdl_active_masks", "get_tdl_active_masks", 5, true, ""},
        FailingCall{"qx_set_dac_codes", "set_dac_codes", 6, true, ""},
        FailingCall{"qx_set_input_dead_time", "set_input_dead_time", 7, true, ""},
        FailingCall{"qx_set_packed_delta_config", "set_packed_delta_config", 8, true, ""},
        FailingCall{"qx_set_stream_interface", "set_stream_interface", 9, true, ""},
        FailingCall{"qx_set_stream_channel_mask", "set_stream_channels", 10, true, ""},
        FailingCall{"qx_set_calibration_freq", "set_calibration_freq", 11, true, ""},
        FailingCall{"qx_enable_calibration_source", "enable_calibration_source", 12, true, ""},
        FailingCall{"qx_disable_calibration_source", "disable_calibration_source", 11, true,
                    "mode=external"},
        FailingCall{"qx_start_stream_mode", "start_stream(mode)", 13, true, ""}),
    call_name);

TEST(FailingOpen, HasNoDeviceToAskOrToClose) {
  const SmokeTestResult result = run_smoke_test(Script{.statuses = {{"qx_open_serial", {-2}}},
                                                       .status_texts = {{-2, "no such port"}},
                                                       .last_error = "never shown"},
                                                {"port=COM9"});
  EXPECT_EQ(result.error, "open: no such port\n");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.calls,
              ElementsAre("qx_open_serial port=COM9 -> -2", "qx_status_string status=-2"));
}

TEST(FailingReferenceClock, EveryOtherStatusEndsTheRun) {
  for (const qx_status status : {-1, -2, -5, -6, -8, 3, 4, 7}) {
    for (const char* argument : {"ref=internal", "ref=none"}) {
      const SmokeTestResult result =
          run_smoke_test(Script{.statuses = {{"qx_set_reference_clock", {status}},
                                             {"qx_get_reference_clock_status", {status}}}},
                         {argument});
      EXPECT_EQ(result.exit_status, 2) << status << ' ' << argument;
      EXPECT_EQ(result.output, "") << status << ' ' << argument;
      EXPECT_EQ(std::count(result.calls.begin(), result.calls.end(), "qx_close"), 1);
    }
  }
}

}  // namespace
}  // namespace zelk::test_support
