#include "simulator/signals/tag_file.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/simulator/expect_failure.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

using Tags = std::vector<std::pair<int, std::int64_t>>;

class TagFile : public testing::Test {
 protected:
  std::string write(const std::string& text) {
    const std::string path = directory_.path() / "tags.csv";
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  Tags read(const std::string& text) {
    Tags tags;
    for (const FileTag tag : read_tag_file(write(text))) {
      tags.emplace_back(tag.channel(), tag.time_ps());
    }
    return tags;
  }

  // The refusal must name the line and the file.
  void expect_refused(const std::string& text, Status status, const std::string& line) {
    SCOPED_TRACE(text);
    const std::string path = write(text);
    const std::string reason = failure_text(status, [&] { read_tag_file(path); });
    EXPECT_TRUE(reason.starts_with("line " + line + " of the tag file `" + path + "` ")) << reason;
  }

  test_support::TemporaryDirectory directory_;
};

TEST_F(TagFile, GivesTheTagsInOrder) {
  EXPECT_EQ(read("channel,timestamp_ps\n0,0\n3,5\n1,5\n2,2305843009213693951\n"),
            (Tags{{0, 0}, {3, 5}, {1, 5}, {2, 2305843009213693951}}));
}

TEST_F(TagFile, LineEndsAndTheLastLineMayVary) {
  EXPECT_EQ(read("channel,timestamp_ps\r\n0,7\r\n1,8\r\n"), (Tags{{0, 7}, {1, 8}}));
  EXPECT_EQ(read("channel,timestamp_ps\n0,7\n1,8"), (Tags{{0, 7}, {1, 8}}));
  EXPECT_EQ(read("channel,timestamp_ps\n0,7\n\n\r\n"), (Tags{{0, 7}}));
  EXPECT_EQ(read("channel,timestamp_ps"), Tags{});
}

TEST_F(TagFile, MalformedLinesAreRefusedByNumber) {
  expect_refused("", Status::malformed_tag_line, "1");
  expect_refused("0,1\n", Status::malformed_tag_line, "1");
  expect_refused("timestamp_ps,channel\n", Status::malformed_tag_line, "1");
  const std::string head = "channel,timestamp_ps\n0,1\n";
  for (const char* line : {"0",
                           "0,",
                           ",5",
                           "0;5",
                           "0,5,",
                           "0,5 ",
                           " 0,5",
                           "0, 5",
                           "+1,5",
                           "0,+5",
                           "x,5",
                           "0,x",
                           "0,5x",
                           "0,1.5",
                           "0,-5",
                           "-1,5",
                           "0,1e3",
                           "0,0x5",
                           "0,2305843009213693952",
                           "0,99999999999999999999"}) {
    expect_refused(head + line + "\n", Status::malformed_tag_line, "3");
  }
  expect_refused(head + "\n0,2\n", Status::malformed_tag_line, "4");
}

TEST_F(TagFile, ChannelsBeyondThreeAreRefused) {
  expect_refused("channel,timestamp_ps\n4,1\n", Status::tag_channel_out_of_range, "2");
  expect_refused("channel,timestamp_ps\n99999999999999999999,1\n", Status::tag_channel_out_of_range,
                 "2");
}

TEST_F(TagFile, TimesMustNotFall) {
  expect_refused("channel,timestamp_ps\n0,5\n1,5\n0,4\n", Status::tag_out_of_order, "4");
}

TEST_F(TagFile, FilesThatCannotBeReadAreRefused) {
  const std::string missing = directory_.path() / "missing.csv";
  EXPECT_EQ(failure_text(Status::cannot_open_tag_file, [&] { read_tag_file(missing); }),
            "cannot open the tag file `" + missing + "`: No such file or directory");
  failure_text(Status::cannot_open_tag_file, [&] { read_tag_file(""); });
  const std::string directory = directory_.path();
  EXPECT_EQ(failure_text(Status::cannot_read_tag_file, [&] { read_tag_file(directory); }),
            "cannot read the tag file `" + directory + "`: it is no plain file");
}

// Keys that were meant to follow the path have become a part of it.
TEST_F(TagFile, AQuestionMarkInAMissingPathIsExplained) {
  EXPECT_EQ(failure_text(Status::cannot_open_tag_file, [&] { read_tag_file("none?loop=1"); }),
            "cannot open the tag file `none?loop=1`: No such file or directory (a `?` in the path "
            "is a part of it; keys are joined by `&`)");
}

// Opening it would wait for somebody who writes.
TEST_F(TagFile, APipeIsRefusedAtOnce) {
  const std::string pipe = directory_.path() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
  EXPECT_EQ(failure_text(Status::cannot_read_tag_file, [&] { read_tag_file(pipe); }),
            "cannot read the tag file `" + pipe + "`: it is no plain file");
}

TEST_F(TagFile, AnEndlessLineIsRefused) {
  expect_refused("channel,timestamp_ps\n0," + std::string(1'000'000, '1'),
                 Status::malformed_tag_line, "2");
}

TEST_F(TagFile, LinesAcrossReadBordersStayWhole) {
  std::string text = "channel,timestamp_ps\n";
  Tags expected;
  for (std::int64_t i = 0; i < 100'000; ++i) {
    expected.emplace_back(static_cast<int>(i % 4), i * 1'000'003);
    text += std::to_string(i % 4) + "," + std::to_string(i * 1'000'003) + "\n";
  }
  EXPECT_EQ(read(text), expected);
}

TEST(TagFileSource, PlaysTheFileOnce) {
  auto file = std::make_shared<FileTags>();
  file->emplace_back(std::uint8_t{3}, 11);
  file->emplace_back(std::uint8_t{0}, 12);
  TagFileSource source(file);
  ASSERT_NE(source.peek(), nullptr);
  EXPECT_EQ(source.peek()->channel, 3);
  EXPECT_EQ(source.peek()->time_ps, 11);
  EXPECT_EQ(source.peek()->amplitude_v, 2.5);
  source.pop();
  ASSERT_NE(source.peek(), nullptr);
  EXPECT_EQ(source.peek()->time_ps, 12);
  source.pop();
  EXPECT_EQ(source.peek(), nullptr);
}

TEST(TagFileSource, ALoopBeginsEachRoundTheGapAfterTheLastTag) {
  auto file = std::make_shared<FileTags>();
  file->emplace_back(std::uint8_t{3}, 11);
  file->emplace_back(std::uint8_t{0}, 15);
  TagFileSource source(file, 100);
  for (const std::int64_t time_ps : {11, 15, 115, 119, 219, 223}) {
    ASSERT_NE(source.peek(), nullptr);
    EXPECT_EQ(source.peek()->time_ps, time_ps);
    source.pop();
  }
}

TEST(TagFileSource, ALoopEndsAtTheEndOfTime) {
  auto file = std::make_shared<FileTags>();
  file->emplace_back(std::uint8_t{0}, 0);
  file->emplace_back(std::uint8_t{0}, end_of_time_ps / 4);
  TagFileSource source(file, 1);
  int tags = 0;
  for (; source.peek() != nullptr; source.pop()) {
    EXPECT_LT(source.peek()->time_ps, end_of_time_ps);
    ++tags;
  }
  EXPECT_EQ(tags, 6);
}

TEST(TagFileSource, ALoopOfNothingIsSilent) {
  TagFileSource source(std::make_shared<FileTags>(), 1);
  EXPECT_EQ(source.peek(), nullptr);
}

}  // namespace
}  // namespace zelk::simulator
