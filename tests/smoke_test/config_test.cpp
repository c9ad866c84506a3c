// Defaults, the splitting of arguments, and the checks after the last one.
#include "smoke_test/config.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>

#include "tests/smoke_test/config_arguments.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using zelk::timing::Format;
using zelk::timing::ReferenceClockSource;
using zelk::timing::ReferenceSignal;
using zelk::timing::Transport;

constexpr const char* pair_text = "channel_a/channel_b must be distinct and in 0..3";
constexpr const char* uart_text = "this GUI-live smoke test is intended for USB FIFO modes";

// The text of the std::runtime_error with which the checks reject the
// arguments; empty when they accept them.
std::string rejection(std::initializer_list<std::string_view> arguments) {
  const Config config = config_from(arguments);
  try {
    validate(config);
  } catch (const std::exception& error) {
    EXPECT_TRUE(typeid(error) == typeid(std::runtime_error));
    return error.what();
  }
  return "";
}

TEST(ConfigDefaults, AreThoseOfARunWithoutArguments) {
  const Config config = config_from({});
  EXPECT_EQ(config.port, "ftdi://");
  EXPECT_FALSE(config.port_given);
  EXPECT_EQ(config.serial, "");
  EXPECT_EQ(config.tags_file, "");
  EXPECT_FALSE(config.list);
  EXPECT_EQ(config.transport, Transport::usb);
  EXPECT_EQ(config.format, Format::packed_delta);
  EXPECT_EQ(config.mode, StreamMode::internal);
  EXPECT_EQ(config.capture_s, 0.5);
  EXPECT_EQ(config.cal_freq_hz, 10000.0);
  EXPECT_TRUE(std::isnan(config.threshold_v));
  EXPECT_EQ(config.channel_mask, 12);
  EXPECT_EQ(config.channel_a, 0);
  EXPECT_EQ(config.channel_b, 1);
  EXPECT_EQ(config.coincidence_window_ps, 1000);
  EXPECT_EQ(config.packed_bits, 16);
  EXPECT_EQ(config.packed_quantum_ps, 8);
  EXPECT_EQ(config.bin_s, 0.1);
  EXPECT_EQ(config.queue_limit, 131072U);
  EXPECT_EQ(config.dead_time_ps, -1);
  EXPECT_TRUE(config.load_calibration);
  EXPECT_EQ(config.tdl_mask, 7);
  EXPECT_TRUE(config.set_reference);
  EXPECT_EQ(config.ref_source, ReferenceClockSource::internal);
  EXPECT_EQ(config.ref_signal, ReferenceSignal::ten_mhz);
  EXPECT_FALSE(config.byte_probe);
  EXPECT_FALSE(config.strict);
}

TEST(ConfigDefaults, PassTheChecksAlthoughThePairIsNotStreamed) {
  EXPECT_EQ(rejection({}), "");
  const Config config;
  EXPECT_EQ(config.channel_mask & (1U << config.channel_a), 0U);
  EXPECT_EQ(config.channel_mask & (1U << config.channel_b), 0U);
}

TEST(ConfigFields, HaveTheWidthsThatTheDeviceLibraryTakes) {
  static_assert(std::is_same_v<decltype(Config::channel_mask), std::uint8_t>);
  static_assert(std::is_same_v<decltype(Config::packed_bits), std::uint8_t>);
  static_assert(std::is_same_v<decltype(Config::packed_quantum_ps), std::uint16_t>);
  static_assert(std::is_same_v<decltype(Config::channel_a), std::int32_t>);
  static_assert(std::is_same_v<decltype(Config::channel_b), std::int32_t>);
  static_assert(std::is_same_v<decltype(Config::coincidence_window_ps), std::int64_t>);
  static_assert(std::is_same_v<decltype(Config::queue_limit), std::uint64_t>);
  static_assert(std::is_same_v<decltype(Config::dead_time_ps), std::int64_t>);
  static_assert(sizeof(Config::transport) == 4 && sizeof(Config::format) == 4);
  static_assert(sizeof(Config::mode) == 4 && sizeof(Config::ref_source) == 4);
  static_assert(sizeof(Config::ref_signal) == 4);
  EXPECT_EQ(static_cast<std::uint32_t>(Transport::uart), 0U);
  EXPECT_EQ(static_cast<std::uint32_t>(Transport::usb), 1U);
  EXPECT_EQ(static_cast<std::uint32_t>(Format::raw64), 0U);
  EXPECT_EQ(static_cast<std::uint32_t>(Format::delta32), 1U);
  EXPECT_EQ(static_cast<std::uint32_t>(Format::packed_delta), 2U);
  EXPECT_EQ(static_cast<std::uint32_t>(StreamMode::internal), 0U);
  EXPECT_EQ(static_cast<std::uint32_t>(StreamMode::external), 1U);
  EXPECT_EQ(static_cast<std::uint32_t>(ReferenceClockSource::automatic), 0U);
  EXPECT_EQ(static_cast<std::uint32_t>(ReferenceClockSource::internal), 1U);
  EXPECT_EQ(static_cast<std::uint32_t>(ReferenceClockSource::external), 2U);
  EXPECT_EQ(static_cast<std::uint32_t>(ReferenceSignal::ten_mhz), 0U);
  EXPECT_EQ(static_cast<std::uint32_t>(ReferenceSignal::one_pps), 1U);
}

TEST(ArgumentSplitting, EmptyValueReachesTheOption) {
  EXPECT_EQ(config_from({"port="}).port, "");
}

TEST(ArgumentSplitting, LaterEqualsSignsBelongToTheValue) {
  EXPECT_EQ(config_from({"port=a=b"}).port, "a=b");
  EXPECT_EQ(config_from({"port=="}).port, "=");
}

TEST(ArgumentSplitting, TwoLeadingDashesAreRemoved) {
  EXPECT_EQ(config_from({"--CAPTURE_S=2"}).capture_s, 2.0);
  EXPECT_EQ(config_from({"capture_s=2"}).capture_s, 2.0);
}

TEST(ArgumentSplitting, OnlyOnePairOfLeadingDashesIsRemoved) {
  EXPECT_THAT(changed_fields(config_from({"-capture_s=2"})), IsEmpty());
  EXPECT_THAT(changed_fields(config_from({"---capture_s=2"})), IsEmpty());
  EXPECT_THAT(changed_fields(config_from({"----capture_s=2"})), IsEmpty());
}

TEST(ArgumentSplitting, DashesInTheValueStay) {
  EXPECT_EQ(config_from({"port=--x"}).port, "--x");
  EXPECT_EQ(config_from({"--port=--x"}).port, "--x");
}

TEST(ArgumentSplitting, ArgumentsWithoutEqualsSignAreIgnored) {
  EXPECT_THAT(changed_fields(config_from({"capture_s", "--byte_probe", "--", "-", "", "5"})),
              IsEmpty());
}

TEST(ArgumentSplitting, EmptyKeyIsIgnored) {
  EXPECT_THAT(changed_fields(config_from({"=5", "--=5", "="})), IsEmpty());
}

TEST(ArgumentSplitting, UnknownKeysAreIgnoredWhateverTheirValue) {
  EXPECT_THAT(changed_fields(config_from({"bogus=abc", "capture=2", "capture_s_=2", "capture_s =2",
                                          " capture_s=2", "por=x", "refs=auto"})),
              IsEmpty());
}

TEST(ArgumentOrder, TheLastValueOfAKeyCounts) {
  EXPECT_EQ(config_from({"capture_s=1", "bin_s=3", "capture_s=2"}).capture_s, 2.0);
}

TEST(ArgumentOrder, AliasesOverwriteEachOther) {
  EXPECT_EQ(config_from({"dead_time_ps=7", "dead_time_ns=2"}).dead_time_ps, 2000);
  EXPECT_EQ(config_from({"dead_time_ns=2", "dead_time_ps=7"}).dead_time_ps, 7);
  EXPECT_EQ(config_from({"port=x", "control_port=y"}).port, "y");
  EXPECT_EQ(config_from({"control_port=y", "port=x"}).port, "x");
}

TEST(ArgumentOrder, AFailingArgumentLeavesEarlierFieldsAlone) {
  Config config;
  apply_argument(config, "capture_s=2");
  apply_argument(config, "format=raw");
  EXPECT_THROW(apply_argument(config, "format=raw32"), std::runtime_error);
  EXPECT_THROW(apply_argument(config, "capture_s=x"), std::invalid_argument);
  EXPECT_EQ(config.format, Format::raw64);
  EXPECT_EQ(config.capture_s, 2.0);
  EXPECT_THAT(changed_fields(config), ElementsAre("format", "capture_s"));
}

TEST(ConfigChecks, AcceptEveryPairOfDifferentChannels) {
  for (int a = 0; a < 4; ++a) {
    for (int b = 0; b < 4; ++b) {
      Config config;
      config.channel_a = a;
      config.channel_b = b;
      if (a != b) {
        EXPECT_NO_THROW(validate(config)) << a << ' ' << b;
      } else {
        EXPECT_THROW(validate(config), std::runtime_error) << a << ' ' << b;
      }
    }
  }
}

TEST(ConfigChecks, RejectEqualChannels) {
  EXPECT_EQ(rejection({"channel_a=3", "channel_b=3"}), pair_text);
  EXPECT_EQ(rejection({"channel_a=1"}), pair_text);
}

TEST(ConfigChecks, RejectChannelsOutsideTheDevice) {
  EXPECT_EQ(rejection({"channel_a=4"}), pair_text);
  EXPECT_EQ(rejection({"channel_b=4"}), pair_text);
  EXPECT_EQ(rejection({"channel_a=2147483647"}), pair_text);
}

TEST(ConfigChecks, RejectNegativeChannels) {
  EXPECT_EQ(rejection({"channel_a=-1"}), pair_text);
  EXPECT_EQ(rejection({"channel_b=-1"}), pair_text);
  EXPECT_EQ(rejection({"channel_b=-2147483648"}), pair_text);
}

TEST(ConfigChecks, RejectUartWhichParsingAccepts) {
  EXPECT_EQ(rejection({"transport=UART"}), uart_text);
}

TEST(ConfigChecks, NameTheChannelPairBeforeTheTransport) {
  EXPECT_EQ(rejection({"transport=uart", "channel_b=0"}), pair_text);
}

TEST(ConfigChecks, RejectAUnitChosenInTwoWays) {
  constexpr const char* text = "port and serial both choose the unit: give one of them";
  EXPECT_EQ(rejection({"port=x", "serial=y"}), text);
  EXPECT_EQ(rejection({"serial=y", "control_port="}), text);
  EXPECT_EQ(rejection({"serial=y"}), "");
  EXPECT_EQ(rejection({"port=x"}), "");
}

TEST(ConfigChecks, RejectTheTagsOfARunWithoutACapture) {
  EXPECT_EQ(rejection({"save_tags=t.npy", "byte_probe=1"}),
            "save_tags keeps the tags of the capture, which byte_probe=1 replaces");
  EXPECT_EQ(rejection({"list=1", "save_tags=t.csv"}),
            "save_tags keeps the tags of the capture, which list=1 replaces");
  EXPECT_EQ(rejection({"save_tags=t.npy", "byte_probe=0"}), "");
}

TEST(ConfigChecks, LeaveEveryOtherFieldToItsUser) {
  EXPECT_EQ(rejection({"capture_s=-1", "bin_s=nan", "queue_limit=0", "cal_freq_hz=-5",
                       "packed_bits=0", "packed_quantum_ps=0", "channel_mask=0", "tdl_mask=0",
                       "coincidence_window_ps=-1", "port=", "threshold_v=inf"}),
            "");
}

}  // namespace
