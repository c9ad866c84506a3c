// Limits that a run is asked to meet, and the amount of tags that it is asked for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Two coincidences on channels 0 and 1, which are the mask.
const std::vector<Tag> two_pairs{{0, 1'000}, {1, 1'100}, {0, 9'000'000}, {1, 9'000'100}};

// A capture that ends with the last of them, however late it comes.
std::vector<std::string> until_the_last_tag(std::vector<std::string> more, const char* count) {
  more.insert(more.begin(), {"format=raw64", "mode=external", "channel_mask=3", "capture_s=20",
                             std::string("stop_tags=") + count});
  return more;
}

SmokeTestResult run_two_pairs(std::vector<std::string> more) {
  return run_smoke_test(raw64_device(two_pairs), until_the_last_tag(std::move(more), "4"));
}

TEST(LimitsOfARun, ThatAreMetChangeNothing) {
  const SmokeTestResult without = run_two_pairs({});
  const SmokeTestResult with = run_two_pairs({"require=coincidences>=2,reader_dropped=0,ch0=2"});
  EXPECT_EQ(with.output, without.output);
  EXPECT_EQ(with.error, "");
  EXPECT_EQ(with.exit_status, 0);
}

TEST(LimitsOfARun, ThatAreNotMetGiveALineEachAndStatus4) {
  const SmokeTestResult without = run_two_pairs({});
  const SmokeTestResult with =
      run_two_pairs({"require=coincidences>=4000,ch0=2", "--REQUIRE=rate_hz>=200000"});
  EXPECT_EQ(with.output, without.output);
  // One step in 8,999,000 ps on either channel: 111123.458... Hz.
  EXPECT_EQ(with.error,
            "not met: coincidences>=4000 (2)\n"
            "not met: rate_hz>=200000 (channel 0: 111123.458, channel 1: 111123.458)\n");
  EXPECT_EQ(with.exit_status, 4);
}

TEST(LimitsOfARun, OfAFileComeAfterTheOthers) {
  SmokeTest test(raw64_device(two_pairs),
                 until_the_last_tag({"limits=l.txt", "require=coincidences<1"}, "4"));
  std::ofstream(test.program().directory / "l.txt") << "# limits\nch1 > 2 # more\n";
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.error, "not met: coincidences<1 (2)\nnot met: ch1 > 2 (2)\n");
  EXPECT_EQ(result.exit_status, 4);
}

TEST(LimitsOfARun, NotMetLeaveAnotherStatusAsItIs) {
  const SmokeTestResult result = run_smoke_test(
      raw64_device({{0, 1'000}}), until_the_last_tag({"require=coincidences>0"}, "1"));
  EXPECT_EQ(result.error, "not met: coincidences>0 (0)\n");
  EXPECT_EQ(result.exit_status, 3);
}

TEST(LimitsOfARun, WithoutPairsThereIsNoCorrelation) {
  const SmokeTestResult result =
      run_smoke_test(raw64_device({{0, 1'000}}),
                     until_the_last_tag({"require=xcorr_offset_ps=0,xcorr_rms_ps<9"}, "1"));
  EXPECT_EQ(result.error,
            "not met: xcorr_offset_ps=0 (not available)\n"
            "not met: xcorr_rms_ps<9 (not available)\n");
  EXPECT_EQ(result.exit_status, 3);
}

TEST(LimitsOfARun, AClockThatCannotBeControlledMeetsNoLimit) {
  scripted_device::Script script = raw64_device(two_pairs);
  script.statuses["qx_set_reference_clock"] = {-7};
  const SmokeTestResult result =
      run_smoke_test(script, until_the_last_tag({"require=ref_fallback=0"}, "4"));
  EXPECT_EQ(result.error, "not met: ref_fallback=0 (not available)\n");
  EXPECT_EQ(result.exit_status, 4);
}

void expect_refused(const std::vector<std::string>& arguments, const std::string& line) {
  const SmokeTestResult result = run_smoke_test(raw64_device(two_pairs), arguments);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.error, line + "\n");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.calls, IsEmpty());
}

TEST(LimitsOfARun, ThatCannotBeReadAreRefusedBeforeTheDeviceIsOpened) {
  expect_refused({"require=coincidences>=1,coincidence>=5"},
                 "cannot read the condition \"coincidence>=5\": no figure is called "
                 "\"coincidence\"; did you mean coincidences?");
  expect_refused({"require="},
                 "cannot read the condition \"\": it needs one of = < <= > >= behind a figure, "
                 "and a number");
  expect_refused({"limits=none.txt"}, "cannot read the limits file none.txt");
}

TEST(LimitsOfARun, OfAFileThatCannotBeReadAreRefusedByTheirLine) {
  SmokeTest test(raw64_device(two_pairs), {"limits=l.txt"});
  std::ofstream(test.program().directory / "l.txt") << "ch0>1\nch1>\n";
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.error, "l.txt:2: cannot read the condition \"ch1>\": \"\" is no number\n");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.calls, IsEmpty());
}

TEST(LimitsOfARun, TogetherWithTheByteProbeAreRefused) {
  expect_refused({"require=ch0>1", "byte_probe=1"},
                 "require and limits judge the report, which byte_probe=1 replaces");
  expect_refused({"bytes=1", "limits=l.txt"},
                 "require and limits judge the report, which byte_probe=1 replaces");
}

// Ten tags on channels 0 and 1, a microsecond apart.
std::vector<Tag> ten_tags() {
  std::vector<Tag> tags;
  for (unsigned i = 0; i < 10; ++i) {
    tags.push_back({i % 2, 1'000'000ULL * i});
  }
  return tags;
}

TEST(StopTags, EndTheCaptureAfterExactlyAsMany) {
  const SmokeTestResult result = run_smoke_test(
      raw64_device(ten_tags()), {"format=raw64", "mode=external", "capture_s=20", "stop_tags=7"});
  EXPECT_THAT(result.output, HasSubstr("\ntags_total=7\nch0=4\nch1=3\nch2=0\n"));
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_LT(result.duration, std::chrono::seconds(15));
  EXPECT_THAT(calls_from_start(result),
              ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0", HasSubstr("received=80"),
                          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

TEST(StopTags, OfMoreThanThereAreLeaveTheEndToTheTime) {
  const SmokeTestResult result = run_smoke_test(
      raw64_device(ten_tags()), {"format=raw64", "mode=external", "capture_s=1", "stop_tags=11"});
  EXPECT_THAT(result.output, HasSubstr("\ntags_total=10\n"));
  EXPECT_GE(result.duration, std::chrono::seconds(1));
}

TEST(StopTags, OfNoneLeaveTheEndToTheTime) {
  const SmokeTestResult result = run_smoke_test(
      raw64_device(ten_tags()), {"format=raw64", "mode=external", "capture_s=1", "stop_tags=0"});
  EXPECT_THAT(result.output, HasSubstr("\ntags_total=10\n"));
  EXPECT_GE(result.duration, std::chrono::seconds(1));
}

// Reads that go on: the tags of the last one are not all counted.
TEST(StopTags, CutTheBatchInWhichTheyEnd) {
  Bytes bytes;
  for (unsigned i = 0; i < 100'000; ++i) {
    append_big_endian(bytes, ps_record(2, i), 8);
  }
  const SmokeTestResult result =
      run_smoke_test({.reads = {{.bytes = std::move(bytes)}}},
                     {"format=raw64", "mode=external", "capture_s=20", "stop_tags=65537"});
  EXPECT_THAT(result.output, HasSubstr("\ntags_total=65537\n"));
  EXPECT_LT(result.duration, std::chrono::seconds(15));
}

}  // namespace
}  // namespace zelk::test_support
