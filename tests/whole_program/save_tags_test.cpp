// The captured tags in a file, whatever the run comes to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/parameter_names.hpp"
#include "tests/support/saved_tags.hpp"
#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using scripted_device::Script;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Two of them are earlier than the one before.
const std::vector<Tag> five_tags{{0, 1'000}, {1, 1'100}, {3, 900}, {0, 9'000'000}, {1, 8'999'999}};
const std::vector<SavedTag> five_rows{
    {0, 1'000}, {1, 1'100}, {3, 900}, {0, 9'000'000}, {1, 8'999'999}};
constexpr const char* five_lines =
    "channel,timestamp_ps\n0,1000\n1,1100\n3,900\n0,9000000\n1,8999999\n";

// A capture that ends with the last of them, however late it comes.
std::vector<std::string> until_the_last_tag(std::vector<std::string> more,
                                            const char* stop = "stop_tags=5") {
  more.insert(more.begin(), {"format=raw64", "mode=external", "capture_s=20", stop});
  return more;
}

// One that only a signal or a failure ends in time.
std::vector<std::string> endless(std::vector<std::string> more) {
  more.insert(more.begin(), {"format=raw64", "mode=external", "capture_s=60"});
  return more;
}

void expect_five_rows(const fs::path& file) {
  const SavedTags saved = read_npy(file);
  EXPECT_EQ(saved.told, 5U);
  EXPECT_EQ(saved.rows, five_rows);
  EXPECT_EQ(saved.bytes_after, 0U);
}

TEST(SaveTags, KeepsThemInArrivalOrder) {
  SmokeTest npy(raw64_device(five_tags), until_the_last_tag({"save_tags=t.npy"}));
  SmokeTest csv(raw64_device(five_tags), until_the_last_tag({"--SAVE_TAGS=t.csv"}));
  EXPECT_EQ(npy.run().exit_status, 0);
  EXPECT_EQ(csv.run().exit_status, 0);
  expect_five_rows(npy.program().directory / "t.npy");
  EXPECT_EQ(file_content(csv.program().directory / "t.csv"), five_lines);
}

TEST(SaveTags, ChangesNothingElse) {
  const SmokeTestResult without = run_smoke_test(raw64_device(five_tags), until_the_last_tag({}));
  for (const char* argument : {"save_tags=t.npy", "save_tags=t.csv"}) {
    const SmokeTestResult with =
        run_smoke_test(raw64_device(five_tags), until_the_last_tag({argument}));
    EXPECT_EQ(with.output, without.output);
    EXPECT_EQ(with.error, without.error);
    EXPECT_EQ(with.exit_status, without.exit_status);
    EXPECT_EQ(scripted_device::without_timeouts(with.calls),
              scripted_device::without_timeouts(without.calls));
  }
}

TEST(SaveTags, KeepsNoneButThoseOfTheReport) {
  SmokeTest test(raw64_device(five_tags), until_the_last_tag({"save_tags=t.npy"}, "stop_tags=3"));
  EXPECT_THAT(test.run().output, HasSubstr("\ntags_total=3\n"));
  const SavedTags saved = read_npy(test.program().directory / "t.npy");
  EXPECT_EQ(saved.told, 3U);
  EXPECT_THAT(saved.rows, ElementsAre(SavedTag{0, 1'000}, SavedTag{1, 1'100}, SavedTag{3, 900}));
}

// More than one batch of the queue, and the capture ends in the midst of the second.
TEST(SaveTags, KeepsThoseOfManyBatches) {
  Bytes bytes;
  std::vector<SavedTag> expected;
  for (unsigned i = 0; i < 100'000; ++i) {
    append_big_endian(bytes, ps_record(i % 3, 1'000ULL * i), 8);
    if (i < 70'001) {
      expected.emplace_back(i % 3, 1'000LL * i);
    }
  }
  SmokeTest test({.reads = {{.bytes = std::move(bytes)}}},
                 until_the_last_tag({"save_tags=t.npy"}, "stop_tags=70001"));
  EXPECT_THAT(test.run().output, HasSubstr("\ntags_total=70001\n"));
  const SavedTags saved = read_npy(test.program().directory / "t.npy");
  EXPECT_EQ(saved.told, 70'001U);
  EXPECT_TRUE(saved.rows == expected);
}

TEST(SaveTags, OfACaptureWithoutTagsIsAFileWithoutRows) {
  SmokeTest test({}, raw64_arguments({"save_tags=t.npy"}));
  EXPECT_EQ(test.run().exit_status, 3);
  const SavedTags saved = read_npy(test.program().directory / "t.npy");
  EXPECT_EQ(saved.told, 0U);
  EXPECT_THAT(saved.rows, IsEmpty());
}

// ---- Refusals ------------------------------------------------------------------

void expect_refused(SmokeTest& test, const std::string& line) {
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.error, line + "\n");
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.calls, IsEmpty());
}

TEST(SaveTags, RefusesAFileThatExists) {
  for (const char* name : {"t.npy", "t.csv"}) {
    SmokeTest test(raw64_device(five_tags), {"save_tags=" + std::string(name)});
    std::ofstream(test.program().directory / name) << "precious";
    expect_refused(test, "cannot write the tags to " + std::string(name) + ": it exists already");
    EXPECT_EQ(file_content(test.program().directory / name), "precious");
  }
}

TEST(SaveTags, RefusesAPlaceThatCannotBeWritten) {
  SmokeTest nowhere({}, {"save_tags=none/t.npy"});
  expect_refused(nowhere, "cannot write the tags to none/t.npy: No such file or directory");
  SmokeTest no_folder({}, {"save_tags=device.script/t.csv"});
  expect_refused(no_folder, "cannot write the tags to device.script/t.csv: Not a directory");
}

TEST(SaveTags, RefusesADiskThatIsFullFromTheStart) {
  SmokeTest test({}, {"save_tags=t.npy"});
  test.program().largest_file_bytes = 100;
  expect_refused(test, "cannot write the tags to t.npy: File too large");
  EXPECT_FALSE(fs::exists(test.program().directory / "t.npy"));
}

TEST(SaveTags, RefusesANameThatSaysNoLayout) {
  SmokeTest test({}, {"save_tags=t.txt"});
  expect_refused(test, "save_tags needs the name of a file that ends in .npy or .csv");
}

TEST(SaveTags, IsRefusedWhereThereIsNoCapture) {
  SmokeTest probe({}, {"save_tags=t.npy", "byte_probe=1"});
  expect_refused(probe, "save_tags keeps the tags of the capture, which byte_probe=1 replaces");
  EXPECT_FALSE(fs::exists(probe.program().directory / "t.npy"));
  SmokeTest list({}, {"save_tags=t.npy", "list=1"});
  expect_refused(list, "save_tags keeps the tags of the capture, which list=1 replaces");
}

TEST(SaveTags, RefusesThePlaceOfTheDocument) {
  SmokeTest test({}, {"save_tags=./t.npy", "json=t.npy"});
  expect_refused(test, "cannot write the tags to ./t.npy: the run writes its document there");
  EXPECT_THAT(file_content(test.program().directory / "t.npy"), HasSubstr("\"exit_status\": 2\n"));
}

TEST(SaveTags, LeavesNothingBehindARefusalOrAFailedSetUp) {
  SmokeTest refused({}, {"save_tags=t.npy", "limits=none.txt"});
  EXPECT_EQ(refused.run().exit_status, 2);
  EXPECT_FALSE(fs::exists(refused.program().directory / "t.npy"));
  SmokeTest failed({.statuses = {{"qx_identify", {-12}}}}, {"save_tags=t.npy"});
  EXPECT_EQ(failed.run().error, "identify: status -12\n");
  EXPECT_FALSE(fs::exists(failed.program().directory / "t.npy"));
}

// ---- Captures that end early ------------------------------------------------------

class SaveTagsOfACaptureEndedBy : public testing::TestWithParam<int> {};

TEST_P(SaveTagsOfACaptureEndedBy, ASignalAreThoseOfItsReport) {
  SmokeTest test(raw64_device(five_tags), endless({"save_tags=t.npy"}));
  // The first tags are in the file before the signal comes.
  test.program().signals = {{GetParam(), test.program().directory / "t.npy", "'shape': (5,)", 0ms}};
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 128 + GetParam());
  EXPECT_THAT(result.output, HasSubstr("\ntags_total=5\n"));
  expect_five_rows(test.program().directory / "t.npy");
}

INSTANTIATE_TEST_SUITE_P(BySignal, SaveTagsOfACaptureEndedBy,
                         testing::Values(SIGINT, SIGTERM, SIGHUP), signal_name);

// Nothing is left to be done when these end the program.
TEST(SaveTags, AreThereAlsoAfterTheProgramWasKilled) {
  for (const bool twice : {false, true}) {
    // The reader is inside a long read: the end of the capture would have to wait for it.
    Script script = raw64_device(five_tags);
    script.forever = {.bytes = {}, .status = -3, .delay_ms = 4000};
    SmokeTest test(script, endless({"save_tags=t.npy"}));
    const fs::path file = test.program().directory / "t.npy";
    test.program().signals = {{twice ? SIGINT : SIGKILL, file, "'shape': (5,)", 0ms}};
    if (twice) {
      test.program().signals.push_back({SIGINT, {}, {}, 150ms});
    }
    EXPECT_EQ(test.run().ended_by_signal, twice ? SIGINT : SIGKILL);
    expect_five_rows(file);
  }
}

TEST(SaveTags, AreThereWhenTheLibraryFails) {
  Script script = raw64_device(five_tags);
  // The program has taken the tags from the queue by then.
  script.reads.push_back({.bytes = {}, .status = -3, .delay_ms = 3000});
  script.forever = {.bytes = {}, .status = -12, .delay_ms = 0};
  SmokeTest test(script, endless({"save_tags=t.npy"}));
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, "read_stream_bytes: status -12\n");
  expect_five_rows(test.program().directory / "t.npy");
}

TEST(SaveTags, AreThereWhenTheLibraryHangs) {
  Script script = raw64_device(five_tags);
  script.forever = {.bytes = {}, .status = -3, .delay_ms = 3'600'000};
  SmokeTest npy(script, endless({"save_tags=t.npy"}));
  const SmokeTestResult result = npy.run();
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, "the device library does not answer\n");
  expect_five_rows(npy.program().directory / "t.npy");
  SmokeTest csv(script, endless({"save_tags=t.csv"}));
  EXPECT_EQ(csv.run().exit_status, 2);
  EXPECT_EQ(file_content(csv.program().directory / "t.csv"), five_lines);
}

// ---- A disk that fills up ---------------------------------------------------------

// The limit lies in the midst of a row; the signal that the system would send is ignored
// by the program.
TEST(SaveTags, EndTheRunWhenTheDiskIsFull) {
  std::vector<Tag> tags;
  std::vector<SavedTag> rows_that_fit;
  for (unsigned i = 0; i < 2'000; ++i) {
    tags.push_back({i % 4, 1'000ULL * i});
    if (i < 1'000) {
      rows_that_fit.emplace_back(i % 4, 1'000LL * i);
    }
  }
  SmokeTest test(raw64_device(tags), endless({"save_tags=t.npy"}));
  test.program().largest_file_bytes = 192 + 1'000 * 16 + 15;
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, "cannot write the tags to t.npy: File too large\n");
  EXPECT_EQ(result.output, internal_reference_line);
  EXPECT_LT(result.duration, 20s);
  const std::vector<std::string> calls = calls_from_start(result);
  EXPECT_THAT(std::vector<std::string>(calls.end() - 2, calls.end()),
              ElementsAre("qx_stop_stream_mode flag=true -> 0", "qx_close"));
  const SavedTags saved = read_npy(test.program().directory / "t.npy");
  EXPECT_EQ(saved.told, 1'000U);
  EXPECT_TRUE(saved.rows == rows_that_fit);
  EXPECT_EQ(saved.bytes_after, 0U);
}

TEST(SaveTags, KeepsWholeLinesWhenTheDiskIsFull) {
  const std::string two_lines = "channel,timestamp_ps\n0,1000\n1,1100\n";
  SmokeTest csv(raw64_device(five_tags), endless({"save_tags=t.csv"}));
  csv.program().largest_file_bytes = two_lines.size() + 4;
  const SmokeTestResult result = csv.run();
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, "cannot write the tags to t.csv: File too large\n");
  EXPECT_EQ(file_content(csv.program().directory / "t.csv"), two_lines);
}

// ---- The simulated unit -----------------------------------------------------------

// What one run keeps another one plays: the reports are the same but for what comes
// from the port's name and the clock of the host.
TEST(SaveTags, AsTextArePlayedByTheSimulatedUnit) {
  TemporaryDirectory directory;
  const auto report = [&directory](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"format=raw64", "mode=external", "channel_mask=0x0f",
                                       "capture_s=30", "stop_tags=40000"});
    Program program = simulated_smoke_test(std::move(arguments));
    program.directory = directory.path();
    const ProgramResult result = run(program);
    EXPECT_EQ(result.error, "");
    const std::size_t figures = result.output.find("\ntags_total=40000\n");
    EXPECT_NE(figures, std::string::npos) << result.output;
    return figures != std::string::npos ? result.output.substr(figures) : "";
  };
  const std::string seen = report({"port=sim://pairs?pace=max", "save_tags=t.csv"});
  const std::string played = report({"port=sim://tags?pace=max&file=t.csv", "save_tags=u.csv"});
  EXPECT_EQ(played, seen);
  EXPECT_TRUE(file_content(directory.path() / "u.csv") == file_content(directory.path() / "t.csv"));
}

}  // namespace
}  // namespace zelk::test_support
