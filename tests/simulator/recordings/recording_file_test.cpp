#include "simulator/recordings/recording_file.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>

#include "simulator/failure.hpp"
#include "simulator/recordings/crc32.hpp"
#include "simulator/recordings/replay_device.hpp"
#include "tests/simulator/expect_failure.hpp"
#include "tests/simulator/recording_bytes.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

using test_support::TemporaryDirectory;

TEST(Crc32, IsTheOneOfEthernetAndZip) {
  const FileBytes digits{'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  EXPECT_EQ(crc32(digits), 0xCBF43926U);  // the published check value
  EXPECT_EQ(crc32({}), 0U);
}

class RecordingFileTest : public testing::Test {
 protected:
  std::string file(const FileBytes& bytes) {
    write_file(path_, bytes);
    return path_;
  }

  // The status of opening `bytes` as a recording; 0 when it opens.
  std::int32_t open_status(const FileBytes& bytes, bool cut_short_allowed = false) {
    try {
      const RecordingFile recording(file(bytes), cut_short_allowed);
      return 0;
    } catch (const Failure& failure) {
      return static_cast<std::int32_t>(failure.status());
    }
  }

  void expect_refusal(const FileBytes& bytes, Status status, const std::string& words) {
    const std::string text =
        failure_text(status, [&] { const RecordingFile recording(file(bytes), false); });
    EXPECT_THAT(text, testing::HasSubstr(words));
  }

  TemporaryDirectory directory_;
  std::string path_ = (directory_.path() / "a.rec").string();
};

TEST_F(RecordingFileTest, HoldsWhatItsDescriptionSays) {
  const RecordingFile recording(file(recording_bytes(sample_records())), false);
  EXPECT_EQ(recording.opening().library, "/lib/real.so");
  EXPECT_EQ(recording.opening().port, "usb0");
  EXPECT_EQ(recording.opening().rate, 0);
  ASSERT_EQ(recording.calls().size(), 3U);
  EXPECT_EQ(recording.calls()[0].time_ns, 100U);
  EXPECT_EQ(recording.calls()[0].call.kind, CallKind::set_stream_channel_mask);
  EXPECT_EQ(recording.calls()[0].call.arguments[0], 5U);
  EXPECT_EQ(recording.calls()[1].call.kind, CallKind::start_stream_mode);
  EXPECT_EQ(recording.calls()[1].call.arguments[0], 1U);

  RecordPlace place = recording.calls()[1].after;
  const std::optional<Record> quiet = recording.next(place);
  ASSERT_TRUE(quiet && std::holds_alternative<RecordedQuiet>(*quiet));
  EXPECT_EQ(std::get<RecordedQuiet>(*quiet).count, 10U);
  EXPECT_EQ(std::get<RecordedQuiet>(*quiet).answer.status_text, "nothing came");
  EXPECT_EQ(std::get<RecordedQuiet>(*quiet).answer.last_error, "late");
  const std::optional<Record> chunk = recording.next(place);
  ASSERT_TRUE(chunk && std::holds_alternative<RecordedChunk>(*chunk));
  EXPECT_EQ(std::get<RecordedChunk>(*chunk).time_ns, 500U);
  EXPECT_EQ(std::get<RecordedChunk>(*chunk).bytes, (FileBytes{0xDE, 0xAD, 0xBE}));
  const std::optional<Record> failed = recording.next(place);
  ASSERT_TRUE(failed && std::holds_alternative<RecordedFailedRead>(*failed));
  EXPECT_EQ(std::get<RecordedFailedRead>(*failed).answer.status, -9);
  EXPECT_EQ(std::get<RecordedFailedRead>(*failed).answer.last_error, std::nullopt);
}

// No single flipped bit goes unnoticed, wherever it is.
TEST_F(RecordingFileTest, EveryFlippedBitIsNoticed) {
  const FileBytes whole = recording_bytes(sample_records());
  for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
    FileBytes damaged = whole;
    damaged[bit / 8] = static_cast<std::uint8_t>(damaged[bit / 8] ^ (1U << (bit % 8)));
    const auto expected = bit < 64   ? Status::not_a_recording
                          : bit < 96 ? Status::unknown_recording_version
                                     : Status::recording_corrupted;
    ASSERT_EQ(open_status(damaged), static_cast<std::int32_t>(expected)) << "bit " << bit;
    ASSERT_EQ(open_status(damaged, true), static_cast<std::int32_t>(expected)) << "bit " << bit;
  }
}

// Whatever the place at which a recording breaks off: it is refused as cut
// short, and when that is allowed, every record that is whole is there.
TEST_F(RecordingFileTest, EveryCutIsNoticedAndLeavesTheWholeRecords) {
  std::vector<std::size_t> ends;
  const FileBytes whole = recording_bytes(sample_records(), &ends);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const FileBytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    const Status expected = size < 12 ? Status::not_a_recording : Status::recording_cut_short;
    ASSERT_EQ(open_status(cut), static_cast<std::int32_t>(expected)) << size;
    if (size < 12) {
      ASSERT_EQ(open_status(cut, true), static_cast<std::int32_t>(expected)) << size;
      continue;
    }
    const RecordingFile recording(file(cut), true);
    const auto whole_records =
        std::count_if(ends.begin(), ends.end(), [size](std::size_t end) { return end <= size; });
    RecordPlace place;
    std::ptrdiff_t records = 0;
    while (recording.next(place)) {
      ++records;
    }
    ASSERT_EQ(records, whole_records) << size;
  }
}

// What is cut off while a recording is played is no end of its stream.
TEST_F(RecordingFileTest, AFileThatShrinksWhileItIsPlayedIsDamaged) {
  std::vector<std::size_t> ends;
  const FileBytes whole = recording_bytes(sample_records(), &ends);
  for (const std::size_t size : {ends[3], ends[3] + 5, ends[3] + 25, std::size_t{0}}) {
    const RecordingFile recording(file(whole), false);
    RecordPlace place = recording.calls().at(1).after;
    if (size != 0) {
      EXPECT_TRUE(recording.next(place).has_value());
    }
    std::filesystem::resize_file(path_, size);
    const std::string text =
        failure_text(Status::recording_corrupted, [&] { recording.next(place); });
    EXPECT_THAT(text, testing::HasSubstr("was cut off after the file was opened"));
  }
}

// Nobody has checked what a recording that still goes on gets later.
TEST_F(RecordingFileTest, AFileThatGrowsWhileItIsPlayedEndsWhereItEnded) {
  std::vector<std::size_t> ends;
  const FileBytes whole = recording_bytes(sample_records(), &ends);
  const FileBytes begun(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(ends[3]));
  const RecordingFile recording(file(begun), true);
  std::ofstream(path_, std::ios::binary | std::ios::app)
      .write(reinterpret_cast<const char*>(whole.data()) + ends[3],
             static_cast<std::streamsize>(whole.size() - ends[3]));
  RecordPlace place = recording.calls().at(1).after;
  EXPECT_TRUE(recording.next(place).has_value());
  EXPECT_FALSE(recording.next(place).has_value());
}

TEST_F(RecordingFileTest, RefusesWhatIsNoRecordingFile) {
  EXPECT_EQ(open_status({}), static_cast<std::int32_t>(Status::not_a_recording));
  expect_refusal({'c', 'h', 'a', 'n', 'n', 'e', 'l', ',', 't', 'i', 'm', 'e', '\n'},
                 Status::not_a_recording, "is not a recording");
  EXPECT_EQ(failure_text(Status::cannot_open_recording,
                         [&] { const RecordingFile missing(path_ + ".none", false); }),
            "cannot open the recording `" + path_ + ".none`: No such file or directory");
  EXPECT_EQ(failure_text(Status::cannot_open_recording,
                         [&] { const RecordingFile missing("none.rec&pace=max", false); }),
            "cannot open the recording `none.rec&pace=max`: No such file or directory (a `&` in "
            "the path is a part of it; keys follow a `?`)");
  failure_text(Status::cannot_read_recording,
               [&] { const RecordingFile directory(directory_.path().string(), false); });
  const std::string pipe = path_ + ".pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  failure_text(Status::cannot_read_recording, [&] { const RecordingFile fifo(pipe, false); });
}

TEST_F(RecordingFileTest, NamesTheVersionItDoesNotKnow) {
  expect_refusal(file_header(2), Status::unknown_recording_version, "version 2; only version 1");
}

TEST_F(RecordingFileTest, RefusesRecordsThatAreMissingDoubledOrBehindTheEnd) {
  const std::vector<TypedPayload> records = sample_records();
  FileBytes missing = file_header();
  FileBytes doubled = file_header();
  for (std::uint32_t i = 0; i < records.size(); ++i) {
    const FileBytes bytes = record_bytes(i, records[i].type, records[i].payload);
    for (int k = 0; k < (i == 4 ? 0 : 1); ++k) {
      missing.insert(missing.end(), bytes.begin(), bytes.end());
    }
    for (int k = 0; k < (i == 4 ? 2 : 1); ++k) {
      doubled.insert(doubled.end(), bytes.begin(), bytes.end());
    }
  }
  expect_refusal(missing, Status::recording_corrupted, "record 4 of the recording is missing");
  expect_refusal(doubled, Status::recording_corrupted, "record 5 of the recording is missing");

  std::vector<TypedPayload> longer = records;
  longer.push_back({2, Payload().u64(900).raw({1}).bytes});
  expect_refusal(recording_bytes(longer), Status::recording_corrupted,
                 "record 8 of the recording follows the end");
  FileBytes byte_more = recording_bytes(records);
  byte_more.push_back(0);
  expect_refusal(byte_more, Status::recording_corrupted, "follows the end");
  std::vector<TypedPayload> opened_twice = records;
  opened_twice.insert(opened_twice.begin(), records.front());
  expect_refusal(recording_bytes(opened_twice), Status::recording_corrupted, "record 1");
  expect_refusal(recording_bytes({records.begin() + 1, records.end()}), Status::recording_corrupted,
                 "record 0");
}

// With checksums that fit, so that nothing but the contents can be at fault.
TEST_F(RecordingFileTest, RefusesImpossibleContents) {
  const TypedPayload opening = sample_records().front();
  const std::vector<TypedPayload> impossible{
      {6, Payload().u64(1).bytes},                                          // unknown type
      {5, {}},                                                              // too short
      {5, Payload().u64(1).u32(0).bytes},                                   // too long
      {5, Payload().u64(std::uint64_t{1} << 62).bytes},                     // beyond all time
      {1, Payload().u64(1).u32(16).success().bytes},                        // no call of a device
      {1, Payload().u64(1).u32(17).success().bytes},                        // reading is none
      {1, Payload().u64(1).u32(18).success().bytes},                        // unknown call
      {1, Payload().u64(1).u32(10).success().bytes},                        // argument missing
      {1, Payload().u64(1).u32(12).u32(0).text("x").null().bytes},          // success with a text
      {1, Payload().u64(1).u32(12).u32(0).null().text("x").bytes},          // or an error
      {1, Payload().u64(1).u32(12).u32(1).null().null().bytes},             // failure without
      {4, Payload().u64(1).success().bytes},                                // failed with success
      {3, Payload().u64(2).u64(1).u64(1).success().bytes},                  // ends before it begins
      {3, Payload().u64(1).u64(2).u64(1).failure(-9, "x", "").bytes},       // not quiet
      {4, Payload().u64(1).u32(1).u32(65537).raw(FileBytes(70000)).bytes},  // text too long
      {4, Payload().u64(1).u32(1).u32(0xFFFFFFFE).bytes},  // text beyond the record
  };
  for (std::size_t i = 0; i < impossible.size(); ++i) {
    SCOPED_TRACE(i);
    expect_refusal(recording_bytes({opening, impossible[i], {5, Payload().u64(9).bytes}}),
                   Status::recording_corrupted, "record 1 of the recording");
  }
  expect_refusal(
      recording_bytes(
          {opening, {2, Payload().u64(9).raw({1}).bytes}, {2, Payload().u64(8).raw({1}).bytes}}),
      Status::recording_corrupted, "record 2 of the recording has an impossible time");
}

// A size of 4 GiB with a checksum that fits must not be believed.
TEST_F(RecordingFileTest, AllocatesNoMoreThanARecordMayHold) {
  FileBytes bytes = recording_bytes({sample_records().front()});
  Payload header;
  header.u32(1).u32(2).u32(0xFFFFFFFF).u32(0);
  header.u32(literal_crc32(header.bytes));
  bytes.insert(bytes.end(), header.bytes.begin(), header.bytes.end());
  EXPECT_EQ(open_status(bytes, true), static_cast<std::int32_t>(Status::recording_corrupted));
}

// Plays a recording as a host would that makes every call it knows, and reads.
void play(const std::string& path) {
  ReplayDevice device({.recording = path, .pace = Pace::as_read, .cut_short_allowed = true});
  std::vector<std::uint8_t> buffer(64);
  for (int round = 0; round < 3; ++round) {
    for (std::uint32_t kind = 0; kind < device_call_kinds; ++kind) {
      DeviceCall call{.kind = static_cast<CallKind>(kind)};
      if (call.kind == CallKind::set_stream_channel_mask) {
        call.arguments[0] = 5;
      } else if (call.kind == CallKind::start_stream_mode) {
        call.arguments[0] = 1;
      }
      try {
        device.call(call);
        for (int reads = 0; reads < 4; ++reads) {
          std::size_t received = 0;
          device.read(buffer, received, 0);
          ASSERT_LE(received, buffer.size());
        }
      } catch (const Failure&) {  // NOLINT(bugprone-empty-catch): a refusal is an answer
      }
    }
  }
}

// Random damage, in half of the cases with checksums that fit again, so that
// it reaches what lies behind them.
TEST_F(RecordingFileTest, AnyDamageIsRefusedOrPlayed) {
  std::mt19937 random(20240501);
  const auto below = [&random](std::size_t count) { return random() % count; };
  int played = 0;
  int refused = 0;
  for (int round = 0; round < 4000; ++round) {
    std::vector<TypedPayload> records = sample_records();
    const bool fitting = below(2) == 0;
    for (std::size_t changes = 1 + below(3); fitting && changes > 0; --changes) {
      TypedPayload& record = records[below(records.size())];
      if (below(8) == 0) {
        record.type = static_cast<std::uint32_t>(below(7));
      } else if (below(8) == 0) {
        record.payload.resize(below(record.payload.size() + 8));
      } else if (!record.payload.empty()) {
        record.payload[below(record.payload.size())] = static_cast<std::uint8_t>(random());
      }
    }
    FileBytes bytes = recording_bytes(records);
    for (std::size_t changes = 1 + below(3); !fitting && changes > 0; --changes) {
      bytes[below(bytes.size())] = static_cast<std::uint8_t>(random());
    }
    if (below(4) == 0) {
      bytes.resize(below(bytes.size()) + 1);
    }
    try {
      play(file(bytes));
      ++played;
    } catch (const Failure& failure) {
      const auto status = static_cast<std::int32_t>(failure.status());
      ASSERT_LE(status, -68);
      ASSERT_GE(status, -71);
      ++refused;
    }
  }
  EXPECT_GT(played, 100);
  EXPECT_GT(refused, 100);
}

}  // namespace
}  // namespace zelk::simulator
