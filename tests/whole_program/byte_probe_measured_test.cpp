// Byte probes of a simulated unit that plays measured tags. Their file is not
// part of this repository: ZELK_MEASURED_TAGS names it.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/smoke_test_run.hpp"

namespace zelk::test_support {
namespace {

class MeasuredByteProbe : public testing::Test {
 protected:
  void SetUp() override {
    const char* const path = std::getenv("ZELK_MEASURED_TAGS");
    if (path == nullptr) {
      GTEST_SKIP() << "ZELK_MEASURED_TAGS names no file";
    }
    port_ = "port=sim://tags?pace=max&file=";
    for (const char c : std::string(path)) {
      port_ += c == '%' ? "%25" : c == '&' ? "%26" : std::string(1, c);
    }
  }

  // Probes both channels in external mode; how far the probe gets in its time
  // depends on the machine.
  [[nodiscard]] ProgramResult probe(const std::string& format) const {
    return run(simulated_smoke_test({"byte_probe=1", "capture_s=0.5", "mode=external",
                                     "channel_mask=3", "format=" + format, port_}));
  }

 private:
  std::string port_;
};

// The numbers behind "byte_probe_".
std::map<std::string, std::uint64_t> probe_numbers(const std::string& report) {
  const std::string prefix = "byte_probe_";
  std::map<std::string, std::uint64_t> numbers;
  std::istringstream lines(report);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t equals = line.find('=');
    const std::string key = line.substr(0, equals);
    if (key.starts_with(prefix) && key != "byte_probe_first_bytes") {
      numbers[key.substr(prefix.size())] = std::stoull(line.substr(equals + 1));
    }
  }
  return numbers;
}

void expect_tags_on_channels_0_and_1(const ProgramResult& result) {
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 0);
  auto numbers = probe_numbers(result.output);
  EXPECT_GT(numbers["payload_bytes"], 0U);
  EXPECT_GT(numbers["ch0"], 0U);
  EXPECT_GT(numbers["ch1"], 0U);
  EXPECT_EQ(numbers["ch2"], 0U);
  EXPECT_EQ(numbers["ch3"], 0U);
  EXPECT_EQ(numbers["decoded_total"], numbers["ch0"] + numbers["ch1"]);
}

TEST_F(MeasuredByteProbe, OfRaw64DecodesEveryEightBytes) {
  const ProgramResult result = probe("raw64");
  expect_tags_on_channels_0_and_1(result);
  auto numbers = probe_numbers(result.output);
  EXPECT_EQ(numbers["decoded_total"], numbers["payload_bytes"] / 8);
}

// A tag takes a word, and every base three more.
TEST_F(MeasuredByteProbe, OfDelta32DecodesTagsOfBothChannels) {
  const ProgramResult result = probe("delta32");
  expect_tags_on_channels_0_and_1(result);
  auto numbers = probe_numbers(result.output);
  EXPECT_LT(numbers["decoded_total"], numbers["payload_bytes"] / 4);
  EXPECT_GT(numbers["decoded_total"], numbers["payload_bytes"] / 8);
}

// A tag takes a record of 19 bits, a longer step one more, and every sync four.
TEST_F(MeasuredByteProbe, OfPackedDeltaDecodesTagsOfBothChannels) {
  const ProgramResult result = probe("packed_delta");
  expect_tags_on_channels_0_and_1(result);
  auto numbers = probe_numbers(result.output);
  const std::uint64_t records = numbers["payload_bytes"] * 8 / 19;
  EXPECT_LT(numbers["decoded_total"], records);
  EXPECT_GT(numbers["decoded_total"], records / 3);
}

}  // namespace
}  // namespace zelk::test_support
