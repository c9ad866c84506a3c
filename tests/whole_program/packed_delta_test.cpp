// Captures in the default format, packed_delta: small hand-built streams of
// channels 2 and 3, in both modes, and the decoder's lines on standard error.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/timing/packed_stream_builder.hpp"
#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using scripted_device::Script;
using testing::ElementsAreArray;

// The name of the format is left to the program.
std::vector<std::string> packed_arguments(const std::string& mode) {
  return {"mode=" + mode, "channel_a=2", "channel_b=3", capture};
}

std::string packed_port(const std::string& mode) {
  return "ftdi:// transport=usb format=packed_delta mode=" + mode;
}

// A run with ZELK_PACKED_DEBUG at this value, or without it.
SmokeTestResult run_packed(const Script& script, const std::string& mode,
                           const std::optional<std::string>& debug) {
  SmokeTest test(script, packed_arguments(mode));
  if (debug) {
    test.program().environment["ZELK_PACKED_DEBUG"] = *debug;
  }
  return test.run();
}

// The report does not depend on the debug switch, and the lines need it.
void expect_packed(const Script& script, const std::string& mode, const ExpectedReport& expected,
                   const std::string& lines, int exit_status) {
  expect_report(run_packed(script, mode, {}), expected, exit_status);
  const SmokeTestResult explained = run_packed(script, mode, "1");
  EXPECT_EQ(explained.output, expected.text());
  EXPECT_EQ(explained.error, lines);
  EXPECT_EQ(explained.exit_status, exit_status);
}

// Pairs at 1000, 5000 and 12000 ps on channel 2, and 100 ps later on channel 3.
// In ticks of 4 ps: a sync and a tag at 250 and 275, steps of 3 x 256 + 232,
// then a sync at 3000 but a step of 6 x 256 + 214 on channel 3.
Bytes three_pairs() {
  PackedStreamBuilder stream(8);
  stream.synced_tag(2, 250, 0).synced_tag(3, 275, 0);
  stream.overflow(2, 3).tag(2, 232).overflow(3, 3).tag(3, 232);
  stream.synced_tag(2, 3000, 0).overflow(3, 6).tag(3, 214);
  return stream.bytes();
}

ExpectedReport three_pairs_report(const std::string& mode) {
  return {.port = packed_port(mode),
          .tags_total = "6",
          .counts = {"0", "0", "3", "3"},
          .coincidences = "3",
          .offset = "100",
          .peak_count = "3",
          .peak_center = "0",
          .top_bins = "0:3,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0,-936:0",
          .min_dt = "0,0,4000,4000",
          .below_10ns = "0,0,2,2",
          .below_100ns = "0,0,2,2",
          .below_500ns = "0,0,2,2",
          .below_900ns = "0,0,2,2",
          .residues =
              {{{}, {}, {"3", "0", "1000:1,1667:1,2001:1"}, {"3", "0", "1100:1,1767:1,2101:1"}}},
          .bins = {"ch0=0 ch1=0 ch2=3 ch3=3"}};
}

// Asked for 16 bits of 8 ps, the device takes 8 bits of 4 ps.
TEST(PackedCapture, IsDecodedWithTheAcceptedPairInExternalMode) {
  expect_packed(Script{.accepted_packed = {{8, 4}}, .reads = {{.bytes = three_pairs()}}},
                "external", three_pairs_report("external"),
                "packed-decoder: locked bits=8 drop_bytes=0 bit_offset=0 raw_bytes=42\n", 0);
}

TEST(PackedCapture, IsDecodedWithTheAcceptedPairInInternalMode) {
  ExpectedReport expected = three_pairs_report("internal");
  expected.ref_active = "1 divider=30003";
  expect_packed(
      Script{.accepted_packed = {{8, 4}}, .divider = 30'003, .reads = {{.bytes = three_pairs()}}},
      "internal", expected,
      "packed-decoder: locked bits=8 drop_bytes=0 bit_offset=0 raw_bytes=42\n", 0);
}

TEST(PackedCapture, AsksForTheDefaultPairAndReadsInChunks) {
  const SmokeTestResult result = run_packed(
      Script{.accepted_packed = {{8, 4}}, .reads = {{.bytes = three_pairs()}}}, "internal", {});
  EXPECT_THAT(scripted_device::without_timeouts(result.calls),
              ElementsAreArray(default_set_up_then(
                  {"qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=42",
                   "qx_stop_stream_mode flag=true -> 0", "qx_close"})));
}

TEST(PackedCapture, IsExplainedWhateverTheSwitchIsSetTo) {
  for (const char* value : {"", "0", "off"}) {
    const SmokeTestResult result =
        run_packed(Script{.accepted_packed = {{8, 4}}, .reads = {{.bytes = three_pairs()}}},
                   "external", value);
    EXPECT_EQ(result.output, three_pairs_report("external").text());
    EXPECT_EQ(result.error,
              "packed-decoder: locked bits=8 drop_bytes=0 bit_offset=0 raw_bytes=42\n");
  }
}

// In ticks of 8 ps, 1000 + 1125 k for k from 0 to 6: pairs at 8000 + 9000 k ps
// on channel 2, and 96 ps later on channel 3. The first bit of the tag with
// k = 3 on channel 2 is missing.
Bytes slipped_stream() {
  PackedStreamBuilder stream(16);
  stream.synced_tag(2, 1000, 0).synced_tag(3, 1012, 0);
  for (int k = 1; k <= 2; ++k) {
    stream.tag(2, 1125).tag(3, 1125);
  }
  stream.raw_bits(1125, 18).tag(3, 1125);
  stream.synced_tag(2, 5500, 0).synced_tag(3, 5512, 0);
  for (int k = 5; k <= 6; ++k) {
    stream.tag(2, 1125).tag(3, 1125);
  }
  return stream.bytes();
}

// The second read brings the slip, and the third one the next search. The pair
// with k = 3 is lost: channel 2's record reads as one of channel 0, which costs
// the lock, and channel 3's comes before a new sync.
//
// The second read completes the records 12 to 15 of the stream, of which the
// third, at bit 266, is the slipped one. Behind it the stream goes on at bit
// 285, in byte 35; the next true record is that at bit 284, 37 bytes before the
// end.
TEST(PackedCapture, SlippedBitCostsTheTagsUpToTheNextSyncs) {
  const Bytes bytes = slipped_stream();
  ASSERT_EQ(bytes.size(), 72U);
  const Script script{.reads = {{.bytes = {bytes.begin(), bytes.begin() + 29}},
                                {.bytes = {bytes.begin() + 29, bytes.begin() + 40}},
                                {.bytes = {bytes.begin() + 40, bytes.end()}}}};
  for (const char* mode : {"internal", "external"}) {
    expect_packed(
        script, mode,
        {.port = packed_port(mode),
         .tags_total = "12",
         .counts = {"0", "0", "6", "6"},
         .coincidences = "6",
         .offset = "96",
         .peak_count = "6",
         .peak_center = "0",
         .top_bins = "0:6,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0,-936:0",
         .min_dt = "0,0,9000,9000",
         .below_10ns = "0,0,4,4",
         .below_100ns = "0,0,5,5",
         .below_500ns = "0,0,5,5",
         .below_900ns = "0,0,5,5",
         .residues = {{{},
                       {},
                       {"6", "0", "335:1,671:1,1334:1,2006:1,2669:1,3005:1"},
                       {"6", "0", "431:1,767:1,1430:1,2102:1,2765:1,3101:1"}}},
         .bins = {"ch0=0 ch1=0 ch2=6 ch3=6"}},
        "packed-decoder: locked bits=16 drop_bytes=0 bit_offset=0 raw_bytes=29\n"
        "packed-decoder: drop inactive ch=0 active_mask=0xc record=2 records=4\n"
        "packed-decoder: locked bits=16 drop_bytes=0 bit_offset=4 raw_bytes=37\n",
        0);
  }
}

// A pair at 8000 ps, and one 1.25 s later, which is longer than the internal
// source may pause.
Bytes stream_with_a_long_pause() {
  constexpr std::uint64_t pause = 156'250'000'000;  // ticks
  PackedStreamBuilder stream(16);
  stream.synced_tag(2, 1000, 0).synced_tag(3, 1012, 0);
  stream.synced_tag(2, 1000 + pause, 0).synced_tag(3, 1012 + pause, 0);
  return stream.bytes();
}

TEST(PackedCapture, PauseOfMoreThanASecondIsASignalsInExternalMode) {
  ExpectedReport expected{
      .port = packed_port("external"),
      .tags_total = "4",
      .counts = {"0", "0", "2", "2"},
      .coincidences = "2",
      .offset = "96",
      .peak_count = "2",
      .peak_center = "0",
      .top_bins = "0:2,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0,-936:0",
      .max_gap_ms = "0.000,0.000,1250.000,1250.000",
      .min_dt = "0,0,1250000000000,1250000000000",
      .residues = {{{}, {}, {"2", "0", "502:1,1334:1"}, {"2", "0", "598:1,1430:1"}}},
      .bins = std::vector<std::string>(13, "ch0=0 ch1=0 ch2=0 ch3=0")};
  expected.bins.front() = expected.bins.back() = "ch0=0 ch1=0 ch2=1 ch3=1";
  expect_packed(Script{.reads = {{.bytes = stream_with_a_long_pause()}}}, "external", expected,
                "packed-decoder: locked bits=16 drop_bytes=0 bit_offset=0 raw_bytes=48\n", 0);
}

TEST(PackedCapture, PauseOfMoreThanASecondCostsTheLockInInternalMode) {
  expect_packed(
      Script{.reads = {{.bytes = stream_with_a_long_pause()}}}, "internal",
      {.port = packed_port("internal"),
       .tags_total = "2",
       .counts = {"0", "0", "1", "1"},
       .coincidences = "1",
       .offset = "96",
       .peak_count = "1",
       .peak_center = "0",
       .top_bins = "0:1,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0,-936:0",
       .residues = {{{}, {}, {"1", "0", "1334:1"}, {"1", "0", "1430:1"}}},
       .bins = {"ch0=0 ch1=0 ch2=1 ch3=1"}},
      "packed-decoder: locked bits=16 drop_bytes=0 bit_offset=0 raw_bytes=48\n"
      "packed-decoder: drop implausible sync delta ch=2 delta=1250000000000 next=1250000008000 "
      "prev=8000 record=14\n",
      0);
}

// Five tags 9000 ps apart on channel 2 and two on channel 3, whose second one
// comes last.
Bytes unbalanced_stream() {
  PackedStreamBuilder stream(16);
  stream.synced_tag(2, 1000, 0).synced_tag(3, 1012, 0);
  stream.tags(2, 4, 1125).tag(3, 1125);
  return stream.bytes();
}

TEST(PackedCapture, ChannelsNeedNoBalanceInExternalMode) {
  expect_packed(
      Script{.reads = {{.bytes = unbalanced_stream()}}}, "external",
      {.port = packed_port("external"),
       .tags_total = "7",
       .counts = {"0", "0", "5", "2"},
       .coincidences = "2",
       .offset = "96",
       .peak_count = "2",
       .peak_center = "0",
       .top_bins = "0:2,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0,-936:0",
       .min_dt = "0,0,9000,9000",
       .below_10ns = "0,0,4,1",
       .below_100ns = "0,0,4,1",
       .below_500ns = "0,0,4,1",
       .below_900ns = "0,0,4,1",
       .residues =
           {{{}, {}, {"5", "0", "335:1,671:1,1334:1,1670:1,2669:1"}, {"2", "0", "431:1,1430:1"}}},
       .bins = {"ch0=0 ch1=0 ch2=5 ch3=2"}},
      "packed-decoder: locked bits=16 drop_bytes=0 bit_offset=0 raw_bytes=36\n", 0);
}

TEST(PackedCapture, UnbalancedChannelsGiveNoLockInInternalMode) {
  expect_packed(Script{.reads = {{.bytes = unbalanced_stream()}}}, "internal",
                {.port = packed_port("internal")},
                "packed-decoder: reject internal alignment drop_bytes=0 bit_offset=0 synced=2/2 "
                "min=2 max=5 total=7\n",
                3);
}

TEST(PackedCapture, BytesWithoutAnySyncAreNoTags) {
  expect_packed(Script{.reads = {{.bytes = Bytes(4095)}, {.bytes = Bytes(1)}}}, "external",
                {.port = packed_port("external")},
                "packed-decoder: no alignment bits=16 width=19 raw_bytes=4096\n", 3);
}

}  // namespace
}  // namespace zelk::test_support
