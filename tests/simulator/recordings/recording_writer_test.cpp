#include "simulator/recordings/recording_writer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <optional>
#include <string>

#include "simulator/failure.hpp"
#include "simulator/recordings/recording_file.hpp"
#include "tests/simulator/expect_failure.hpp"
#include "tests/simulator/recording_bytes.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

using test_support::TemporaryDirectory;

class RecordingWriterTest : public testing::Test {
 protected:
  TemporaryDirectory directory_;
  std::string path_ = (directory_.path() / "a.rec").string();
};

// A full disk for as long as the object exists: no file of this process grows
// beyond `bytes`.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(std::size_t bytes) : former_handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &former_);
    const rlimit limit{bytes, former_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &former_);
    std::signal(SIGXFSZ, former_handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit former_{};
  void (*former_handler_)(int);
};

void write_sample(RecordingWriter& writer) {
  RecordedCall mask{
      .time_ns = 100, .call = {.kind = CallKind::set_stream_channel_mask}, .answer = {}};
  mask.call.arguments[0] = 5;
  writer.add(mask);
  RecordedCall start{.time_ns = 200, .call = {.kind = CallKind::start_stream_mode}, .answer = {}};
  start.call.arguments[0] = 1;
  writer.add(start);
  writer.add(
      RecordedQuiet{.first_ns = 300,
                    .last_ns = 400,
                    .count = 10,
                    .answer = {.status = -3, .status_text = "nothing came", .last_error = "late"}});
  writer.add_chunk(500, FileBytes{0xDE, 0xAD, 0xBE});
  writer.add(RecordedFailedRead{
      .time_ns = 600,
      .answer = {.status = -9, .status_text = "broken", .last_error = std::nullopt}});
  RecordedCall stop{.time_ns = 700, .call = {.kind = CallKind::stop_stream_mode}, .answer = {}};
  stop.call.arguments[0] = 1;
  writer.add(stop);
  writer.finish(800);
}

TEST_F(RecordingWriterTest, WritesWhatTheDescriptionOfTheFormatSays) {
  RecordingWriter writer(path_, {.library = "/lib/real.so", .port = "usb0", .rate = 0});
  write_sample(writer);
  EXPECT_EQ(writer.error(), "");
  EXPECT_EQ(read_file(path_), recording_bytes(sample_records()));
}

// Nothing waits in the writer: what was added is in the file at once.
TEST_F(RecordingWriterTest, EveryRecordIsInTheFileWhenTheCallReturns) {
  RecordingWriter writer(path_, {.library = "l", .port = "p", .rate = 9600});
  const FileBytes opening = recording_bytes({{0, Payload().text("l").text("p").u32(9600).bytes}});
  EXPECT_EQ(read_file(path_), opening);
  writer.add_chunk(1, FileBytes(10));
  EXPECT_EQ(read_file(path_).size(), opening.size() + 20 + 8 + 10);
}

TEST_F(RecordingWriterTest, NeverOverwritesAFile) {
  write_file(path_, {1, 2, 3});
  failure_text(Status::recording_exists, [&] { const RecordingWriter writer(path_, {}); });
  EXPECT_EQ(read_file(path_), (FileBytes{1, 2, 3}));
}

TEST_F(RecordingWriterTest, SaysWhyTheFileCannotBeCreated) {
  const std::string text = failure_text(Status::cannot_create_recording, [&] {
    const RecordingWriter writer((directory_.path() / "none" / "a.rec").string(), {});
  });
  EXPECT_THAT(text, testing::HasSubstr("No such file or directory"));
}

TEST_F(RecordingWriterTest, SplitsAReadThatIsLongerThanARecord) {
  FileBytes bytes(3'000'000);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 4093);
  }
  RecordingWriter writer(path_, {});
  writer.add_chunk(5, bytes);
  writer.finish(6);
  const RecordingFile recording(path_, false);
  RecordPlace place;
  recording.next(place);
  FileBytes read_back;
  for (int i = 0; i < 3; ++i) {
    const std::optional<Record> record = recording.next(place);
    ASSERT_TRUE(record && std::holds_alternative<RecordedChunk>(*record));
    const RecordedChunk& chunk = std::get<RecordedChunk>(*record);
    EXPECT_EQ(chunk.time_ns, 5U);
    read_back.insert(read_back.end(), chunk.bytes.begin(), chunk.bytes.end());
  }
  EXPECT_EQ(read_back, bytes);
}

// The record that did not fit is taken back, also when a later one would fit.
TEST_F(RecordingWriterTest, AFullDiskCostsTheLastRecordOnly) {
  RecordingWriter writer(path_, {});
  {
    const FileSizeLimit limit(4096);
    writer.add_chunk(1, FileBytes(3000, 0x11));
    EXPECT_EQ(writer.error(), "");
    writer.add_chunk(2, FileBytes(3000, 0x22));
    EXPECT_THAT(writer.error(), testing::HasSubstr("cannot write " + path_ + ": "));
  }
  writer.add_chunk(3, FileBytes(10, 0x33));
  writer.finish(4);
  failure_text(Status::recording_cut_short, [&] { const RecordingFile whole(path_, false); });
  const RecordingFile recording(path_, true);
  RecordPlace place;
  recording.next(place);
  const std::optional<Record> chunk = recording.next(place);
  ASSERT_TRUE(chunk && std::holds_alternative<RecordedChunk>(*chunk));
  EXPECT_EQ(std::get<RecordedChunk>(*chunk).bytes, FileBytes(3000, 0x11));
  EXPECT_FALSE(recording.next(place).has_value());
  EXPECT_EQ(read_file(path_).size(), place.offset);
}

TEST_F(RecordingWriterTest, AFullDiskAtTheStartLeavesNoFile) {
  {
    const FileSizeLimit limit(16);
    failure_text(Status::cannot_write_recording, [&] { const RecordingWriter writer(path_, {}); });
  }
  EXPECT_FALSE(std::filesystem::exists(path_));
}

}  // namespace
}  // namespace zelk::simulator
