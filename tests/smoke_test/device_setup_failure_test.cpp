// Every step of the set-up that can fail the run: how its error reads, and that
// nothing but closing the device follows it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "smoke_test/device_setup.hpp"
#include "tests/scripted_device/scripted_device.hpp"
#include "tests/support/cout_capture.hpp"
#include "timing/error.hpp"

namespace {

using scripted_device::Script;
using testing::ElementsAre;
using zelk::timing::Device;
using zelk::timing::Error;

struct FailingStep {
  const char* function;
  const char* operation;
  StreamMode mode;
};

std::string step_name(const testing::TestParamInfo<FailingStep>& step) {
  return step.param.function;
}

// Asks for every optional step too. Returns the error that ended the set-up.
Error set_up_error(const Script& script, StreamMode mode) {
  Config config;
  config.mode = mode;
  config.threshold_v = 2.0;
  config.dead_time_ps = 5000;
  scripted_device::load(script);
  const zelk::test_support::CoutCapture printed;
  try {
    Device device = Device::open("ftdi://", Device::standard_rate);
    DeviceSettings settings;
    set_up_device(device, config, settings);
    device.start_stream(config.mode);
  } catch (const Error& error) {
    return error;
  }
  ADD_FAILURE() << "no error was thrown";
  return {"none", 0};
}

class FailingSetUp : public testing::TestWithParam<FailingStep> {};

TEST_P(FailingSetUp, IsNamedAfterItsStepAndEndsTheSetUp) {
  const FailingStep& step = GetParam();
  const Error error = set_up_error(Script{.statuses = {{step.function, {-21}}},
                                          .status_texts = {{-21, "not done"}},
                                          .last_error = "why not"},
                                   step.mode);
  EXPECT_EQ(error.what(), std::string(step.operation) + ": not done (why not)");
  EXPECT_EQ(error.status, -21);

  // The failed call, what the error asks for, and the device's end.
  std::vector<std::string> calls = scripted_device::calls();
  ASSERT_GE(calls.size(), 4u);
  calls.erase(calls.begin(), calls.end() - 4);
  EXPECT_THAT(calls,
              ElementsAre(AllOf(testing::StartsWith(step.function), testing::EndsWith(" -> -21")),
                          "qx_last_error", "qx_status_string status=-21", "qx_close"));
}

INSTANTIATE_TEST_SUITE_P(
    EveryStep, FailingSetUp,
    testing::Values(
        FailingStep{"qx_identify", "identify", StreamMode::internal},
        FailingStep{"qx_set_tdl_active_masks", "set_tdl_active_masks", StreamMode::internal},
        FailingStep{"qx_get_tdl_active_masks", "get_tdl_active_masks", StreamMode::internal},
        FailingStep{"qx_set_dac_codes", "set_dac_codes", StreamMode::internal},
        FailingStep{"qx_set_input_dead_time", "set_input_dead_time", StreamMode::internal},
        FailingStep{"qx_set_packed_delta_config", "set_packed_delta_config", StreamMode::internal},
        FailingStep{"qx_set_stream_interface", "set_stream_interface", StreamMode::internal},
        FailingStep{"qx_set_stream_channel_mask", "set_stream_channels", StreamMode::internal},
        FailingStep{"qx_set_calibration_freq", "set_calibration_freq", StreamMode::internal},
        FailingStep{"qx_enable_calibration_source", "enable_calibration_source",
                    StreamMode::internal},
        FailingStep{"qx_disable_calibration_source", "disable_calibration_source",
                    StreamMode::external},
        FailingStep{"qx_start_stream_mode", "start_stream(mode)", StreamMode::internal}),
    step_name);

}  // namespace
