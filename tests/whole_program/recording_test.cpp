// A run recorded through a tap, and the same run played from the recording.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/file_content.hpp"
#include "tests/support/smoke_test_run.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::test_support {
namespace {

using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* library = ZELK_SIMULATED_LIBRARY;

std::vector<std::string> lines_of(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

// A report without its line on the port, which names the recording.
std::vector<std::string> without_port(const std::string& report) {
  std::vector<std::string> lines = lines_of(report);
  EXPECT_EQ(std::erase_if(lines, [](const std::string& line) { return line.starts_with("port="); }),
            1U);
  return lines;
}

std::vector<std::string> bins_of(const std::string& report) {
  std::vector<std::string> lines = lines_of(report);
  std::erase_if(lines, [](const std::string& line) { return !line.starts_with("bin "); });
  return lines;
}

class Recording : public testing::Test {
 protected:
  [[nodiscard]] std::string file(const std::string& name) const {
    return (directory_.path() / name).string();
  }
  [[nodiscard]] std::string tap(const std::string& name, const std::string& port) const {
    return "port=tap://" + file(name) + "?library=" + library + "&port=" + port;
  }
  [[nodiscard]] std::string replay(const std::string& name, const std::string& keys = "") const {
    return "port=replay://" + file(name) + keys;
  }

  // One run of the program; the watchdog must not be needed.
  static ProgramResult run_with(const std::string& port, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), port);
    ProgramResult result = run(simulated_smoke_test(std::move(arguments)));
    EXPECT_FALSE(result.killed_by_watchdog);
    return result;
  }

  static ProgramResult good_run(const std::string& port, std::vector<std::string> arguments) {
    ProgramResult result = run_with(port, std::move(arguments));
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.exit_status, 0) << port;
    return result;
  }

  // The run ends before its report, with this line.
  static void expect_error(const ProgramResult& result, const std::string& line) {
    EXPECT_EQ(result.error, line + "\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.exit_status, 2);
  }

  // The same for a line with the number of a record, which differs from
  // recording to recording, between the two texts.
  static void expect_error(const ProgramResult& result, const std::string& before,
                           const std::string& after) {
    const std::string& error = result.error;
    const std::size_t digits = error.find_first_not_of("0123456789", before.size());
    EXPECT_TRUE(error.starts_with(before)) << error;
    EXPECT_EQ(error.substr(std::min(digits, error.size())), after + "\n");
    EXPECT_GT(digits, before.size());
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.exit_status, 2);
  }

  // How record 30 begins, which is of the stream; by then the program watches
  // for signals.
  const std::string record_30_{"\x1E\0\0\0\x02\0\0\0", 8};
  TemporaryDirectory directory_;
};

// A capture of the calibration source that ends with its tags, and not by the clock.
const std::vector<std::string> some_tags{"channel_a=2", "channel_b=3", "capture_s=20",
                                         "stop_tags=20"};

struct Stream {
  const char* format;
  const char* mode;
};

class RecordedRun : public Recording, public testing::WithParamInterface<Stream> {
 protected:
  static std::vector<std::string> arguments(const std::string& capture_s = "1") {
    return {std::string("format=") + GetParam().format,
            std::string("mode=") + GetParam().mode,
            "channel_a=2",
            "channel_b=3",
            "capture_s=" + capture_s,
            "bin_s=0.01"};
  }
};

// A capture ends by the clock, and what was read in its last few milliseconds
// is recorded without having been counted. So the live run is compared up to
// there: of its bins, all that later ones show to be complete on every channel.
TEST_P(RecordedRun, ReplayOfALiveRunAgreesWithItUpToTheEndOfTheCapture) {
  const ProgramResult live = good_run(tap("live.rec", "ftdi://"), arguments("1"));
  const ProgramResult first = good_run(replay("live.rec", "?pace=max"), arguments("1.5"));
  const ProgramResult second = good_run(replay("live.rec", "?pace=max"), arguments("1.5"));
  EXPECT_EQ(first.output, second.output);

  const std::vector<std::string> live_bins = bins_of(live.output);
  const std::vector<std::string> bins = bins_of(first.output);
  ASSERT_GE(live_bins.size(), 5U);
  ASSERT_GE(bins.size(), live_bins.size());
  EXPECT_TRUE(std::equal(live_bins.begin(), live_bins.end() - 2, bins.begin()));
  const std::vector<std::string> live_lines = without_port(live.output);
  const std::vector<std::string> lines = without_port(first.output);
  const auto is_count = [](const std::string& line) { return line.starts_with("tags_total="); };
  const auto settings_end = std::find_if(live_lines.begin(), live_lines.end(), is_count);
  ASSERT_NE(settings_end, live_lines.end());
  EXPECT_EQ(std::vector(live_lines.begin(), settings_end),
            std::vector(lines.begin(), std::find_if(lines.begin(), lines.end(), is_count)));
}

// Here the stream is over long before the capture is, so that the clock has no
// part in any figure: the device that is recorded plays a recording itself.
TEST_P(RecordedRun, ReplaysOfARunWhoseStreamEndedGiveItsReport) {
  const std::vector<std::string> whole_stream = arguments("1.5");
  good_run(tap("live.rec", "ftdi://"), arguments());
  const ProgramResult recorded =
      good_run(tap("again.rec", "replay://" + file("live.rec") + "?pace%3Dmax"), whole_stream);
  const std::vector<std::string> report = without_port(recorded.output);
  EXPECT_EQ(without_port(good_run(replay("again.rec"), whole_stream).output), report);
  EXPECT_EQ(without_port(good_run(replay("again.rec", "?pace=max"), whole_stream).output), report);
  EXPECT_EQ(without_port(good_run(replay("live.rec", "?pace=max"), whole_stream).output), report);
}

INSTANTIATE_TEST_SUITE_P(EachStream, RecordedRun,
                         testing::Values(Stream{"raw64", "internal"}, Stream{"raw64", "external"},
                                         Stream{"delta32", "internal"},
                                         Stream{"delta32", "external"},
                                         Stream{"packed_delta", "internal"},
                                         Stream{"packed_delta", "external"}),
                         [](const testing::TestParamInfo<Stream>& stream) {
                           return std::string(stream.param.format) + "_" + stream.param.mode;
                         });

TEST_F(Recording, HoldsAByteProbeAsWell) {
  const std::vector<std::string> arguments{"byte_probe=1", "capture_s=1", "mode=external"};
  const ProgramResult probe = good_run(tap("a.rec", "ftdi://"), arguments);
  const ProgramResult played = good_run(replay("a.rec", "?pace=max"), arguments);
  EXPECT_EQ(without_port(played.output), without_port(probe.output));
  EXPECT_THAT(played.output, HasSubstr("byte_probe_payload_bytes="));
}

TEST_F(Recording, RealTimeIsTheDefaultAndAMaximumPaceAnOption) {
  good_run(tap("a.rec", "ftdi://"),
           {"channel_a=2", "channel_b=3", "capture_s=20", "stop_tags=40000"});
  const auto tags_in = [this](const std::string& keys) {
    const ProgramResult result =
        good_run(replay("a.rec", keys), {"channel_a=2", "channel_b=3", "capture_s=1"});
    const std::size_t at = result.output.find("tags_total=");
    return std::stoi(result.output.substr(at + 11));
  };
  // In 2 s the two channels make 40000 tags.
  EXPECT_LT(tags_in(""), 30000);
  EXPECT_GT(tags_in("?pace=max"), 30000);
}

TEST_F(Recording, AnotherCaptureTimeContradictsNothing) {
  good_run(tap("a.rec", "ftdi://"), some_tags);
  good_run(replay("a.rec", "?pace=max"), some_tags);
}

TEST_F(Recording, ContradictingSettingsAreRefused) {
  good_run(tap("a.rec", "ftdi://"), some_tags);
  struct Contradiction {
    const char* argument;
    const char* line;
  };
  for (const Contradiction& wrong :
       {Contradiction{"format=raw64",
                      "set_stream_interface: contradicts the recording (set_stream_interface(1, 0):"
                      " the recording has set_stream_interface(1, 2))"},
        {"channel_mask=3",
         "set_stream_channels: contradicts the recording (set_stream_channel_mask(3):"
         " the recording has set_stream_channel_mask(12))"},
        {"mode=external",
         "disable_calibration_source: contradicts the recording (disable_calibration_source():"
         " the recording has no such call here)"},
        {"threshold_v=1",
         "set_dac_codes: contradicts the recording (set_dac_codes(49152, 49152, 49152, 49152):"
         " the recording has no such call here)"},
        {"packed_bits=12",
         "set_packed_delta_config: contradicts the recording (set_packed_delta_config(12, 8):"
         " the recording has set_packed_delta_config(16, 8))"},
        {"load_calibration=0",
         "start_stream(mode): contradicts the recording (start_stream_mode(0, 0): the recording"
         " was made after load_calibration(1), this stream would start without)"}}) {
    const ProgramResult result =
        run_with(replay("a.rec"), {"channel_a=2", "channel_b=3", wrong.argument});
    EXPECT_EQ(result.error, std::string(wrong.line) + "\n");
    EXPECT_THAT(result.output, StartsWith("ref_requested="));
    EXPECT_EQ(lines_of(result.output).size(), 1U);
    EXPECT_EQ(result.exit_status, 2);
  }
}

TEST_F(Recording, EachDamageOfARecordingIsRefusedWithItsMessage) {
  good_run(tap("a.rec", "ftdi://"), some_tags);
  const std::string whole = file_content(file("a.rec"));
  const auto refused = [this](const std::string& bytes) {
    std::ofstream(file("b.rec"), std::ios::binary | std::ios::trunc) << bytes;
    return run_with(replay("b.rec"), {});
  };
  const auto with_byte = [&whole](std::size_t at) {
    std::string bytes = whole;
    bytes[at] = static_cast<char>(bytes[at] ^ 0x40);
    return bytes;
  };
  const std::string name = '`' + file("b.rec") + '`';
  const std::string cut = "open: the recording " + name + " is cut short after ";
  const std::string plays = " whole records; cut_short=1 plays these";
  const std::string corrupted = "open: " + name + " is corrupted: record ";
  const std::string first_header = corrupted + "0 of the recording has a damaged header";
  expect_error(refused(""), "open: " + name + " is not a recording");
  expect_error(refused(with_byte(3)), "open: " + name + " is not a recording");
  expect_error(refused(with_byte(8)),
               "open: " + name + " is a recording of version 65; only version 1 is known");
  expect_error(refused(with_byte(12)), first_header);  // a number
  expect_error(refused(with_byte(20)), first_header);  // a size
  // Somewhere in the stream.
  const ProgramResult middle = refused(with_byte(whole.size() / 2));
  EXPECT_THAT(middle.error, StartsWith(corrupted));
  EXPECT_THAT(middle.error, AnyOf(EndsWith(" of the recording has damaged contents\n"),
                                  EndsWith(" of the recording has a damaged header\n")));
  EXPECT_EQ(middle.output, "");
  EXPECT_EQ(middle.exit_status, 2);
  expect_error(refused(with_byte(whole.size() - 1)), corrupted,
               " of the recording has damaged contents");
  expect_error(refused(whole + "x"), corrupted, " of the recording follows the end");
  expect_error(refused(whole.substr(0, whole.size() - 1)), cut, plays);
  expect_error(refused(whole.substr(0, whole.size() / 2)), cut, plays);
  expect_error(refused(whole.substr(0, 12)), cut + '0' + plays);
  expect_error(
      run_with(replay("none.rec"), {}),
      "open: cannot open the recording `" + file("none.rec") + "`: No such file or directory");
  expect_error(
      run_with("port=replay://" + directory_.path().string(), {}),
      "open: cannot read the recording `" + directory_.path().string() + "`: it is no plain file");
}

TEST_F(Recording, PortStringsAreCheckedLikeAnyOther) {
  expect_error(run_with("port=replay://", {}),
               "open: the port string names no recording file: replay://FILE");
  expect_error(run_with("port=tap://?library=x&port=y", {}),
               "open: the port string names no recording file: tap://FILE?library=PATH&port=PORT");
  expect_error(run_with("port=tap://a.rec?library=x", {}),
               "open: missing key `port`: tap://FILE needs port=PORT");
  expect_error(run_with("port=tap://a.rec?port=x", {}),
               "open: missing key `library`: tap://FILE needs library=PATH");
  expect_error(run_with("port=replay://a.rec?pace=slow", {}),
               "open: port key pace takes real or max, not \"slow\"");
  expect_error(run_with("port=replay://a.rec?cut_short=2", {}),
               "open: port key cut_short takes a whole number from 0 to 1, not \"2\"");
  expect_error(run_with("port=replay://a.rec?port=x", {}),
               "open: port key port does not go with this port; it goes with tap://FILE");
  expect_error(run_with("port=ftdi://?cut_short=1", {}),
               "open: port key cut_short does not go with this port; it goes with replay://FILE");
  expect_error(
      run_with("port=replay://a.rec?colour=red", {}),
      "open: unknown key `colour` (if it belongs to the path before it, write "
      "`a.rec%3Fcolour=red`): replay://FILE takes pace, seed, cut_short, fail, silent_at_s, "
      "silent_for_s, empty_at_s, empty_for_s, hang_at_s, vanish_at_s, flip_bits, lose_bytes, "
      "insert_bytes, remove_bits, insert_bits, remove_bit_at_s, insert_bit_at_s, zeros_at_s, "
      "ones_at_s, reference_unavailable and reference_lost_at_s");
}

TEST_F(Recording, FailedTapsSayWhatIsWrongAndLeaveNoFile) {
  expect_error(run_with("port=tap://" + file("a.rec") + "?library=/none.so&port=x", {}),
               "open: cannot load the tapped library `/none.so`: /none.so: cannot open shared "
               "object file: No such file or directory");
  expect_error(
      run_with("port=tap://" + file("a.rec") + "?library=" + ZELK_OTHER_LIBRARY + "&port=x", {}),
      "open: the tapped library `" ZELK_OTHER_LIBRARY "` lacks the function qx_last_error");
  // The text is that of the library behind the tap.
  expect_error(run_with(tap("a.rec", "usb0"), {}),
               "open: no such unit: `usb0`; there are ftdi://, ftdi://ZK4-0001, sim://tags, "
               "sim://pulses, sim://random, sim://pairs, sim://burst, sim://silent, tap://FILE and "
               "replay://FILE");
  EXPECT_FALSE(std::filesystem::exists(file("a.rec")));
  expect_error(run_with(tap("none/a.rec", "ftdi://"), {}),
               "open: cannot create the recording file `" + file("none/a.rec") +
                   "`: No such file or directory");
  std::ofstream(file("b.rec")) << "precious";
  expect_error(run_with(tap("b.rec", "ftdi://"), {}),
               "open: the recording file `" + file("b.rec") + "` exists already");
  EXPECT_EQ(std::filesystem::file_size(file("b.rec")), 8U);
}

// The library at another place is a second library in the process.
TEST_F(Recording, TapsASecondCopyOfTheLibraryThatTheProgramRunsWith) {
  std::filesystem::copy_file(library, file("copy.so"));
  good_run("port=tap://" + file("a.rec") + "?library=" + file("copy.so") + "&port=ftdi://",
           some_tags);
  good_run(replay("a.rec"), some_tags);
}

TEST_F(Recording, OutlivesTheProgramThatMadeIt) {
  Program program =
      simulated_smoke_test({tap("a.rec", "ftdi://"), "channel_a=2", "channel_b=3", "capture_s=20"});
  program.signals = {{.signal = SIGKILL,
                      .file = file("a.rec"),
                      .text = record_30_,
                      .delay = std::chrono::milliseconds(100)}};
  const ProgramResult killed = run(program);
  ASSERT_EQ(killed.ended_by_signal, SIGKILL);
  EXPECT_FALSE(killed.killed_by_watchdog);

  const std::vector<std::string> arguments{"channel_a=2", "channel_b=3", "capture_s=1.5"};
  expect_error(run_with(replay("a.rec"), arguments),
               "open: the recording `" + file("a.rec") + "` is cut short after ",
               " whole records; cut_short=1 plays these");
  const ProgramResult first = good_run(replay("a.rec", "?cut_short=1&pace=max"), arguments);
  const ProgramResult second = good_run(replay("a.rec", "?cut_short=1&pace=max"), arguments);
  EXPECT_EQ(first.output, second.output);
}

// A recording that its user ends is a whole one.
TEST_F(Recording, IsClosedProperlyByAnInterruptedRun) {
  for (const int signal : {SIGINT, SIGTERM}) {
    SCOPED_TRACE(signal);
    Program program = simulated_smoke_test(
        {tap("a.rec", "ftdi://"), "channel_a=2", "channel_b=3", "capture_s=20"});
    program.signals = {{.signal = signal,
                        .file = file("a.rec"),
                        .text = record_30_,
                        .delay = std::chrono::milliseconds(100)}};
    const ProgramResult interrupted = run(program);
    EXPECT_FALSE(interrupted.killed_by_watchdog);
    EXPECT_EQ(interrupted.exit_status, 128 + signal);
    EXPECT_THAT(interrupted.output, HasSubstr("tags_total="));
    good_run(replay("a.rec", "?pace=max"), some_tags);
    std::filesystem::remove(file("a.rec"));
  }
}

TEST_F(Recording, AFullDiskEndsTheRunAndKeepsWhatWasWritten) {
  Program program = simulated_smoke_test({});
  // Files of 8 blocks of 512 or 1024 bytes at most. The signal that comes with
  // this limit would end the program if it got through.
  program.arguments = {"-c",
                       "ulimit -f 8; exec \"$@\"",
                       "sh",
                       program.file.string(),
                       tap("a.rec", "ftdi://"),
                       "channel_a=2",
                       "channel_b=3",
                       "capture_s=10"};
  program.file = "/bin/sh";
  const ProgramResult full = run(program);
  EXPECT_FALSE(full.killed_by_watchdog);
  EXPECT_EQ(full.exit_status, 2);
  EXPECT_THAT(full.error,
              StartsWith("read_stream_bytes: cannot write the recording (cannot write " +
                         file("a.rec") + ": "));
  EXPECT_EQ(lines_of(full.error).size(), 1U);
  EXPECT_EQ(lines_of(full.output).size(), 1U);  // the reference clock
  good_run(replay("a.rec", "?cut_short=1&pace=max"), some_tags);
}

}  // namespace
}  // namespace zelk::test_support
