// What the command line makes the program do, seen from outside: the device
// library's calls, standard output, standard error and the exit status.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.hpp"
#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using scripted_device::Script;
using testing::Contains;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// The library's calls of a run without capture time.
std::vector<std::string> calls_with(std::vector<std::string> arguments) {
  arguments.emplace_back("capture_s=0");
  const SmokeTestResult result = run_smoke_test({}, std::move(arguments));
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_EQ(result.error, "");
  return scripted_device::without_reads(result.calls);
}

void expect_rejected(std::vector<std::string> arguments, const std::string& message) {
  const SmokeTestResult result = run_smoke_test({}, std::move(arguments));
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.error, message + "\n");
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.calls, IsEmpty());
}

constexpr const char* pair_message = "channel_a/channel_b must be distinct and in 0..3";
constexpr const char* usb_message = "this GUI-live smoke test is intended for USB FIFO modes";
constexpr const char* async_message = "usb_async streaming is no longer supported";
constexpr const char* format_message = "format must be raw64, delta32, or packed_delta";

TEST(Arguments, NoneAtAllMeansEveryDefault) {
  const SmokeTestResult result = run_smoke_test(Script{.divider = 12500}, {});
  EXPECT_THAT(
      scripted_device::without_timeouts(result.calls),
      ElementsAreArray(default_set_up_then({"qx_stop_stream_mode flag=true -> 0", "qx_close"})));
  const ExpectedReport expected{.port = "ftdi:// transport=usb format=packed_delta mode=internal",
                                .ref_active = "1 divider=12500"};
  EXPECT_EQ(result.output, expected.text());
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 3);
}

TEST(Arguments, PortIsTakenAsTyped) {
  EXPECT_EQ(calls_with({"port=COM7 x"}).front(), "qx_open_serial port=COM7 x -> 0");
  EXPECT_EQ(calls_with({"control_port=A"}).front(), "qx_open_serial port=A -> 0");
  EXPECT_EQ(calls_with({"port=a=b"}).front(), "qx_open_serial port=a=b -> 0");
  EXPECT_EQ(calls_with({"port=A", "control_port=B"}).front(), "qx_open_serial port=B -> 0");
}

TEST(Arguments, KeysAreCaseInsensitiveAndMayBeginWithTwoDashes) {
  for (const char* argument :
       {"channel_mask=1", "--channel_mask=1", "--CHANNEL_MASK=1", "Channel_Mask=1"}) {
    EXPECT_THAT(calls_with({argument}), Contains("qx_set_stream_channel_mask mask=01 -> 0"))
        << argument;
  }
}

TEST(Arguments, UnknownKeysAndArgumentsWithoutEqualsAreIgnored) {
  const std::vector<std::string> plain = calls_with({});
  EXPECT_EQ(calls_with({"-channel_mask=1", "---channel_mask=1", "channel_mask", "--", "", "=", "=1",
                        "channel_mas=1", "channel_mask1=1", " channel_mask=1", "--verbose", "-v",
                        "help", "--help=1"}),
            plain);
}

TEST(Arguments, LastValueWins) {
  EXPECT_THAT(calls_with({"channel_mask=1", "channel_mask=2"}),
              Contains("qx_set_stream_channel_mask mask=02 -> 0"));
  EXPECT_THAT(calls_with({"dead_time_ps=7", "dead_time_ns=2"}),
              Contains("qx_set_input_dead_time dead_time_ps=2000 applied_before=zeroed -> 0"));
  EXPECT_THAT(calls_with({"dead_time_ns=2", "dead_time_ps=7"}),
              Contains("qx_set_input_dead_time dead_time_ps=7 applied_before=zeroed -> 0"));
}

TEST(Arguments, TransportFallsBackToUsb) {
  for (const char* argument : {"transport=foo", "transport=", "transport=USB"}) {
    EXPECT_THAT(calls_with({argument}),
                Contains("qx_set_stream_interface transport=1 format=2 -> 0"))
        << argument;
  }
}

TEST(Arguments, FormatNamesAreCaseInsensitive) {
  for (const char* argument : {"format=Packed-Delta", "format=packed", "format=PACKED_DELTA"}) {
    EXPECT_THAT(calls_with({argument}),
                Contains("qx_set_stream_interface transport=1 format=2 -> 0"))
        << argument;
  }
  for (const char* argument : {"format=Delta32", "format=delta"}) {
    EXPECT_THAT(calls_with({argument}),
                Contains("qx_set_stream_interface transport=1 format=1 -> 0"))
        << argument;
  }
  for (const char* argument : {"format=RAW64", "format=raw"}) {
    EXPECT_THAT(calls_with({argument}),
                Contains("qx_set_stream_interface transport=1 format=0 -> 0"))
        << argument;
  }
}

TEST(Arguments, ModeFallsBackToInternal) {
  for (const char* argument : {"mode=EXTERNAL", "mode=ext"}) {
    EXPECT_THAT(calls_with({argument}), Contains("qx_start_stream_mode mode=1 flags=0 -> 0"));
  }
  for (const char* argument : {"mode=extern", "mode=", "mode=internal"}) {
    EXPECT_THAT(calls_with({argument}), Contains("qx_start_stream_mode mode=0 flags=0 -> 0"));
  }
}

TEST(Arguments, ReferenceNamesChooseTheCallAndItsSource) {
  const auto source = [](int number) {
    return "qx_set_reference_clock source=" + std::to_string(number) +
           " signal=0 record=zeroed -> 0";
  };
  EXPECT_THAT(calls_with({"ref=auto"}), Contains(source(0)));
  EXPECT_THAT(calls_with({"reference=bogus"}), Contains(source(1)));
  EXPECT_THAT(calls_with({"reference_clock=EXT"}), Contains(source(2)));
  EXPECT_THAT(calls_with({"ref=external"}), Contains(source(2)));
  EXPECT_THAT(calls_with({"ref=none", "ref=internal"}), Contains(source(1)));
  for (const char* argument : {"reference=unchanged", "ref=None", "ref=off"}) {
    const std::vector<std::string> calls = calls_with({"ref=external", argument});
    EXPECT_THAT(calls, Contains("qx_get_reference_clock_status record=zeroed -> 0")) << argument;
    EXPECT_THAT(calls, Not(Contains(HasSubstr("qx_set_reference_clock")))) << argument;
  }
}

TEST(Arguments, ReferenceSignalFallsBackToTenMegahertz) {
  const auto signal = [](int number) {
    return "qx_set_reference_clock source=1 signal=" + std::to_string(number) +
           " record=zeroed -> 0";
  };
  EXPECT_THAT(calls_with({"ref_signal=1PPS"}), Contains(signal(1)));
  EXPECT_THAT(calls_with({"reference_signal=pps"}), Contains(signal(1)));
  EXPECT_THAT(calls_with({"ref_signal=1pps", "ref_signal=2pps"}), Contains(signal(0)));
}

TEST(Arguments, DeadTimeInNanosecondsIsRoundedToPicoseconds) {
  EXPECT_THAT(calls_with({"dead_time_ns=1.5"}),
              Contains("qx_set_input_dead_time dead_time_ps=1500 applied_before=zeroed -> 0"));
  EXPECT_THAT(calls_with({"dead_time_ns=0.0625"}),  // 62.5 ps
              Contains("qx_set_input_dead_time dead_time_ps=63 applied_before=zeroed -> 0"));
}

TEST(Arguments, NegativeDeadTimeLeavesTheDeviceAlone) {
  for (const char* argument : {"dead_time_ns=-1", "dead_time_ps=-5"}) {
    EXPECT_THAT(calls_with({argument}), Not(Contains(HasSubstr("qx_set_input_dead_time"))));
  }
}

TEST(Arguments, MasksAreCutToTheirBits) {
  EXPECT_THAT(calls_with({"channel_mask=0x1F"}),
              Contains("qx_set_stream_channel_mask mask=0f -> 0"));
  EXPECT_THAT(calls_with({"tdl_mask=0XFF"}),
              Contains("qx_set_tdl_active_masks masks=1f,1f,1f,1f -> 0"));
  EXPECT_THAT(calls_with({"tdl_mask=12"}),
              Contains("qx_set_tdl_active_masks masks=0c,0c,0c,0c -> 0"));
  EXPECT_THAT(calls_with({"tdl_mask=010"}),
              Contains("qx_set_tdl_active_masks masks=0a,0a,0a,0a -> 0"));
}

TEST(Arguments, PackedParametersAreCutToTheirWidth) {
  EXPECT_THAT(
      calls_with({"packed_bits=300", "packed_quantum_ps=65545"}),
      Contains("qx_set_packed_delta_config bits=44 quantum_ps=9 accepted_before=16,8 -> 0"));
  EXPECT_THAT(
      calls_with({"packed_bits=-1", "packed_quantum_ps=-1"}),
      Contains("qx_set_packed_delta_config bits=255 quantum_ps=65535 accepted_before=16,8 -> 0"));
}

TEST(Arguments, TextBehindANumberAndSpaceBeforeItAreIgnored) {
  EXPECT_THAT(
      calls_with({"cal_freq_hz=  2.5e3Hz", "dead_time_ps= 5ms"}),
      testing::IsSupersetOf({"qx_set_calibration_freq frequency_hz=2500 divider_before=zeroed -> 0",
                             "qx_set_input_dead_time dead_time_ps=5 applied_before=zeroed -> 0"}));
}

TEST(Arguments, LoadCalibrationIsABoolean) {
  for (const char* argument : {"load_calibration=", "load_calibration=yes", "load_calibration=2"}) {
    EXPECT_THAT(calls_with({argument}), Contains("qx_load_calibration flag=1 -> 0")) << argument;
  }
  for (const char* argument : {"load_calibration=OFF", "load_calibration=0",
                               "load_calibration=false", "load_calibration=No"}) {
    EXPECT_THAT(calls_with({argument}), Not(Contains(HasSubstr("qx_load_calibration"))))
        << argument;
  }
}

TEST(RejectedArguments, UnknownFormat) {
  expect_rejected({"format=raw32"}, format_message);
  expect_rejected({"format="}, format_message);
}

TEST(RejectedArguments, AsynchronousTransport) {
  expect_rejected({"transport=usb_async"}, async_message);
  expect_rejected({"transport=ASYNC"}, async_message);
}

TEST(RejectedArguments, UartTransport) {
  expect_rejected({"transport=UART"}, usb_message);
}

TEST(RejectedArguments, ChannelPairOutsideTheDeviceOrTwiceTheSame) {
  expect_rejected({"channel_a=3", "channel_b=3"}, pair_message);
  expect_rejected({"channel_b=4"}, pair_message);
  expect_rejected({"channel_a=-1"}, pair_message);
  expect_rejected({"channel_b=0"}, pair_message);
}

TEST(RejectedArguments, ChannelPairIsCheckedBeforeTheTransport) {
  expect_rejected({"transport=uart", "channel_b=4"}, pair_message);
}

TEST(RejectedArguments, FirstBadArgumentIsTheOneReported) {
  expect_rejected({"capture_s=abc", "format=raw32"}, "stod");
  expect_rejected({"format=raw32", "capture_s=abc"}, format_message);
}

TEST(RejectedArguments, NumberWithoutDigitsIsNamedAfterItsConversion) {
  expect_rejected({"capture_s=abc"}, "stod");
  expect_rejected({"cal_freq_hz="}, "stod");
  expect_rejected({"threshold_v=V"}, "stod");
  expect_rejected({"bin_s= "}, "stod");
  expect_rejected({"dead_time_ns=x1"}, "stod");
  expect_rejected({"channel_mask=f"}, "stoul");
  expect_rejected({"tdl_mask="}, "stoul");
  expect_rejected({"packed_bits=-"}, "stoul");
  expect_rejected({"packed_quantum_ps=q"}, "stoul");
  expect_rejected({"channel_a=a"}, "stoi");
  expect_rejected({"channel_b="}, "stoi");
  expect_rejected({"coincidence_window_ps=w"}, "stoll");
  expect_rejected({"dead_time_ps=."}, "stoll");
  expect_rejected({"queue_limit=+"}, "stoull");
}

TEST(RejectedArguments, NumberOutOfRangeIsNamedAfterItsConversion) {
  expect_rejected({"queue_limit=99999999999999999999999"}, "stoull");
  expect_rejected({"channel_a=2147483648"}, "stoi");
  expect_rejected({"channel_b=-2147483649"}, "stoi");
  expect_rejected({"coincidence_window_ps=9223372036854775808"}, "stoll");
  expect_rejected({"dead_time_ps=-9223372036854775809"}, "stoll");
  expect_rejected({"channel_mask=0x10000000000000000"}, "stoul");
  expect_rejected({"packed_bits=18446744073709551616"}, "stoul");
  expect_rejected({"capture_s=1e999"}, "stod");
}

TEST(Help, IsPrintedWithoutTouchingADevice) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--help"}, {"-h"}, {"port=x", "--help", "format=raw64"}}) {
    const SmokeTestResult result = run_smoke_test({}, arguments);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_THAT(result.output, testing::StartsWith("usage: zelk_smoke_test"));
    EXPECT_EQ(result.error, "");
    EXPECT_THAT(result.calls, IsEmpty());
  }
}

TEST(Help, NamesEveryKey) {
  const std::string help = run_smoke_test({}, {"--help"}).output;
  for (const char* key : {"port",
                          "control_port",
                          "serial",
                          "list",
                          "transport",
                          "mode",
                          "capture_s",
                          "format",
                          "cal_freq_hz",
                          "threshold_v",
                          "channel_mask",
                          "channel_a",
                          "channel_b",
                          "coincidence_window_ps",
                          "packed_bits",
                          "packed_quantum_ps",
                          "bin_s",
                          "queue_limit",
                          "dead_time_ps",
                          "dead_time_ns",
                          "load_calibration",
                          "tdl_mask",
                          "ref",
                          "reference",
                          "reference_clock",
                          "ref_signal",
                          "reference_signal",
                          "byte_probe",
                          "bytes",
                          "stop_tags",
                          "require",
                          "limits",
                          "save_tags",
                          "json",
                          "note",
                          "strict"}) {
    EXPECT_THAT(help, testing::ContainsRegex("[ (]" + std::string(key) + "[ ,)]"));
  }
}

TEST(Help, PointsToThePageOfTheSimulatedUnit) {
  EXPECT_THAT(run_smoke_test({}, {"--help"}).output, testing::HasSubstr("docs/simulated-unit.md"));
}

const std::string version_line = "zelk_smoke_test 0.2.0\n";

std::string path_of(const char* library) {
  return std::filesystem::canonical(library).string();
}

TEST(Version, IsPrintedWithoutTouchingADevice) {
  const SmokeTestResult result = run_smoke_test({}, {"--version"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.output, testing::StartsWith(version_line));
  EXPECT_EQ(result.error, "");
  EXPECT_THAT(result.calls, IsEmpty());
}

TEST(Version, NamesALibraryThatDoesNotSayThatItIsSimulated) {
  EXPECT_EQ(run_smoke_test({}, {"--version"}).output,
            version_line + "device library: " + path_of(ZELK_SCRIPTED_LIBRARY) +
                " (real, as far as can be told)\n");
}

TEST(Version, NamesTheSimulatedLibrary) {
  EXPECT_EQ(run(simulated_smoke_test({"--version"})).output,
            version_line + "device library: " + path_of(ZELK_SIMULATED_LIBRARY) + " (simulated)\n");
}

#ifdef ZELK_PRELOADED_LIBRARY
// Two are loaded, and the calls go to the one that is not simulated.
TEST(Version, NamesTheLibraryThatAnswers) {
  Program program = simulated_smoke_test({"--version"});
  program.environment["LD_PRELOAD"] = ZELK_PRELOADED_LIBRARY;
  EXPECT_THAT(run(program).output, testing::EndsWith(path_of(ZELK_PRELOADED_LIBRARY) +
                                                     " (real, as far as can be told)\n"));
}
#endif

TEST(Version, ShowsALineOfItsOwnForEachAnswer) {
  const TemporaryDirectory directory;
  const std::filesystem::path folder = directory.path() / "two\nlines";
  std::filesystem::create_directory(folder);
  std::filesystem::copy_file(ZELK_SIMULATED_LIBRARY, folder / "libzelk_timing.so.0");
  Program program = simulated_smoke_test({"--version"});
  program.environment["LD_LIBRARY_PATH"] = folder;
  EXPECT_THAT(run(program).output,
              testing::EndsWith("/two\\nlines/libzelk_timing.so.0 (simulated)\n"));
}

}  // namespace
}  // namespace zelk::test_support
