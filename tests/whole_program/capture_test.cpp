// The capture: which tags count, in which order things are stopped, what a
// failure on the way leaves behind, and the exit status.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/timing/packed_stream_builder.hpp"
#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using scripted_device::Script;
using testing::ElementsAre;

TEST(Capture, ReaderIsStoppedBeforeTheStreamAndTheStreamBeforeTheHandle) {
  const SmokeTestResult result =
      run_smoke_test(raw64_device({{0, 5000}, {1, 5100}}), raw64_arguments());
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=16",
                          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

TEST(Capture, SilentDeviceGivesAReportOfZerosAndStatusThree) {
  const SmokeTestResult result = run_smoke_test({}, raw64_arguments());
  expect_report(result, {}, 3);
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
  EXPECT_GE(result.duration.count(), 500);
}

TEST(Capture, ReadsWithoutBytesCountNothing) {
  expect_report(run_smoke_test(Script{.forever = {.bytes = {}, .status = 0, .delay_ms = 1}},
                               raw64_arguments()),
                {}, 3);
}

TEST(Capture, NoTimeMeansNoTagsButAReport) {
  for (const char* none : {"capture_s=0", "capture_s=-1", "capture_s=nan"}) {
    const SmokeTestResult result =
        run_smoke_test(raw64_device({{0, 5000}, {1, 5100}}), raw64_arguments({none}));
    expect_report(result, {}, 3);
    EXPECT_THAT(scripted_device::without_reads(calls_from_start(result)),
                ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                            "qx_stop_stream_mode flag=true -> 0", "qx_close"));
  }
}

TEST(Capture, MoreTagsThanOnePassTakesAreAllCounted) {
  constexpr unsigned tag_count = 70'000;
  std::vector<Tag> tags;
  for (unsigned i = 0; i < tag_count; ++i) {
    tags.push_back({2, 3333 * i});
  }
  const ExpectedReport expected{.tags_total = "70000",
                                .counts = {"0", "0", "70000", "0"},
                                .max_gap_ms = "0.000,0.000,0.000,0.000",
                                .min_dt = "0,0,3333,0",
                                .below_10ns = "0,0,69999,0",
                                .below_100ns = "0,0,69999,0",
                                .below_500ns = "0,0,69999,0",
                                .below_900ns = "0,0,69999,0",
                                .residues = {{{}, {}, {"1", "70000", "0:70000"}, {}}},
                                .bins = {"ch0=0 ch1=0 ch2=70000 ch3=0"}};
  const SmokeTestResult result =
      run_smoke_test(raw64_device(tags), raw64_arguments({"capture_s=1"}));
  expect_report(result, expected, 3);
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=262144",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=262144",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 received=35712",
                          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

// 1500 tags in one read against the least queue limit, 1024.
TEST(Capture, OldestTagsBeyondTheQueueLimitAreDroppedAndCounted) {
  std::vector<Tag> tags;
  for (unsigned i = 0; i < 1500; ++i) {
    tags.push_back({3, 3333 * i});
  }
  for (const char* limit : {"queue_limit=10", "queue_limit=0", "queue_limit=1024"}) {
    expect_report_of(tags, {limit},
                     {.tags_total = "1024",
                      .counts = {"0", "0", "0", "1024"},
                      .dropped = "476",
                      .min_dt = "0,0,0,3333",
                      .below_10ns = "0,0,0,1023",
                      .below_100ns = "0,0,0,1023",
                      .below_500ns = "0,0,0,1023",
                      .below_900ns = "0,0,0,1023",
                      .residues = {{{}, {}, {}, {"1", "1024", "0:1024"}}},
                      .bins = {"ch0=0 ch1=0 ch2=0 ch3=1024"}},
                     3);
  }
}

// Coarse count 10 with fine codes 2 and 181, then coarse count 0 with code 1:
// 33330 - 37, 33330 - 3332 and 0 - 19 ps.
TEST(Capture, InternalRaw64IsReadAsCoarseAndFineCounts) {
  const Script script{.reads = {{.bytes = big_endian_64({cf_record(0, 10, 2), cf_record(0, 10, 181),
                                                         ps_record(3, 77), cf_record(1, 0, 1)})}}};
  expect_report(run_smoke_test(script, {"format=raw64", capture}),
                {.port = "ftdi:// transport=usb format=raw64 mode=internal",
                 .tags_total = "3",
                 .counts = {"2", "1", "0", "0"},
                 .violations = "1,0,0,0",
                 .min_dt = "-3295,0,0,0",
                 .residues = {{{"2", "0", "1:1,3296:1"}, {"1", "0", "3314:1"}, {}, {}}},
                 .bins = {"ch0=2 ch1=1 ch2=0 ch3=0"}},
                3);
}

// A time base of 1000 ps, a tag on it, a base and a tag for channel 1, then a
// delta of 2^25 + 7 ps on channel 0; a tag of channel 2 has no base.
TEST(Capture, Delta32IsDecodedInEitherMode) {
  const Script script{
      .reads = {{.bytes = joined({d32_announce(1000), d32_step(0, 0), d32_announce(4000),
                                  d32_step(1, 1000), d32_step(0, 33'554'439), d32_step(2, 5)})}}};
  for (const char* mode : {"external", "internal"}) {
    expect_report(run_smoke_test(script, {"format=delta32", capture, "mode=" + std::string(mode)}),
                  {.port = "ftdi:// transport=usb format=delta32 mode=" + std::string(mode),
                   .tags_total = "3",
                   .counts = {"2", "1", "0", "0"},
                   .max_gap_ms = "0.034,0.000,0.000,0.000",
                   .min_dt = "33554439,0,0,0",
                   .residues = {{{"2", "0", "1000:1,2128:1"}, {"1", "0", "1667:1"}, {}, {}}},
                   .bins = {"ch0=2 ch1=1 ch2=0 ch3=0"}},
                  3);
  }
}

// Asked for 16 bits of 8 ps, the device takes 18 bits of 4 ps: a sync at 1000
// ticks, then 21 tags 250 ticks apart.
TEST(Capture, PackedDeltaIsDecodedWithThePairThatTheDeviceAccepted) {
  PackedStreamBuilder stream(18);
  stream.synced_tag(2, 1000, 250).tags(2, 20, 250);
  expect_report(
      run_smoke_test(Script{.accepted_packed = {{18, 4}}, .reads = {{.bytes = stream.bytes()}}},
                     {"mode=external", "channel_mask=4", capture}),
      {.port = "ftdi:// transport=usb format=packed_delta mode=external",
       .tags_total = "21",
       .counts = {"0", "0", "21", "0"},
       .min_dt = "0,0,1000,0",
       .below_10ns = "0,0,20,0",
       .below_100ns = "0,0,20,0",
       .below_500ns = "0,0,20,0",
       .below_900ns = "0,0,20,0",
       .residues = {{{}, {}, {"21", "0", "1:1,2:1,334:1,335:1,668:1,669:1,1001:1,1002:1"}, {}}},
       .bins = {"ch0=0 ch1=0 ch2=21 ch3=0"}},
      3);
}

TEST(Capture, RecordSplitOverReadsAndNoiseBeforeItAreNoLoss) {
  Bytes bytes{0xFF, 0x9F};
  append_big_endian(bytes, ps_record(1, 5000), 8);
  const Script script{.reads = {{.bytes = {bytes.begin(), bytes.begin() + 5}},
                                {.bytes = {}, .status = -3},
                                {.bytes = {bytes.begin() + 5, bytes.end()}}}};
  expect_report(run_smoke_test(script, raw64_arguments()),
                {.tags_total = "1",
                 .counts = {"0", "1", "0", "0"},
                 .residues = {{{}, {"1", "0", "1667:1"}, {}, {}}},
                 .bins = {"ch0=0 ch1=1 ch2=0 ch3=0"}},
                3);
}

TEST(ExitStatus, IsZeroForTagsOnBothChannelsAndACoincidence) {
  expect_report_of(
      {{0, 5000}, {1, 5100}}, {},
      {.tags_total = "2",
       .counts = {"1", "1", "0", "0"},
       .coincidences = "1",
       .offset = "100",
       .peak_count = "1",
       .peak_center = "0",
       .top_bins = "0:1,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0,-936:0",
       .residues = {{{"1", "0", "1667:1"}, {"1", "0", "1767:1"}, {}, {}}},
       .bins = {"ch0=1 ch1=1 ch2=0 ch3=0"}},
      0);
}

TEST(ExitStatus, IsThreeWithoutACoincidence) {
  expect_report_of({{0, 5000}, {1, 9000}}, {},
                   {.tags_total = "2",
                    .counts = {"1", "1", "0", "0"},
                    .residues = {{{"1", "0", "1667:1"}, {"1", "0", "2334:1"}, {}, {}}},
                    .bins = {"ch0=1 ch1=1 ch2=0 ch3=0"}},
                   3);
}

TEST(ExitStatus, IsThreeWithoutTagsOnEitherChannel) {
  expect_report_of({{0, 5000}}, {},
                   {.tags_total = "1",
                    .counts = {"1", "0", "0", "0"},
                    .residues = {{{"1", "0", "1667:1"}, {}, {}, {}}},
                    .bins = {"ch0=1 ch1=0 ch2=0 ch3=0"}},
                   3);
  expect_report_of({{1, 5000}}, {},
                   {.tags_total = "1",
                    .counts = {"0", "1", "0", "0"},
                    .residues = {{{}, {"1", "0", "1667:1"}, {}, {}}},
                    .bins = {"ch0=0 ch1=1 ch2=0 ch3=0"}},
                   3);
}

TEST(ExitStatus, LooksAtTheChosenPairOnly) {
  const std::vector<Tag> tags{{3, 10000}, {1, 10008}, {0, 1}, {2, 2}};
  const ExpectedReport expected{
      .tags_total = "4",
      .counts = {"1", "1", "1", "1"},
      .coincidences = "1",
      .offset = "8",
      .peak_count = "1",
      .peak_center = "0",
      .top_bins = "0:1,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0,-936:0",
      .residues = {{{"1", "0", "1:1"}, {"1", "0", "9:1"}, {"1", "0", "2:1"}, {"1", "0", "1:1"}}},
      .bins = {"ch0=1 ch1=1 ch2=1 ch3=1"}};
  expect_report_of(tags, {"channel_a=3", "channel_b=1"}, expected, 0);
}

}  // namespace
}  // namespace zelk::test_support
