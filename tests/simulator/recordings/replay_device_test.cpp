#include "simulator/recordings/replay_device.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/failure.hpp"
#include "simulator/recordings/recording_writer.hpp"
#include "simulator/status_texts.hpp"
#include "tests/simulator/expect_failure.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;
using testing::HasSubstr;
using testing::IsNull;
using testing::StrEq;

constexpr std::uint64_t ms = 1'000'000;

DeviceCall make_call(CallKind kind, std::initializer_list<std::uint64_t> arguments = {}) {
  DeviceCall call{.kind = kind};
  std::copy(arguments.begin(), arguments.end(), call.arguments.begin());
  return call;
}

DeviceCall mask(std::uint64_t channels) {
  return make_call(CallKind::set_stream_channel_mask, {channels});
}

DeviceCall start(std::uint64_t mode = 0) {
  return make_call(CallKind::start_stream_mode, {mode, 0});
}

DeviceCall stop() {
  return make_call(CallKind::stop_stream_mode, {1});
}

RecordedAnswer refusal(std::int32_t status, const std::string& text,
                       const std::optional<std::string>& last_error) {
  return {.status = status, .status_text = text, .last_error = last_error};
}

class ReplayTest : public testing::Test {
 protected:
  // Each record one tick of the recording's clock after the one before.
  void record(const DeviceCall& call, const RecordedAnswer& answer = {}) {
    writer_->add(RecordedCall{.time_ns = ++time_ns_, .call = call, .answer = answer});
  }
  void record_chunk(const Bytes& bytes) { writer_->add_chunk(++time_ns_, bytes); }
  void record_chunk_at(std::uint64_t time_ns, const Bytes& bytes) {
    time_ns_ = time_ns;
    writer_->add_chunk(time_ns, bytes);
  }
  void record_failed_read(const RecordedAnswer& answer) {
    writer_->add(RecordedFailedRead{.time_ns = ++time_ns_, .answer = answer});
  }
  void record_quiet(const RecordedAnswer& answer) {
    const std::uint64_t first_ns = ++time_ns_;
    writer_->add(
        RecordedQuiet{.first_ns = first_ns, .last_ns = ++time_ns_, .count = 2, .answer = answer});
  }

  // Closes the recording and opens it for playing.
  ReplayDevice& replay(Pace pace = Pace::as_read) {
    writer_->finish(++time_ns_);
    EXPECT_EQ(writer_->error(), "");
    device_ = std::make_unique<ReplayDevice>(ReplayPort{.recording = path_, .pace = pace});
    return *device_;
  }

  // The call's status.
  qx_status call(DeviceCall call) { return device_->call(call); }

  std::string refusal_of(const DeviceCall& refused) {
    return failure_text(Status::contradicts_recording, [&] { call(refused); });
  }

  // What a read brings; none after a status that is not 0, which `status_` has then.
  Bytes read(std::size_t capacity = 1000, int timeout_ms = 0) {
    Bytes buffer(capacity);
    std::size_t received = 77;
    status_ = device_->read(buffer, received, timeout_ms);
    EXPECT_LE(received, capacity);
    buffer.resize(received);
    return buffer;
  }

  test_support::TemporaryDirectory directory_;
  std::string path_ = (directory_.path() / "a.rec").string();
  std::unique_ptr<RecordingWriter> writer_ =
      std::make_unique<RecordingWriter>(path_, RecordedOpening{});
  std::uint64_t time_ns_ = 0;
  std::unique_ptr<ReplayDevice> device_;
  qx_status status_ = 0;
};

TEST_F(ReplayTest, AnswersWithTheRecordedResults) {
  DeviceCall dead_time = make_call(CallKind::set_input_dead_time, {10000});
  dead_time.results[0] = 13332;
  record(dead_time);
  replay();
  DeviceCall asked = make_call(CallKind::set_input_dead_time, {10000});
  EXPECT_EQ(device_->call(asked), 0);
  EXPECT_EQ(asked.results[0], 13332U);
  EXPECT_THAT(device_->last_error(), StrEq(""));
}

TEST_F(ReplayTest, FailsAsRecordedWithStatusTextAndLastError) {
  record(make_call(CallKind::load_calibration, {1}), refusal(-6, "no such table", "slot 3"));
  record(make_call(CallKind::enable_calibration_source), refusal(-6, "laser off", std::nullopt));
  replay();
  EXPECT_EQ(call(make_call(CallKind::load_calibration, {1})), -6);
  EXPECT_THAT(device_->last_error(), StrEq("slot 3"));
  EXPECT_THAT(StatusTexts::instance().text(-6), StrEq("no such table"));
  EXPECT_EQ(call(make_call(CallKind::enable_calibration_source)), -6);
  EXPECT_THAT(device_->last_error(), IsNull());
  EXPECT_THAT(StatusTexts::instance().text(-6), StrEq("laser off"));
  StatusTexts::instance().answered_here(-6);
}

TEST_F(ReplayTest, RefusesAnotherArgumentAndNamesBoth) {
  record(mask(12));
  record(make_call(CallKind::set_stream_interface, {1, 2}));
  record(make_call(CallKind::set_calibration_freq, {std::bit_cast<std::uint64_t>(1e4)}));
  record(start(1));
  replay();
  EXPECT_EQ(refusal_of(mask(5)),
            "set_stream_channel_mask(5): the recording has set_stream_channel_mask(12)");
  EXPECT_EQ(refusal_of(make_call(CallKind::set_stream_interface, {1, 0})),
            "set_stream_interface(1, 0): the recording has set_stream_interface(1, 2)");
  EXPECT_EQ(
      refusal_of(make_call(CallKind::set_calibration_freq, {std::bit_cast<std::uint64_t>(2.5)})),
      "set_calibration_freq(2.5): the recording has set_calibration_freq(10000)");
  EXPECT_EQ(refusal_of(start(0)),
            "start_stream_mode(0, 0): the recording has start_stream_mode(1, 0)");
}

TEST_F(ReplayTest, RefusesACallThatTheRecordingDoesNotHold) {
  record(mask(12));
  record(start());
  replay();
  EXPECT_EQ(refusal_of(make_call(CallKind::set_dac_codes, {1, 2, 3, 4})),
            "set_dac_codes(1, 2, 3, 4): the recording has no such call here");
  EXPECT_EQ(refusal_of(make_call(CallKind::set_input_dead_time, {~std::uint64_t{0}})),
            "set_input_dead_time(-1): the recording has no such call here");
}

TEST_F(ReplayTest, RefusesAStartWithoutTheRecordedSettings) {
  record(mask(12));
  record(mask(3));
  record(start());
  replay();
  EXPECT_EQ(refusal_of(start()),
            "start_stream_mode(0, 0): the recording was made after set_stream_channel_mask(3), "
            "this stream would start without");
  EXPECT_EQ(call(mask(12)), 0);
  EXPECT_EQ(refusal_of(start()),
            "start_stream_mode(0, 0): the recording was made after set_stream_channel_mask(3), "
            "this stream would start after set_stream_channel_mask(12)");
  EXPECT_EQ(call(mask(3)), 0);
  EXPECT_EQ(call(start()), 0);
}

TEST_F(ReplayTest, QueriesAndSettingsThatFailedMayBeLeftOut) {
  record(make_call(CallKind::identify));
  record(make_call(CallKind::load_calibration, {1}), refusal(-6, "no such table", ""));
  record(make_call(CallKind::set_reference_clock, {1, 0}), refusal(-4, "fixed clock", ""));
  record(make_call(CallKind::get_tdl_active_masks));
  record(start());
  replay();
  EXPECT_EQ(call(start()), 0);
}

// The last word of the two calls counts, not that both were said.
TEST_F(ReplayTest, SwitchingTheCalibrationSourceIsOneSetting) {
  record(make_call(CallKind::enable_calibration_source));
  record(make_call(CallKind::disable_calibration_source));
  record(start());
  replay();
  EXPECT_EQ(call(make_call(CallKind::enable_calibration_source)), 0);
  EXPECT_THAT(refusal_of(start()), HasSubstr("would start after enable_calibration_source()"));
  EXPECT_EQ(call(make_call(CallKind::disable_calibration_source)), 0);
  EXPECT_EQ(call(start()), 0);
}

TEST_F(ReplayTest, ARepeatedCallIsAnsweredAgain) {
  record(mask(12));
  record(start());
  replay();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(call(mask(12)), 0);
  }
}

TEST_F(ReplayTest, PlaysEachRecordedStreamOnce) {
  record(mask(1));
  record(start());
  record_chunk({1, 2});
  record(stop());
  record(mask(2));
  record(start());
  record_chunk({3});
  replay();
  EXPECT_EQ(call(mask(1)), 0);
  EXPECT_EQ(call(start()), 0);
  EXPECT_EQ(read(), (Bytes{1, 2}));
  EXPECT_EQ(call(stop()), 0);
  EXPECT_THAT(refusal_of(start()), HasSubstr("would start after set_stream_channel_mask(1)"));
  EXPECT_EQ(call(mask(2)), 0);
  EXPECT_EQ(call(start()), 0);
  EXPECT_EQ(read(), (Bytes{3}));
  EXPECT_EQ(call(stop()), 0);
  EXPECT_EQ(refusal_of(start()), "start_stream_mode(0, 0): the recording holds no further stream");
}

TEST_F(ReplayTest, StopsWhetherRecordedOrNotAndFailsToWhenRecorded) {
  record(start());
  record(stop(), refusal(-9, "stuck", "fifo 7"));
  record(stop());
  replay();
  EXPECT_EQ(call(start()), 0);
  EXPECT_EQ(call(make_call(CallKind::stop_stream_mode, {0})), -9);
  EXPECT_THAT(device_->last_error(), StrEq("fifo 7"));
  EXPECT_EQ(call(stop()), 0);
  EXPECT_EQ(call(stop()), 0);
  failure_text(Status::not_streaming, [&] { read(); });
  StatusTexts::instance().answered_here(-9);
}

TEST_F(ReplayTest, ReadsWithoutAStreamAreRefused) {
  replay();
  failure_text(Status::not_streaming, [&] { read(); });
}

// Decoders may see where a chunk ends, so each comes alone; one that is too
// long for the host's buffer comes in parts.
TEST_F(ReplayTest, HandsOverOneChunkAReadWhateverTheHostsBuffer) {
  record(start());
  record_chunk({1, 2, 3, 4, 5});
  record_chunk({6});
  record_chunk({7, 8});
  record(stop());
  replay();
  call(start());
  EXPECT_EQ(read(2), (Bytes{1, 2}));
  EXPECT_EQ(read(2), (Bytes{3, 4}));
  EXPECT_EQ(read(0), Bytes{});
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(read(2), (Bytes{5}));
  EXPECT_EQ(read(1000), (Bytes{6}));
  EXPECT_EQ(read(1000), (Bytes{7, 8}));
}

TEST_F(ReplayTest, TimesOutAfterTheLastChunkOfAStoppedStream) {
  record(start());
  record_chunk({1});
  record(stop());
  replay();
  call(start());
  EXPECT_EQ(read(), (Bytes{1}));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(read(10, 1), Bytes{});
    EXPECT_EQ(status_, -3);
    EXPECT_THAT(StatusTexts::instance().text(-3), StrEq("timed out"));
    EXPECT_THAT(device_->last_error(), HasSubstr("no data within the time-out"));
  }
}

TEST_F(ReplayTest, FailsForGoodWhereTheRecordedStreamEndedByAFailure) {
  record(start());
  record_chunk({1});
  record_failed_read(refusal(-9, "unplugged", "bulk read: no such device"));
  replay();
  call(start());
  EXPECT_EQ(read(), (Bytes{1}));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(read(), Bytes{});
    EXPECT_EQ(status_, -9);
    EXPECT_THAT(device_->last_error(), StrEq("bulk read: no such device"));
    EXPECT_THAT(StatusTexts::instance().text(-9), StrEq("unplugged"));
  }
  StatusTexts::instance().answered_here(-9);
}

TEST_F(ReplayTest, GoesOnAfterAFailureThatTheRecordedStreamSurvived) {
  record(start());
  record_failed_read(refusal(-9, "hiccup", std::nullopt));
  record_chunk({1});
  record(stop());
  replay();
  call(start());
  EXPECT_EQ(read(), Bytes{});
  EXPECT_EQ(status_, -9);
  EXPECT_THAT(device_->last_error(), IsNull());
  EXPECT_EQ(read(), (Bytes{1}));
  read();
  EXPECT_EQ(status_, -3);
  StatusTexts::instance().answered_here(-9);
}

// A unit may say "nothing" with status 0 as well.
TEST_F(ReplayTest, QuietReadsAreAnsweredAsRecorded) {
  record(start());
  record_quiet({});
  record(stop());
  record(start());
  record_quiet(refusal(-3, "nothing came", "20 ms"));
  record(stop());
  replay();
  call(start());
  EXPECT_EQ(read(), Bytes{});
  EXPECT_EQ(status_, 0);
  call(stop());
  call(start());
  EXPECT_EQ(read(), Bytes{});
  EXPECT_EQ(status_, -3);
  EXPECT_THAT(device_->last_error(), StrEq("20 ms"));
  EXPECT_THAT(StatusTexts::instance().text(-3), StrEq("nothing came"));
  StatusTexts::instance().answered_here(-3);
}

// Hours of reads that brought nothing are not looked through in one read.
TEST_F(ReplayTest, AReadReturnsInTimeHoweverManyRecordsStandBeforeTheNextChunk) {
  record(start());
  record_failed_read(refusal(-9, "hiccup", std::nullopt));
  for (int i = 0; i < 10000; ++i) {
    record_quiet(refusal(-3, i % 2 == 0 ? "nothing came" : "nothing", ""));
  }
  record_chunk({1});
  record(stop());
  replay();
  call(start());
  EXPECT_EQ(read(), Bytes{});
  EXPECT_EQ(status_, -9);
  EXPECT_EQ(read(10, 0), Bytes{});
  EXPECT_EQ(status_, -3);
  int reads = 1;
  while (reads < 100 && read(10, 0).empty()) {
    EXPECT_EQ(status_, -3);
    ++reads;
  }
  EXPECT_EQ(reads, 10);
  StatusTexts::instance().answered_here(-9);
  StatusTexts::instance().answered_here(-3);
}

TEST_F(ReplayTest, SettingsAndQueriesInMidStreamLeaveTheStreamAlone) {
  record(start());
  record_chunk({1});
  record(make_call(CallKind::get_tdl_active_masks));
  record_chunk({2});
  record(stop());
  replay();
  call(start());
  EXPECT_EQ(read(), (Bytes{1}));
  EXPECT_EQ(call(make_call(CallKind::get_tdl_active_masks)), 0);
  EXPECT_EQ(read(), (Bytes{2}));
}

TEST_F(ReplayTest, InRealTimeAChunkComesNoEarlierThanItWasRecorded) {
  record(start());
  record_chunk_at(60 * ms, {1});
  record(stop());
  replay(Pace::real_time);
  call(start());
  const Clock::time_point started = Clock::now();
  int quiet_reads = 0;
  Bytes bytes;
  while (bytes.empty()) {
    bytes = read(10, 5);
    quiet_reads += status_ == -3 ? 1 : 0;
  }
  EXPECT_EQ(bytes, (Bytes{1}));
  // The recorded start lies 1 ns after the beginning of the recording, and this
  // test's clock was read a moment after the start.
  EXPECT_GE(Clock::now() - started, std::chrono::milliseconds(55));
  EXPECT_GE(quiet_reads, 1);
}

TEST_F(ReplayTest, AtMaximumPaceNothingWaitsForItsTime) {
  constexpr std::uint64_t hour = 3600 * 1000 * ms;
  record(start());
  record_chunk_at(hour, {1});
  record_quiet(refusal(-3, "nothing came", ""));
  record_chunk_at(2 * hour, {2});
  record(stop());
  replay(Pace::as_read);
  call(start());
  EXPECT_EQ(read(10, 20), (Bytes{1}));
  EXPECT_EQ(read(10, 20), (Bytes{2}));
}

TEST_F(ReplayTest, WaitsNoLongerThanTheTimeOutForTheLatestTime) {
  record(start());
  record_chunk_at((std::uint64_t{1} << 62) - 10, {1});
  replay(Pace::real_time);
  call(start());
  for (const int timeout_ms : {-2147483647 - 1, -1, 0, 3}) {
    EXPECT_EQ(read(10, timeout_ms), Bytes{});
    EXPECT_EQ(status_, -3);
  }
}

}  // namespace
}  // namespace zelk::simulator
