// Byte probe runs, and the report that they are expected to print.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {

// Line by line; what is not set is that of a silent device.
struct ExpectedProbe {
  std::string reference_line = internal_reference_line;
  std::string port = "ftdi:// transport=usb format=raw64 mode=external";
  std::string payload_bytes = "0";
  std::string nonzero_bytes = "0";
  std::string first_nonzero_offset = "-1";
  std::string first_bytes{};
  std::string decoded_total = "0";
  std::array<std::string, 4> decoded{"0", "0", "0", "0"};

  [[nodiscard]] std::string text() const {
    return reference_line + "device=scripted device\nport=" + port +
           "\nbyte_probe_payload_bytes=" + payload_bytes +
           "\nbyte_probe_nonzero_bytes=" + nonzero_bytes +
           "\nbyte_probe_first_nonzero_offset=" + first_nonzero_offset +
           "\nbyte_probe_first_bytes=" + first_bytes +
           "\nbyte_probe_decoded_total=" + decoded_total +  //
           "\nbyte_probe_ch0=" + decoded[0] + "\nbyte_probe_ch1=" + decoded[1] +
           "\nbyte_probe_ch2=" + decoded[2] + "\nbyte_probe_ch3=" + decoded[3] + "\n";
  }
};

inline void expect_probe(const SmokeTestResult& result, const ExpectedProbe& expected,
                         int exit_status) {
  EXPECT_EQ(result.output, expected.text());
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, exit_status);
}

inline std::vector<std::string> probe_arguments(std::vector<std::string> more = {}) {
  more.insert(more.begin(), {"byte_probe=1", capture});
  return more;
}

inline std::vector<std::string> raw64_probe_arguments(std::vector<std::string> more = {}) {
  more.insert(more.begin(), {"format=raw64", "mode=external"});
  return probe_arguments(std::move(more));
}

// Tags at 5000, 5100 and 10000 ps.
inline const std::vector<Tag> three_tags{{0, 0x1388}, {1, 0x13EC}, {3, 0x2710}};
inline const ExpectedProbe three_tags_report{
    .payload_bytes = "24",
    .nonzero_bytes = "8",
    .first_nonzero_offset = "6",
    .first_bytes = "00 00 00 00 00 00 13 88 20 00 00 00 00 00 13 ec 60 00 00 00 00 00 27 10",
    .decoded_total = "3",
    .decoded = {"1", "1", "0", "1"}};

}  // namespace zelk::test_support
