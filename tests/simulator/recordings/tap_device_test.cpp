// The tap in front of the scripted library, which logs what reaches it.
#include "simulator/recordings/tap_device.hpp"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <bit>
#include <csignal>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/call_records.hpp"
#include "simulator/failure.hpp"
#include "simulator/recordings/recording_file.hpp"
#include "simulator/recordings/replay_device.hpp"
#include "simulator/status_texts.hpp"
#include "tests/scripted_device/scripted_device.hpp"
#include "tests/simulator/expect_failure.hpp"
#include "tests/simulator/recording_bytes.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

using scripted_device::Script;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsNull;
using testing::StrEq;

constexpr const char* library = ZELK_SCRIPTED_LIBRARY;

class TapTest : public testing::Test {
 protected:
  TapDevice& tap(Script script, std::optional<int> rate = std::nullopt) {
    scripted_device::load(std::move(script));
    device_ = std::make_unique<TapDevice>(port_, rate);
    return *device_;
  }

  qx_status call(CallKind kind, std::vector<std::uint64_t> arguments = {}) {
    call_ = {.kind = kind};
    std::copy(arguments.begin(), arguments.end(), call_.arguments.begin());
    return device_->call(call_);
  }

  qx_status read(int timeout_ms = 20, std::size_t capacity = 8) {
    buffer_.assign(capacity, 0xEE);
    received_ = 0;
    return device_->read(buffer_, received_, timeout_ms);
  }

  // The log without the questions for texts, which the tap asks by itself.
  static std::vector<std::string> calls() {
    std::vector<std::string> all = scripted_device::calls();
    std::erase_if(all, [](const std::string& line) {
      return line.starts_with("qx_last_error") || line.starts_with("qx_status_string");
    });
    return all;
  }

  test_support::TemporaryDirectory directory_;
  TapPort port_{
      .recording = (directory_.path() / "a.rec").string(), .library = library, .port = "usb 7?x&y"};
  std::unique_ptr<TapDevice> device_;
  DeviceCall call_;
  std::vector<std::uint8_t> buffer_;
  std::size_t received_ = 0;
};

TEST_F(TapTest, ForwardsEveryCallWithItsArguments) {
  tap({.applied_dead_time_ps = 3333, .divider = 30003});
  call(CallKind::identify);
  call(CallKind::load_calibration, {static_cast<std::uint64_t>(-7)});
  call(CallKind::get_reference_clock_status);
  call(CallKind::set_reference_clock, {4000000000, 1});
  call(CallKind::set_tdl_active_masks, {1, 2, 3, 255});
  call(CallKind::get_tdl_active_masks);
  call(CallKind::set_dac_codes, {0x8000, 0xFFFF, 0, 1});
  call(CallKind::set_input_dead_time, {static_cast<std::uint64_t>(-5)});
  call(CallKind::set_packed_delta_config, {255, 65535});
  call(CallKind::set_stream_interface, {9, 4294967295});
  call(CallKind::set_stream_channel_mask, {255});
  call(CallKind::set_calibration_freq, {std::bit_cast<std::uint64_t>(12345.678)});
  EXPECT_EQ(call_.results[0], 30003U);
  call(CallKind::enable_calibration_source);
  call(CallKind::disable_calibration_source);
  call(CallKind::start_stream_mode, {77, 78});
  call(CallKind::stop_stream_mode, {0});
  call(CallKind::stop_stream_mode, {1});
  device_.reset();
  EXPECT_THAT(
      calls(),
      ElementsAre(
          "qx_open_serial port=usb 7?x&y -> 0", "qx_identify record=zeroed -> 0",
          "qx_load_calibration flag=-7 -> 0", "qx_get_reference_clock_status record=zeroed -> 0",
          "qx_set_reference_clock source=4000000000 signal=1 record=zeroed -> 0",
          "qx_set_tdl_active_masks masks=01,02,03,ff -> 0",
          "qx_get_tdl_active_masks masks_before=00,00,00,00 -> 0",
          "qx_set_dac_codes codes=8000,ffff,0000,0001 -> 0",
          testing::StartsWith("qx_set_input_dead_time dead_time_ps=-5"),
          "qx_set_packed_delta_config bits=255 quantum_ps=65535 accepted_before=0,0 -> 0",
          "qx_set_stream_interface transport=9 format=4294967295 -> 0",
          "qx_set_stream_channel_mask mask=ff -> 0",
          testing::StartsWith("qx_set_calibration_freq frequency_hz=12345.678"),
          "qx_enable_calibration_source -> 0", "qx_disable_calibration_source -> 0",
          "qx_start_stream_mode mode=77 flags=78 -> 0", "qx_stop_stream_mode flag=false -> 0",
          "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

TEST_F(TapTest, OpensAtTheRateThatTheHostAskedFor) {
  for (const int rate : {9600, 0, -1}) {
    tap({}, rate);
    EXPECT_THAT(calls(),
                ElementsAre("qx_open port=usb 7?x&y rate=" + std::to_string(rate) + " -> 0"));
    device_.reset();
    EXPECT_EQ(RecordingFile(port_.recording, false).opening().rate, rate);
    std::filesystem::remove(port_.recording);
  }
}

TEST_F(TapTest, HandsWhatTheCallersMemoryHoldsToTheDevice) {
  tap({});
  call_ = {.kind = CallKind::set_packed_delta_config};
  call_.results = {16, 8};
  device_->call(call_);
  EXPECT_THAT(calls().back(), HasSubstr("accepted_before=16,8"));
}

TEST_F(TapTest, FailuresComeBackWithEverythingThatTheDeviceLeft) {
  tap({.statuses = {{"qx_set_reference_clock", {-4}}, {"qx_set_dac_codes", {55}}},
       .status_texts = {{-4, "fixed clock"}, {55, "odd"}},
       .last_error = "state 0x17",
       .reference_clock = {2, 1, 0, 0, 0, 0, 1, 1, 12}});
  EXPECT_EQ(call(CallKind::set_reference_clock, {2, 0}), -4);
  const qx_reference_clock clock = clock_from_words(call_.results);
  EXPECT_EQ(clock.requested, 2);
  EXPECT_EQ(clock.raw, 12U);
  EXPECT_THAT(device_->last_error(), StrEq("state 0x17"));
  EXPECT_THAT(StatusTexts::instance().text(-4), StrEq("fixed clock"));
  EXPECT_EQ(call(CallKind::set_dac_codes), 55);
  EXPECT_THAT(StatusTexts::instance().text(55), StrEq("odd"));
  StatusTexts::instance().answered_here(-4);
  StatusTexts::instance().answered_here(55);
}

TEST_F(TapTest, ANullLastErrorStaysNull) {
  tap({.statuses = {{"qx_load_calibration", {-9}}}});
  EXPECT_EQ(call(CallKind::load_calibration, {1}), -9);
  EXPECT_THAT(device_->last_error(), IsNull());
  StatusTexts::instance().answered_here(-9);
}

TEST_F(TapTest, ReadsComeThroughWithTheirTimeOutAndTheirBytes) {
  tap({.reads = {{.bytes = {1, 2, 3}}, {.bytes = {4}, .status = -9}},
       .forever = {.status = -3, .delay_ms = 0}});
  EXPECT_EQ(read(std::numeric_limits<int>::min(), 2), 0);
  EXPECT_EQ(received_, 2U);
  EXPECT_EQ(buffer_, (FileBytes{1, 2}));
  EXPECT_EQ(read(-1), 0);
  EXPECT_EQ(received_, 1U);
  EXPECT_EQ(buffer_[0], 3);
  EXPECT_EQ(read(0), -9);
  EXPECT_EQ(received_, 1U);
  EXPECT_EQ(buffer_[0], 4);
  EXPECT_EQ(read(7), -3);
  const std::vector<std::string> log = calls();
  ASSERT_EQ(log.size(), 5U);
  EXPECT_THAT(log[1], HasSubstr("capacity=2 timeout=-2147483648 -> 0"));
  EXPECT_THAT(log[2], HasSubstr("capacity=8 timeout=-1 -> 0"));
  EXPECT_THAT(log[3], HasSubstr("capacity=8 timeout=0 -> -9"));
  EXPECT_THAT(log[4], HasSubstr("capacity=8 timeout=7 -> -3"));
  StatusTexts::instance().answered_here(-9);
  StatusTexts::instance().answered_here(-3);
}

TEST_F(TapTest, TimeOutsInARowAreOneRecord) {
  tap({.reads = {{.bytes = {}, .status = -3},
                 {.bytes = {}, .status = -3},
                 {.bytes = {1}},
                 {.bytes = {}},
                 {.bytes = {}},
                 {.bytes = {}, .status = -3}},
       .forever = {.status = -9, .delay_ms = 0}});
  call(CallKind::start_stream_mode);
  for (int i = 0; i < 7; ++i) {
    read();
  }
  device_.reset();
  const RecordingFile recording(port_.recording, false);
  RecordPlace place = recording.calls().at(0).after;
  const auto quiet = [&] { return std::get<RecordedQuiet>(recording.next(place).value()); };
  const RecordedQuiet time_outs = quiet();
  EXPECT_EQ(time_outs.count, 2U);
  EXPECT_EQ(time_outs.answer.status, -3);
  EXPECT_EQ(std::get<RecordedChunk>(recording.next(place).value()).bytes, FileBytes{1});
  const RecordedQuiet empty_reads = quiet();
  EXPECT_EQ(empty_reads.count, 2U);
  EXPECT_EQ(empty_reads.answer.status, 0);
  EXPECT_EQ(quiet().count, 1U);
  EXPECT_EQ(std::get<RecordedFailedRead>(recording.next(place).value()).answer.status, -9);
  StatusTexts::instance().answered_here(-9);
  StatusTexts::instance().answered_here(-3);
}

// What a host sees of a replay is what it saw through the tap.
TEST_F(TapTest, AReplayGivesEveryAnswerOfTheTappedDevice) {
  tap({.statuses = {{"qx_load_calibration", {-9}}},
       .status_texts = {{-9, "no table"}},
       .last_error = "slot 3",
       .identity = scripted_device::make_identity("a", "b", "SN-1", "real unit"),
       .read_back_masks = {{1, 2, 3, 4}},
       .reads = {{.bytes = {9, 8, 7}}}});
  const auto play = [this](DeviceBackend& device) {
    std::vector<std::string> seen;
    const auto note = [&](CallKind kind, std::vector<std::uint64_t> arguments) {
      DeviceCall call{.kind = kind};
      std::copy(arguments.begin(), arguments.end(), call.arguments.begin());
      const qx_status status = device.call(call);
      std::string line = call_text(call) + " " + std::to_string(status);
      for (const std::uint64_t word : call.results) {
        line += " " + std::to_string(word);
      }
      if (status != 0) {
        line += std::string(" ") + StatusTexts::instance().text(status) + " " + device.last_error();
      }
      seen.push_back(line);
    };
    note(CallKind::identify, {});
    note(CallKind::load_calibration, {1});
    note(CallKind::set_reference_clock, {1, 0});
    note(CallKind::get_tdl_active_masks, {});
    note(CallKind::set_packed_delta_config, {12, 4});
    note(CallKind::start_stream_mode, {1, 0});
    std::size_t received = 0;
    buffer_.assign(8, 0);
    EXPECT_EQ(device.read(buffer_, received, 20), 0);
    seen.push_back(std::to_string(received) + std::to_string(buffer_[0] + buffer_[2]));
    note(CallKind::stop_stream_mode, {1});
    return seen;
  };
  const std::vector<std::string> tapped = play(*device_);
  device_.reset();
  ReplayDevice replay({.recording = port_.recording, .pace = Pace::as_read});
  EXPECT_EQ(play(replay), tapped);
  EXPECT_THAT(tapped[1], HasSubstr("no table slot 3"));
  StatusTexts::instance().answered_here(-9);
}

TEST_F(TapTest, AFailedOpenIsTheDevicesOwnAndLeavesNoFile) {
  scripted_device::load(
      {.statuses = {{"qx_open_serial", {-21}}}, .status_texts = {{-21, "in use"}}});
  try {
    const TapDevice device(port_, std::nullopt);
    FAIL() << "opened";
  } catch (const ForwardedFailure& failure) {
    EXPECT_EQ(static_cast<int>(failure.status()), -21);
    EXPECT_THAT(failure.status_text(), StrEq("in use"));
  }
  EXPECT_FALSE(std::filesystem::exists(port_.recording));
}

// Not by this library's own: the other means something else by the number.
TEST_F(TapTest, AMissingStatusTextIsReplaced) {
  port_.library = ZELK_SELF_CALLING_LIBRARY;
  for (const int status : {-77, static_cast<int>(Status::cannot_write_recording)}) {
    try {
      const TapDevice device(port_, status);
      FAIL() << "opened";
    } catch (const ForwardedFailure& failure) {
      EXPECT_EQ(static_cast<int>(failure.status()), status);
      EXPECT_THAT(failure.status_text(), StrEq("unknown status"));
    }
  }
}

TEST_F(TapTest, ADeviceThatCannotBeRecordedIsClosedAgain) {
  write_file(port_.recording, {1});
  scripted_device::load({});
  failure_text(Status::recording_exists, [&] { const TapDevice device(port_, std::nullopt); });
  EXPECT_EQ(calls().back(), "qx_close");
}

TEST_F(TapTest, SaysWhatIsWrongWithTheLibrary) {
  port_.library = (directory_.path() / "none.so").string();
  failure_text(Status::cannot_load_library, [&] { const TapDevice device(port_, std::nullopt); });
  write_file(directory_.path() / "text.so", {'n', 'o'});
  port_.library = (directory_.path() / "text.so").string();
  failure_text(Status::cannot_load_library, [&] { const TapDevice device(port_, std::nullopt); });
  port_.library = (directory_.path() / "pipe.so").string();
  ASSERT_EQ(mkfifo(port_.library.c_str(), 0600), 0);
  failure_text(Status::cannot_load_library, [&] { const TapDevice device(port_, std::nullopt); });
  port_.library = ZELK_LACKING_LIBRARY;
  const std::string text = failure_text(Status::library_lacks_function,
                                        [&] { const TapDevice device(port_, std::nullopt); });
  EXPECT_EQ(text, "the tapped library `" ZELK_LACKING_LIBRARY "` lacks the function qx_last_error");
}

// This program offers functions of the same names, from the scripted library.
TEST(LoadedLibrary, CallsItsOwnFunctionsByTheirNames) {
  if (!LoadedLibrary::finds_own_names_first) {
    GTEST_SKIP() << "built with a sanitizer";
  }
  const LoadedLibrary self_calling(ZELK_SELF_CALLING_LIBRARY);
  scripted_device::load({});
  qx_device* device = nullptr;
  EXPECT_EQ(self_calling.open_serial(&device, "x"), -77);
  EXPECT_THAT(scripted_device::calls(), testing::IsEmpty());
}

// Threads that the library left behind must find their code.
TEST(LoadedLibrary, StaysLoaded) {
  { const LoadedLibrary self_calling(ZELK_SELF_CALLING_LIBRARY); }
  void* const loaded = dlopen(ZELK_SELF_CALLING_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
  EXPECT_NE(loaded, nullptr);
  if (loaded != nullptr) {
    dlclose(loaded);
  }
}

// As on a full disk. The call whose record got lost is not disturbed, those
// after it say what happened and do not reach the device, but it is stopped
// and closed.
TEST_F(TapTest, AFailedRecordingDisturbsNoDataAndIsNotSilent) {
  tap({.reads = {{.bytes = FileBytes(3000, 0x11)}, {.bytes = FileBytes(3000, 0x22)}},
       .forever = {.bytes = {1}}});
  call(CallKind::start_stream_mode);
  const auto former_handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit former{};
  getrlimit(RLIMIT_FSIZE, &former);
  const rlimit limit{4096, former.rlim_max};
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(read(20, 4000), 0);
  EXPECT_EQ(received_, 3000U);
  EXPECT_EQ(read(20, 4000), 0);
  EXPECT_EQ(received_, 3000U);
  EXPECT_EQ(buffer_[2999], 0x22);
  setrlimit(RLIMIT_FSIZE, &former);
  std::signal(SIGXFSZ, former_handler);

  const std::size_t calls_before = calls().size();
  const std::string text = failure_text(Status::cannot_write_recording, [&] { read(); });
  EXPECT_THAT(text, HasSubstr("cannot write " + port_.recording + ": "));
  failure_text(Status::cannot_write_recording, [&] { call(CallKind::identify); });
  EXPECT_EQ(calls().size(), calls_before);
  failure_text(Status::cannot_write_recording, [&] { call(CallKind::stop_stream_mode, {1}); });
  EXPECT_EQ(calls().back(), "qx_stop_stream_mode flag=true -> 0");
  device_.reset();
  EXPECT_EQ(calls().back(), "qx_close");

  failure_text(Status::recording_cut_short,
               [&] { const RecordingFile whole(port_.recording, false); });
  ReplayDevice replay(
      {.recording = port_.recording, .pace = Pace::as_read, .cut_short_allowed = true});
  DeviceCall start{.kind = CallKind::start_stream_mode};
  EXPECT_EQ(replay.call(start), 0);
  EXPECT_EQ(replay.read(buffer_, received_, 0), 0);
  EXPECT_EQ(buffer_[0], 0x11);
}

}  // namespace
}  // namespace zelk::simulator
