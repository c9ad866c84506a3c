// Standard descriptors that are closed or full, files that are no plain files,
// and limits of the system.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using namespace std::chrono_literals;
using scripted_device::Script;
using testing::HasSubstr;
using Output = Program::Output;

constexpr const char* write_message = "cannot write the report to standard output\n";

class TappedRun : public testing::Test {
 protected:
  ProgramResult tap(Output output, Output error) {
    Program program = simulated_smoke_test(
        {"port=tap://" + recording() + "?library=" + ZELK_SIMULATED_LIBRARY + "&port=ftdi://",
         "capture_s=0.1"});
    program.output = output;
    program.error = error;
    program.environment["ZELK_PACKED_DEBUG"] = "1";
    return run(program);
  }

  // What a recording into which something else was written does not give.
  void expect_a_sound_recording() {
    const ProgramResult result =
        run(simulated_smoke_test({"port=replay://" + recording() + "?pace=max", "capture_s=1"}));
    EXPECT_EQ(result.error, "");
    EXPECT_THAT(result.output, HasSubstr("tags_total="));
  }

  [[nodiscard]] std::string recording() const { return directory_.path() / "run.rec"; }

 private:
  TemporaryDirectory directory_;
};

TEST_F(TappedRun, WithStandardOutputClosedFailsAndLeavesTheRecordingAlone) {
  const ProgramResult result = tap(Output::closed, Output::captured);
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(result.error, testing::EndsWith(write_message));  // behind the debug lines
  expect_a_sound_recording();
}

TEST_F(TappedRun, WithStandardErrorClosedLeavesTheRecordingAlone) {
  const ProgramResult result = tap(Output::captured, Output::closed);
  EXPECT_THAT(result.output, HasSubstr("tags_total="));
  expect_a_sound_recording();
}

TEST(FileSizeLimit, OfTheReportFailsTheRunWithOneErrorLine) {
  TemporaryDirectory directory;
  Program program = simulated_smoke_test({"port=sim://silent", "capture_s=0.05"});
  program.directory = directory.path();
  program.output = Output::file;
  program.largest_file_bytes = 200;
  const ProgramResult result = run(program);
  EXPECT_EQ(result.ended_by_signal, std::nullopt);
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, write_message);
  EXPECT_EQ(std::filesystem::file_size(directory.path() / "output"), 200U);
}

TEST(Pipe, AsFineTableFileIsLeftAlone) {
  SmokeTest test(Script{.discovered = {{"usb://1", {}}}}, raw64_arguments({"port="}));
  ASSERT_EQ(mkfifo((test.program().directory / "fine_lut.bin").c_str(), 0666), 0);
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 3);
}

TEST(Pipe, AsTagFileIsRefused) {
  TemporaryDirectory directory;
  const std::string pipe = directory.path() / "tags.csv";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
  const ProgramResult result =
      run(simulated_smoke_test({"port=sim://tags?file=" + pipe, "capture_s=0.05"}));
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.error, "open: cannot read the tag file `" + pipe + "`: it is no plain file\n");
}

// Nobody reads the debug lines, and the capture goes on without them.
TEST(FullStandardError, TakesNoDebugLinesAndKeepsNobodyWaiting) {
  Program program = simulated_smoke_test({"capture_s=0.2"});
  program.error = Output::full_pipe;
  program.environment["ZELK_PACKED_DEBUG"] = "1";
  const ProgramResult result = run(program);
  EXPECT_FALSE(result.killed_by_watchdog);
  EXPECT_THAT(result.output, HasSubstr("tags_total="));
}

TEST(ErrorText, OfTheLibraryStaysInOneLine) {
  const SmokeTestResult result =
      run_smoke_test(Script{.statuses = {{"qx_identify", {-4}}},
                            .status_texts = {{-4, "no answer\nnor a hint"}},
                            .last_error = "cable\x1b[2J"},
                     raw64_arguments());
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, "identify: no answer\\nnor a hint (cable\\x1b[2J)\n");
}

}  // namespace
}  // namespace zelk::test_support
