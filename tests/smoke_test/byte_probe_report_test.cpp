// The report of a byte probe, byte for byte.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "smoke_test/report.hpp"
#include "tests/support/cout_capture.hpp"

namespace {

using zelk::test_support::CoutCapture;
using zelk::timing::Format;
using zelk::timing::Identity;
using zelk::timing::Transport;

std::string report_of(const Config& config, const Identity& identity, const ByteProbe& probe) {
  const CoutCapture output;
  print_byte_probe(config, identity, probe);
  return output.text();
}

Identity unit_12() {
  return {.text_a = "not printed",
          .text_b = "nor this",
          .serial = "A-7",
          .device_text = "Unit 12 rev B"};
}

constexpr const char* lines_without_bytes =
    "byte_probe_payload_bytes=0\n"
    "byte_probe_nonzero_bytes=0\n"
    "byte_probe_first_nonzero_offset=-1\n"
    "byte_probe_first_bytes=\n"
    "byte_probe_decoded_total=0\n"
    "byte_probe_ch0=0\n"
    "byte_probe_ch1=0\n"
    "byte_probe_ch2=0\n"
    "byte_probe_ch3=0\n";

TEST(ByteProbeReport, IsThisText) {
  Config config;
  config.port = "ftdi://bench 3";
  config.format = Format::delta32;
  config.mode = StreamMode::external;
  config.dead_time_ps = 25'000;  // has no line here
  ByteProbe probe;
  probe.first_bytes = {0x00, 0xEB, 0x5A, 0x05, 0xFF};
  probe.payload_bytes = 70'000;
  probe.nonzero_bytes = 61'234;
  probe.first_nonzero_offset = 1;
  probe.decoded_total = 15;
  probe.decoded = {1, 2, 3, 4};
  EXPECT_EQ(report_of(config, unit_12(), probe),
            "device=Unit 12 rev B\n"
            "port=ftdi://bench 3 transport=usb format=delta32 mode=external\n"
            "byte_probe_payload_bytes=70000\n"
            "byte_probe_nonzero_bytes=61234\n"
            "byte_probe_first_nonzero_offset=1\n"
            "byte_probe_first_bytes=00 eb 5a 05 ff\n"
            "byte_probe_decoded_total=15\n"
            "byte_probe_ch0=1\n"
            "byte_probe_ch1=2\n"
            "byte_probe_ch2=3\n"
            "byte_probe_ch3=4\n");
}

TEST(ByteProbeReport, WithoutAnyByteIsThisText) {
  EXPECT_EQ(report_of(Config{}, Identity{}, ByteProbe{}),
            std::string("device=\n"
                        "port=ftdi:// transport=usb format=packed_delta mode=internal\n") +
                lines_without_bytes);
}

TEST(ByteProbeReport, CallsValuesWithoutANameUnknown) {
  Config config;
  config.port = "";
  config.transport = static_cast<Transport>(9);
  config.format = static_cast<Format>(3);
  EXPECT_EQ(report_of(config, Identity{}, ByteProbe{}),
            std::string("device=\nport= transport=unknown format=unknown mode=internal\n") +
                lines_without_bytes);
}

TEST(ByteProbeReport, PrintsTheLargestNumbersInFull) {
  constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
  ByteProbe probe;
  probe.payload_bytes = most;
  probe.nonzero_bytes = most - 1;
  probe.first_nonzero_offset = std::numeric_limits<std::int64_t>::max();
  probe.decoded_total = most - 2;
  probe.decoded = {most - 3, most - 4, most - 5, most - 6};
  EXPECT_EQ(report_of(Config{}, Identity{}, probe),
            "device=\n"
            "port=ftdi:// transport=usb format=packed_delta mode=internal\n"
            "byte_probe_payload_bytes=18446744073709551615\n"
            "byte_probe_nonzero_bytes=18446744073709551614\n"
            "byte_probe_first_nonzero_offset=9223372036854775807\n"
            "byte_probe_first_bytes=\n"
            "byte_probe_decoded_total=18446744073709551613\n"
            "byte_probe_ch0=18446744073709551612\n"
            "byte_probe_ch1=18446744073709551611\n"
            "byte_probe_ch2=18446744073709551610\n"
            "byte_probe_ch3=18446744073709551609\n");
}

}  // namespace
