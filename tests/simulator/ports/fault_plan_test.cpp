#include "simulator/ports/fault_plan.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "simulator/ports/device_port.hpp"
#include "simulator/ports/port_query.hpp"
#include "simulator/ports/port_values.hpp"
#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator {
namespace {

FaultPlan plan_of(const std::string& query) {
  return parse_device_port("ftdi://?" + query).faults;
}

FailingCall only_failing_call(const std::string& item) {
  const FaultPlan plan = plan_of("fail=" + item);
  EXPECT_EQ(plan.failing_calls.size(), 1U);
  return plan.failing_calls.at(0);
}

TEST(FaultPlan, NothingGoesWrongUnlessAskedFor) {
  EXPECT_EQ(parse_device_port("ftdi://").faults, FaultPlan{});
  EXPECT_EQ(parse_device_port("sim://tags?file=x").faults, FaultPlan{});
  EXPECT_FALSE(FaultPlan{}.damages_stream());
}

TEST(FaultPlan, EveryPortTakesFaults) {
  EXPECT_EQ(parse_device_port("sim://tags?vanish_at_s=0.5&file=x").faults.vanish_at_s, 0.5);
  EXPECT_EQ(parse_device_port("ftdi://ZK4-0001?vanish_at_s=2").faults.vanish_at_s, 2);
}

TEST(FaultPlan, CallFailsWithAStatusAndMaybeAText) {
  EXPECT_EQ(only_failing_call("identify:-7"),
            (FailingCall{.call = CallKind::identify, .status = -7, .last_error = ""}));
  EXPECT_EQ(only_failing_call("identify:-7:"),
            (FailingCall{.call = CallKind::identify, .status = -7, .last_error = ""}));
  EXPECT_EQ(only_failing_call("set_dac_codes:2147483647:DAC 3: no answer"),
            (FailingCall{.call = CallKind::set_dac_codes,
                         .status = 2147483647,
                         .last_error = "DAC 3: no answer"}));
  EXPECT_EQ(only_failing_call("open:-2147483648").status, -2147483647 - 1);
}

TEST(FaultPlan, CallFailsOnceOrFromAMomentOn) {
  EXPECT_EQ(only_failing_call("read_stream_bytes#3:5"),
            (FailingCall{.call = CallKind::read_stream_bytes, .status = 5, .only = 3}));
  EXPECT_EQ(
      only_failing_call("stop_stream_mode@0.25:5:x"),
      (FailingCall{
          .call = CallKind::stop_stream_mode, .status = 5, .last_error = "x", .from_s = 0.25}));
}

TEST(FaultPlan, EveryCallThatReturnsAStatusHasItsName) {
  for (std::size_t i = 0; i < call_shapes.size(); ++i) {
    EXPECT_EQ(only_failing_call(std::string(call_shapes[i].name) + ":1").call,
              static_cast<CallKind>(i));
  }
  EXPECT_EQ(shape_of(CallKind::open).name, "open");
  EXPECT_EQ(shape_of(CallKind::set_stream_channel_mask).name, "set_stream_channel_mask");
  EXPECT_EQ(shape_of(CallKind::disable_calibration_source).name, "disable_calibration_source");
}

TEST(FaultPlan, FailingCallsAreJoinedByCommas) {
  const FaultPlan plan = plan_of("fail=identify:1:a,load_calibration#2:-3,identify:2");
  EXPECT_THAT(
      plan.failing_calls,
      testing::ElementsAre(FailingCall{.call = CallKind::identify, .status = 1, .last_error = "a"},
                           FailingCall{.call = CallKind::load_calibration, .status = -3, .only = 2},
                           FailingCall{.call = CallKind::identify, .status = 2}));
}

TEST(FaultPlan, WrittenOutSignsBelongToTheText) {
  EXPECT_EQ(only_failing_call("identify:1:a%2Cb%3Ac%26d%25e").last_error, "a,b:c&d%e");
  EXPECT_EQ(only_failing_call("id%65ntify:%31:%3a").last_error, ":");
  failure_text(Status::malformed_port, [] { plan_of("fail=identify:1:a%2"); });
}

TEST(FaultPlan, MalformedFailingCallsAreRefusedByName) {
  for (const char* const item : {"",
                                 "identify",
                                 "identify:",
                                 "identify:0",
                                 "identify:x",
                                 "identify:1.5",
                                 "identify:+1",
                                 "identify: 1",
                                 "identify:2147483648",
                                 "identify:-2147483649",
                                 "qx_identify:1",
                                 "Identify:1",
                                 "discover:1",
                                 "close:1",
                                 ":1",
                                 "identify#0:1",
                                 "identify#-1:1",
                                 "identify#:1",
                                 "identify#1.5:1",
                                 "identify#1000000001:1",
                                 "identify@:1",
                                 "identify@-1:1",
                                 "identify@nan:1",
                                 "identify@1000001:1",
                                 "identify#1@2:1",
                                 "open#1:1",
                                 "open@1:1",
                                 "identify,load_calibration:1"}) {
    SCOPED_TRACE(item);
    const Status status = bad_value(key_row("fail"), item).status();
    failure_text(status, [&] { plan_of(std::string("fail=") + item); });
    failure_text(status, [&] { plan_of(std::string("fail=identify:1,") + item); });
  }
  failure_text(bad_value(key_row("fail"), "").status(), [] { plan_of("fail=identify:1,"); });
}

TEST(FaultPlan, WindowsHaveABeginningAndMaybeALength) {
  EXPECT_EQ(plan_of("silent_at_s=0.5").silent, (FaultWindow{.at_s = 0.5}));
  EXPECT_EQ(plan_of("silent_for_s=2&silent_at_s=0").silent, (FaultWindow{.at_s = 0, .for_s = 2}));
  EXPECT_EQ(plan_of("empty_at_s=1e6&empty_for_s=0.1").empty,
            (FaultWindow{.at_s = 1e6, .for_s = 0.1}));
  failure_text(Status::missing_port_key, [] { plan_of("silent_for_s=1"); });
  failure_text(Status::missing_port_key, [] { plan_of("empty_for_s=1&silent_at_s=1"); });
}

TEST(FaultPlan, MomentsAreTakenUpToTheLatest) {
  const FaultPlan plan = plan_of(
      "hang_at_s=1&vanish_at_s=2&remove_bit_at_s=3&insert_bit_at_s=4&zeros_at_s=5&ones_at_s=6&"
      "reference_lost_at_s=7");
  EXPECT_EQ(plan.hang_at_s, 1);
  EXPECT_EQ(plan.vanish_at_s, 2);
  EXPECT_EQ(plan.remove_bit_at_s, 3);
  EXPECT_EQ(plan.insert_bit_at_s, 4);
  EXPECT_EQ(plan.zeros_at_s, 5);
  EXPECT_EQ(plan.ones_at_s, 6);
  EXPECT_EQ(plan.reference_lost_at_s, 7);
  for (const char* const bad : {"-0.1", "1000000.1", "nan", "inf", "", "1s"}) {
    failure_text(bad_value(key_row("hang_at_s"), bad).status(),
                 [&] { plan_of(std::string("hang_at_s=") + bad); });
  }
}

TEST(FaultPlan, RatesAreProbabilities) {
  const FaultPlan plan =
      plan_of("flip_bits=1e-6&lose_bytes=1&insert_bytes=0.5&remove_bits=0.25&insert_bits=0.125");
  EXPECT_EQ(plan.damage, (DamageRates{.flip_bits = 1e-6,
                                      .lose_bytes = 1,
                                      .insert_bytes = 0.5,
                                      .remove_bits = 0.25,
                                      .insert_bits = 0.125}));
  for (const char* const bad : {"-1e-9", "1.001", "nan"}) {
    failure_text(bad_value(key_row("flip_bits"), bad).status(),
                 [&] { plan_of(std::string("flip_bits=") + bad); });
  }
}

TEST(FaultPlan, AnythingDoneToTheBytesDamagesTheStream) {
  for (const char* const query :
       {"flip_bits=0.1", "lose_bytes=0.1", "insert_bytes=0.1", "remove_bits=0.1", "insert_bits=0.1",
        "remove_bit_at_s=0", "insert_bit_at_s=0", "zeros_at_s=0", "ones_at_s=0"}) {
    EXPECT_TRUE(plan_of(query).damages_stream()) << query;
  }
  EXPECT_FALSE(plan_of("flip_bits=0&silent_at_s=0&empty_at_s=0&fail=identify:1").damages_stream());
}

TEST(FaultPlan, ReferenceClockIsUnavailableWithOneOfThreeStatuses) {
  EXPECT_EQ(plan_of("reference_unavailable=-3").reference_unavailable, -3);
  EXPECT_EQ(plan_of("reference_unavailable=-4").reference_unavailable, -4);
  EXPECT_EQ(plan_of("reference_unavailable=-7").reference_unavailable, -7);
  for (const char* const bad : {"-5", "3", "0", "", "-03"}) {
    failure_text(bad_value(key_row("reference_unavailable"), bad).status(),
                 [&] { plan_of(std::string("reference_unavailable=") + bad); });
  }
}

}  // namespace
}  // namespace zelk::simulator
