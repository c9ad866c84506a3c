// Runs with byte_probe=1: what the raw stream looked like, which calls got it,
// and the exit status.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/whole_program/byte_probe_runs.hpp"

namespace zelk::test_support {
namespace {

using namespace std::chrono_literals;
using scripted_device::Script;
using testing::ElementsAre;
using testing::ElementsAreArray;

std::string hex_bytes(std::size_t count, const std::string& byte) {
  std::string text = byte;
  for (std::size_t i = 1; i < count; ++i) {
    text += " " + byte;
  }
  return text;
}

TEST(ByteProbe, CountsAndDecodesRaw64) {
  const SmokeTestResult result = run_smoke_test(raw64_device(three_tags), raw64_probe_arguments());
  expect_probe(result, three_tags_report, 0);
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                          "qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=24",
                          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

// The internal source's records are coarse and fine counts, so the picosecond
// record between them is none.
TEST(ByteProbe, DecodesRaw64OfTheInternalSourceAsCoarseAndFineCounts) {
  const Bytes bytes{0x34, 0xB8, 0x60, 0, 0,    1,    0x40, 2,   // channel 1, coarse 10, fine 2
                    0x20, 0,    0,    0, 0x13, 0x88, 0,    0,   //
                    0x74, 0xB8, 0x60, 0, 0,    1,    0x60, 0};  // channel 3, coarse 11, fine 0
  expect_probe(
      run_smoke_test(Script{.reads = {{.bytes = bytes}}}, probe_arguments({"format=raw64"})),
      {.port = "ftdi:// transport=usb format=raw64 mode=internal",
       .payload_bytes = "24",
       .nonzero_bytes = "14",
       .first_nonzero_offset = "0",
       .first_bytes = "34 b8 60 00 00 01 40 02 20 00 00 00 13 88 00 00 74 b8 60 00 00 01 60 00",
       .decoded_total = "2",
       .decoded = {"0", "1", "0", "1"}},
      0);
}

// A sync word, a time base of 1000 ps and two tags of channel 2; channel 1 has
// no base.
TEST(ByteProbe, CountsAndDecodesDelta32) {
  const Bytes bytes{0,    0xEB, 0x5A, 0x55, 0xAA, 0xAA, 0, 0x03, 0xE8, 0xCA, 0, 0,   0,
                    0x54, 0,    0,    0x10, 0x34, 0,    0, 0x07, 0x54, 0,    0, 0x05};
  expect_probe(
      run_smoke_test(Script{.reads = {{.bytes = bytes}}}, probe_arguments({"format=delta32"})),
      {.port = "ftdi:// transport=usb format=delta32 mode=internal",
       .payload_bytes = "25",
       .nonzero_bytes = "14",
       .first_nonzero_offset = "1",
       .first_bytes = "00 eb 5a 55 aa aa 00 03 e8 ca 00 00 00 54 00 00 10 34 00 00 07 54 00 00 05",
       .decoded_total = "2",
       .decoded = {"0", "0", "2", "0"}},
      0);
}

// Asked for 16 bits the device takes 13, so that a record has two bytes: a sync
// of four chunks and a tag on channels 2 and 3, and a tag on each.
Script packed_device() {
  return {.accepted_packed = {{13, 8}},
          .reads = {{.bytes = {0xBF, 0xFF, 0x83, 0xE8, 0x80, 0,    0x80, 0,   0x80, 0,
                               0x80, 0,    0xFF, 0xFF, 0xC3, 0xF4, 0xC0, 0,   0xC0, 0,
                               0xC0, 0,    0xC0, 0,    0x84, 0x65, 0xC4, 0x65}}}};
}

const ExpectedProbe packed_report{
    .port = "ftdi:// transport=usb format=packed_delta mode=internal",
    .payload_bytes = "28",
    .nonzero_bytes = "20",
    .first_nonzero_offset = "0",
    .first_bytes =
        "bf ff 83 e8 80 00 80 00 80 00 80 00 ff ff c3 f4 c0 00 c0 00 c0 00 c0 00 "
        "84 65 c4 65",
    .decoded_total = "4",
    .decoded = {"0", "0", "2", "2"}};

TEST(ByteProbe, CountsAndDecodesPackedDeltaAfterTheWholeSetUp) {
  const SmokeTestResult result = run_smoke_test(packed_device(), probe_arguments());
  expect_probe(result, packed_report, 0);
  EXPECT_THAT(scripted_device::without_timeouts(result.calls),
              ElementsAreArray(default_set_up_then(
                  {"qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=28",
                   "qx_stop_stream_mode flag=true -> 0", "qx_close"})));
}

TEST(ByteProbe, ExplainsItsLockWhenAskedTo) {
  SmokeTest test(packed_device(), probe_arguments());
  test.program().environment["ZELK_PACKED_DEBUG"] = "1";
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.output, packed_report.text());
  EXPECT_EQ(result.error,
            "packed-decoder: locked bits=13 drop_bytes=0 bit_offset=0 raw_bytes=28\n");
  EXPECT_EQ(result.exit_status, 0);
}

TEST(ByteProbe, RetriesTimeoutsAndEmptyReads) {
  const Script device = raw64_device(three_tags);
  const Bytes& bytes = device.reads.front().bytes;
  const Script script{.reads = {{.bytes = {}, .status = -3},
                                {.bytes = {bytes.begin(), bytes.begin() + 3}},
                                {.bytes = {}},
                                {.bytes = {}, .status = -3},
                                {.bytes = {bytes.begin() + 3, bytes.begin() + 21}},
                                {.bytes = {}},
                                {.bytes = {bytes.begin() + 21, bytes.end()}}}};
  const SmokeTestResult result = run_smoke_test(script, raw64_probe_arguments());
  expect_probe(result, three_tags_report, 0);
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                          "qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=3",
                          "qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=0",
                          "qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=18",
                          "qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=0",
                          "qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=3",
                          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

TEST(ByteProbe, PausesAMillisecondAfterEveryEmptyRead) {
  for (const qx_status status : {0, -3}) {
    const Script script{.forever = {.bytes = {}, .status = status, .delay_ms = 0}};
    const SmokeTestResult result = run_smoke_test(script, raw64_probe_arguments());
    expect_probe(result, {}, 1);
    const auto reads = std::ranges::count_if(result.calls, [](const std::string& call) {
      return call.starts_with("qx_read_stream_bytes ");
    });
    EXPECT_GT(reads, 1);
    EXPECT_LE(reads, 1000);  // of the one second
  }
}

TEST(ByteProbe, BytesOfATimeoutAreNone) {
  const Script script{.reads = {{.bytes = {1, 2, 3}, .status = -3}}};
  expect_probe(run_smoke_test(script, raw64_probe_arguments()), {}, 1);
}

TEST(ByteProbe, PrintsTheFirstHundredAndTwentyEightBytes) {
  Bytes bytes;
  for (unsigned i = 1; i <= 300; ++i) {
    bytes.push_back(static_cast<std::uint8_t>(i <= 200 ? i : 0xEE));
  }
  const ExpectedProbe expected{.payload_bytes = "300",
                               .nonzero_bytes = "300",
                               .first_nonzero_offset = "0",
                               .first_bytes =
                                   "01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 "
                                   "11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f 20 "
                                   "21 22 23 24 25 26 27 28 29 2a 2b 2c 2d 2e 2f 30 "
                                   "31 32 33 34 35 36 37 38 39 3a 3b 3c 3d 3e 3f 40 "
                                   "41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 "
                                   "51 52 53 54 55 56 57 58 59 5a 5b 5c 5d 5e 5f 60 "
                                   "61 62 63 64 65 66 67 68 69 6a 6b 6c 6d 6e 6f 70 "
                                   "71 72 73 74 75 76 77 78 79 7a 7b 7c 7d 7e 7f 80"};
  expect_probe(run_smoke_test(Script{.reads = {{.bytes = bytes}}}, raw64_probe_arguments()),
               expected, 0);
  const Script in_three_reads{.reads = {{.bytes = {bytes.begin(), bytes.begin() + 127}},
                                        {.bytes = {bytes.begin() + 127, bytes.begin() + 129}},
                                        {.bytes = {bytes.begin() + 129, bytes.end()}}}};
  expect_probe(run_smoke_test(in_three_reads, raw64_probe_arguments()), expected, 0);
}

TEST(ByteProbe, ZeroBytesAreASignOfLifeButHaveNoNonzeroOffset) {
  const Script script{.reads = {{.bytes = Bytes(300)}}};
  for (const char* format : {"packed_delta", "delta32"}) {
    expect_probe(run_smoke_test(script, probe_arguments({std::string("format=") + format})),
                 {.port = std::string("ftdi:// transport=usb format=") + format + " mode=internal",
                  .payload_bytes = "300",
                  .first_bytes = hex_bytes(128, "00")},
                 0);
  }
}

TEST(ByteProbe, ASingleZeroByteIsASignOfLife) {
  expect_probe(run_smoke_test(Script{.reads = {{.bytes = {0}}}}, raw64_probe_arguments()),
               {.payload_bytes = "1", .first_bytes = "00"}, 0);
}

// Eight zero bytes are channel 0 at 0 ps.
TEST(ByteProbe, ZeroBytesAreTagsInRaw64) {
  expect_probe(run_smoke_test(Script{.reads = {{.bytes = Bytes(25)}}}, raw64_probe_arguments()),
               {.payload_bytes = "25",
                .first_bytes = hex_bytes(25, "00"),
                .decoded_total = "3",
                .decoded = {"3", "0", "0", "0"}},
               0);
}

TEST(ByteProbe, FirstNonzeroOffsetCountsTheReadsBefore) {
  const Script script{.reads = {{.bytes = Bytes(5)},
                                {.bytes = {}, .status = -3},
                                {.bytes = {0, 0, 7, 0}},
                                {.bytes = {9}}}};
  expect_probe(run_smoke_test(script, probe_arguments({"format=delta32"})),
               {.port = "ftdi:// transport=usb format=delta32 mode=internal",
                .payload_bytes = "10",
                .nonzero_bytes = "2",
                .first_nonzero_offset = "7",
                .first_bytes = "00 00 00 00 00 00 00 07 00 09"},
               0);
}

TEST(ByteProbe, MoreBytesThanOneReadTakesAreAllCounted) {
  Bytes bytes(70'000);
  bytes[65'540] = 1;
  const SmokeTestResult result =
      run_smoke_test(Script{.reads = {{.bytes = bytes}}}, probe_arguments({"format=delta32"}));
  expect_probe(result,
               {.port = "ftdi:// transport=usb format=delta32 mode=internal",
                .payload_bytes = "70000",
                .nonzero_bytes = "1",
                .first_nonzero_offset = "65540",
                .first_bytes = hex_bytes(128, "00")},
               0);
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=0 flags=0 -> 0",
                          "qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=65536",
                          "qx_read_stream_bytes capacity=65536 timeout=20 -> 0 received=4464",
                          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

TEST(ByteProbe, SilentDeviceGivesAReportOfZerosAndStatusOneAfterTheWholeTime) {
  const auto start = std::chrono::steady_clock::now();
  const SmokeTestResult result = run_smoke_test({}, probe_arguments());
  expect_probe(result, {.port = "ftdi:// transport=usb format=packed_delta mode=internal"}, 1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 500ms);
}

TEST(ByteProbe, NoTimeMeansNoReadButAReport) {
  for (const char* none : {"capture_s=0", "capture_s=-1", "capture_s=nan"}) {
    const SmokeTestResult result =
        run_smoke_test(raw64_device(three_tags), raw64_probe_arguments({none}));
    expect_probe(result, {}, 1);
    const std::vector<std::string> end(result.calls.end() - 3, result.calls.end());
    EXPECT_THAT(end, ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                                 "qx_stop_stream_mode flag=true -> 0", "qx_close"));
  }
}

TEST(ByteProbe, FollowsTheLineOnAReferenceThatCannotBeControlled) {
  Script script = raw64_device(three_tags);
  script.statuses["qx_set_reference_clock"] = {-7};
  ExpectedProbe expected = three_tags_report;
  expected.reference_line = "reference_clock_control=unavailable; fixed_internal_clock_assumed=1\n";
  expect_probe(run_smoke_test(script, raw64_probe_arguments()), expected, 0);
}

// The pair's channels saw no tag and no coincidence, which would fail a capture.
TEST(ByteProbe, StatusDoesNotDependOnTheChannelPair) {
  expect_probe(run_smoke_test(raw64_device(three_tags),
                              raw64_probe_arguments({"channel_a=2", "channel_b=0"})),
               three_tags_report, 0);
}

}  // namespace
}  // namespace zelk::test_support
