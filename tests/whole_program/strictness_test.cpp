// Arguments that are not taken as they are written: without a word, with a note
// for whoever watches, or refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using testing::Contains;
using testing::IsEmpty;

void expect_refused(std::vector<std::string> arguments, const std::string& line) {
  const SmokeTestResult result = run_smoke_test({}, std::move(arguments));
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, line + "\n");
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.calls, IsEmpty());
}

SmokeTestResult silent_unit_on_terminal(std::vector<std::string> arguments) {
  return run_on_terminal({}, std::move(arguments));
}

// One of every kind of mistake, none of which ends a lenient run.
const std::vector<std::string> mistakes{
    "chanel_mask=3", "byte_probe",        "capture_s=0ms", "mode=extrenal",       "channel_mask=20",
    "ref=gps",       "load_calibration=", "bin_s=0",       "packed_quantum_ps=-1"};

TEST(StrictRun, IsRefusedAtEachMistake) {
  for (const auto& [argument, line] : std::vector<std::pair<std::string, std::string>>{
           {"chanel_mask=3", "chanel_mask is unknown; did you mean channel_mask?"},
           {"byte_probe", "byte_probe has no \"=\"; write byte_probe=VALUE; allowed are 1 and 0"},
           {"capture_s=500ms",
            "capture_s=500ms: \"ms\" stands behind the number; allowed is a number of s"},
           {"mode=extrenal",
            "mode=extrenal is none of its words; allowed are internal and external"},
           {"channel_mask=16", "channel_mask=16 would be read as 0x00; allowed is 0 to 0x0F"},
           {"packed_bits=300",
            "packed_bits=300 would be read as 44 bits; allowed is a whole decimal number of bits, "
            "0 to 255"},
           {"queue_limit=-1",
            "queue_limit=-1 would be read as 18446744073709551615 tags; allowed is a whole "
            "decimal number of tags, at least 1024"},
           {"capture_s=abc", "capture_s=abc cannot be read; allowed is a number of s"}}) {
    expect_refused({"strict=1", argument}, line);
  }
}

TEST(StrictRun, IsRefusedWhereverItIsAskedFor) {
  const std::string line = "chanel_mask is unknown; did you mean channel_mask?";
  expect_refused({"chanel_mask=3", "strict=1"}, line);
  expect_refused({"strict=0", "chanel_mask=3", "--STRICT=yes"}, line);
}

TEST(StrictRun, IsRefusedAtTheFirstMistakeInTheOrderOfTheArguments) {
  expect_refused({"mode=extrenal", "strict=1", "capture_s=abc"},
                 "mode=extrenal is none of its words; allowed are internal and external");
  expect_refused({"capture_s=abc", "mode=extrenal", "strict=1"},
                 "capture_s=abc cannot be read; allowed is a number of s");
  expect_refused({"format=raw32", "mode=extrenal", "strict=1"},
                 "format must be raw64, delta32, or packed_delta");
}

TEST(StrictRun, IsRefusedInTheSameWordsOnATerminal) {
  const SmokeTestResult result = silent_unit_on_terminal({"capture_s=abc", "strict=1"});
  EXPECT_EQ(result.error, "capture_s=abc cannot be read; allowed is a number of s\n");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.calls, IsEmpty());
}

TEST(StrictRun, WritesControlCharactersOut) {
  expect_refused(
      {"strict=1", "capture_s=5\r\n"},
      "capture_s=5\\r\\n: \"\\r\\n\" stands behind the number; allowed is a number of s");
}

TEST(StrictRun, GoesByArgumentsThatAreTakenAsTheyAreWritten) {
  const std::vector<std::string> arguments{
      "--CAPTURE_S= +0", "channel_mask=0x3",    "dead_time_ps=-1",
      "threshold_v=nan", "port=sim://5ms",      "mode=ext",
      "channel_a=0",     "load_calibration=no", "queue_limit=1024"};
  const SmokeTestResult lenient = run_smoke_test({}, arguments);
  std::vector<std::string> with_strict = arguments;
  with_strict.emplace_back("strict=1");
  const SmokeTestResult strict = run_smoke_test({}, with_strict);
  EXPECT_EQ(strict.error, "");
  EXPECT_EQ(strict.exit_status, 3);
  EXPECT_EQ(strict.output, lenient.output);
  EXPECT_EQ(scripted_device::without_reads(strict.calls),
            scripted_device::without_reads(lenient.calls));
}

TEST(StrictRun, StillChecksThePairOfChannels) {
  expect_refused({"channel_b=4", "strict=1"}, "channel_a/channel_b must be distinct and in 0..3");
}

TEST(LenientRun, SaysNothingWithoutATerminal) {
  std::vector<std::string> arguments = mistakes;
  arguments.emplace_back("strict=0");
  const SmokeTestResult result = run_smoke_test({}, arguments);
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_THAT(result.calls, Contains("qx_set_stream_channel_mask mask=04 -> 0"));
}

// The line that ends every run on a terminal, here of a capture of no length.
constexpr const char* verdict = "FAIL: no channel saw tags: capture_s leaves no time for any\n";

TEST(LenientRun, NotesEachMistakeOnATerminal) {
  const SmokeTestResult result = silent_unit_on_terminal(mistakes);
  EXPECT_EQ(result.error,
            "note: chanel_mask is unknown; did you mean channel_mask?\n"
            "note: byte_probe has no \"=\"; write byte_probe=VALUE; allowed are 1 and 0\n"
            "note: capture_s=0ms is read as 0 s\n"
            "note: mode=extrenal is read as internal; allowed are internal and external\n"
            "note: channel_mask=20 is read as 0x04; allowed is 0 to 0x0F\n"
            "note: ref=gps is read as internal; allowed are internal, external, auto and none\n"
            "note: load_calibration= is read as 1; allowed are 1 and 0\n"
            "note: bin_s=0 is read as 0.001 s; allowed is a number of s, at least 0.001\n"
            "note: packed_quantum_ps=-1 is read as 65535 ps; allowed is a whole decimal number of "
            "ps, 0 to 65535\n" +
                std::string(verdict));
  EXPECT_EQ(result.exit_status, 3);
}

TEST(LenientRun, IsTheSameWithAndWithoutNotes) {
  const SmokeTestResult plain = run_smoke_test({}, mistakes);
  const SmokeTestResult noted = silent_unit_on_terminal(mistakes);
  EXPECT_EQ(noted.output, plain.output);
  EXPECT_EQ(noted.exit_status, plain.exit_status);
  EXPECT_EQ(scripted_device::without_reads(noted.calls),
            scripted_device::without_reads(plain.calls));
}

TEST(LenientRun, NotesNothingOnATerminalWhenAllIsTakenAsItIsWritten) {
  const SmokeTestResult result = silent_unit_on_terminal(
      {"capture_s=0", "channel_mask=3", "threshold_v=nan", "port=sim://5ms"});
  EXPECT_EQ(result.error, verdict);
  EXPECT_EQ(result.exit_status, 3);
}

TEST(LenientRun, NotesMistakesBeforeTheDeviceIsOpened) {
  SmokeTest test(scripted_device::Script{.statuses = {{"qx_open_serial", {-3}}}},
                 {"chanel_mask=3"});
  test.program().error_on_terminal = true;
  const SmokeTestResult result = test.run();
  EXPECT_THAT(result.error,
              testing::StartsWith("note: chanel_mask is unknown; did you mean channel_mask?\n"
                                  "open"));
  EXPECT_EQ(result.exit_status, 2);
}

TEST(FailedConversion, IsFollowedByANoteOnATerminal) {
  const SmokeTestResult result =
      silent_unit_on_terminal({"chanel_mask=3", "capture_s=abc", "mode=extrenal"});
  EXPECT_EQ(result.error,
            "note: chanel_mask is unknown; did you mean channel_mask?\n"
            "stod\n"
            "note: capture_s=abc cannot be read; allowed is a number of s\n");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.calls, IsEmpty());
}

TEST(FailedConversion, IsNamedWithoutATerminal) {
  expect_refused({"chanel_mask=3", "capture_s=abc"}, "stod");
}

TEST(RejectedWord, HasNoNoteOnATerminal) {
  const SmokeTestResult result = silent_unit_on_terminal({"format=raw32"});
  EXPECT_EQ(result.error, "format must be raw64, delta32, or packed_delta\n");
  EXPECT_EQ(result.exit_status, 2);
}

}  // namespace
}  // namespace zelk::test_support
