// Arguments that are taken as they are written, and so make no remark; and that
// every option of the table tells the check what it needs.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "smoke_test/argument_check.hpp"
#include "smoke_test/options.hpp"

namespace {

void expect_none(const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) {
    const std::optional<ArgumentRemark> remark = check_argument(argument);
    EXPECT_FALSE(remark) << argument << ": " << remark->note;
  }
}

TEST(NoRemark, IsMadeOnATextThatIsTakenAsItIs) {
  expect_none({"port=", "port=sim://pairs?rate=5ms", "control_port= x ", "--PORT==", "port=a=b"});
}

TEST(NoRemark, IsMadeOnANumberInAnyOfItsForms) {
  expect_none({"capture_s=5", "capture_s=+5", "capture_s= \t5", "capture_s=.5", "capture_s=5.",
               "capture_s=1e-3", "capture_s=0x1p3", "capture_s=-1", "capture_s=0", "capture_s=inf",
               "cal_freq_hz=0", "coincidence_window_ps=-5",
               "coincidence_window_ps=9223372036854775807", "channel_a=3", "channel_a= +03"});
}

TEST(NoRemark, IsMadeAtTheLimits) {
  expect_none({"channel_mask=0",
               "channel_mask=15",
               "channel_mask=0x0F",
               "channel_mask=0XF",
               "channel_mask=010",
               "tdl_mask=0",
               "tdl_mask=31",
               "tdl_mask=0x1F",
               "packed_bits=0",
               "packed_bits=255",
               "packed_bits= +16",
               "packed_quantum_ps=0",
               "packed_quantum_ps=65535",
               "queue_limit=1024",
               "queue_limit=18446744073709551615",
               "bin_s=0.001",
               "bin_s=inf",
               "threshold_v=0",
               "threshold_v=4",
               "dead_time_ns=9223372036854774"});
}

TEST(NoRemark, IsMadeOnAValueThatLeavesTheDeviceAlone) {
  expect_none({"threshold_v=nan", "threshold_v=NaN", "dead_time_ps=-1",
               "dead_time_ps=-9223372036854775808", "dead_time_ns=-0.5", "dead_time_ns=-1e300"});
}

TEST(NoRemark, IsMadeOnAWordInAnyOfItsSpellings) {
  expect_none({"transport=usb", "transport=USB", "mode=internal", "mode=External", "mode=ext",
               "format=raw", "format=DELTA32", "format=packed-delta", "ref=none", "ref=off",
               "ref=Unchanged", "ref=auto", "ref=ext", "reference_clock=external", "ref_signal=pps",
               "ref_signal=10MHz", "reference_signal=1PPS"});
  for (const std::string value : {"1", "true", "yes", "on", "0", "false", "no", "off", "On"}) {
    expect_none({"load_calibration=" + value, "byte_probe=" + value, "strict=" + value});
  }
}

// Their own errors say which words there are.
TEST(NoRemark, IsMadeOnAWordThatIsRejected) {
  expect_none({"format=raw32", "format=", "transport=async", "transport=uart"});
}

// The check of the pair says so when all arguments are known.
TEST(NoRemark, IsMadeOnAChannelThatDoesNotExist) {
  expect_none({"channel_a=4", "channel_b=-1", "channel_b=2147483647"});
}

TEST(NoRemark, IsMadeOnAnyDefault) {
  for (const Option& option : options()) {
    for (const std::string_view key : option.keys) {
      if (!key.empty()) {
        expect_none({std::string(key) + "=" + std::string(option.default_text)});
      }
    }
  }
}

// ---- The table -------------------------------------------------------------

TEST(OptionTable, SaysHowEveryNumberIsRead) {
  for (const Option& option : options()) {
    if (!option.unit.empty()) {
      EXPECT_NE(option.value.read, nullptr) << option.keys[0];
    }
  }
}

TEST(OptionTable, SaysWhatIsReadAndWhatIsAllowedWhereItCanDiffer) {
  for (const Option& option : options()) {
    if (option.value.read != nullptr) {
      EXPECT_NE(option.value.as_read, nullptr) << option.keys[0];
      EXPECT_NE(option.value.allowed, nullptr) << option.keys[0];
    }
  }
}

// Without a remark no conversion fails, and with a remark on an unreadable
// number it does.
TEST(OptionTable, HasARemarkOnEveryConversionThatFails) {
  for (const Option& option : options()) {
    for (const std::string value :
         {"", " ", "-", "x", "1e999", "99999999999999999999", "nan", "-1", "0x1F", "7", "1.5"}) {
      const std::string argument = std::string(option.keys[0]) + "=" + value;
      Config config;
      try {
        apply_argument(config, argument);
      } catch (const std::logic_error&) {
        EXPECT_TRUE(check_argument(argument)) << argument;
      } catch (const std::runtime_error&) {
        EXPECT_FALSE(check_argument(argument)) << argument;
      }
    }
  }
}

// The number in a text, by the C library.
double number_in(const std::string& text) {
  return std::strtod(text.c_str(), nullptr);
}

// Random values, most of which are numbers or nearly so.
TEST(OptionTable, HasNoRemarkOnlyOnNumbersThatTheRunGoesBy) {
  constexpr std::string_view characters = "0123456789012345678900..++--xXeEfaABin \t";
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same values every time
  int numbers = 0;
  for (int i = 0; i < 200'000; ++i) {
    const Option& option = options()[random() % options().size()];
    std::string value;
    for (std::size_t length = random() % 7; value.size() < length;) {
      value += characters[random() % characters.size()];
    }
    const std::string argument = std::string(option.keys[0]) + "=" + value;
    // Its nanoseconds are rounded, and its words are no numbers.
    if (option.value.read == nullptr || option.value.word != nullptr ||
        option.keys[0] == "dead_time_ns" || check_argument(argument)) {
      continue;
    }
    Config config;
    ASSERT_NO_THROW(apply_argument(config, argument)) << argument;
    const std::string as_read = option.value.as_read(config, "");
    if (as_read != "unset") {
      EXPECT_EQ(number_in(as_read), number_in(value)) << argument;
      ++numbers;
    }
  }
  EXPECT_GT(numbers, 1000);
}

}  // namespace
