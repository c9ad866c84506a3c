#include "simulator/signals/npy_tag_file.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "simulator/signals/tag_file.hpp"
#include "tests/simulator/expect_failure.hpp"
#include "tests/support/npy_bytes.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

using test_support::npy_beginning;
using test_support::npy_beginning_for;
using test_support::npy_dictionary;
using test_support::npy_row;
using Tags = std::vector<std::pair<int, std::int64_t>>;

class NpyTagFile : public testing::Test {
 protected:
  std::string write(const std::string& bytes, const char* name = "tags.npy") {
    const std::string path = directory_.path() / name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  static Tags read_file(const std::string& path) {
    Tags tags;
    for (const FileTag tag : read_tag_file(path)) {
      tags.emplace_back(tag.channel(), tag.time_ps());
    }
    return tags;
  }

  Tags read(const std::string& bytes) { return read_file(write(bytes)); }

  void expect_refused(const std::string& bytes, Status status, const std::string& before_path,
                      const std::string& behind_path) {
    const std::string path = write(bytes);
    EXPECT_EQ(failure_text(status, [&] { read_tag_file(path); }),
              before_path + " the tag file `" + path + '`' + behind_path);
  }

  void expect_header_refused(const std::string& bytes, const std::string& reason) {
    expect_refused(bytes, Status::malformed_tag_header, "the header of", ' ' + reason);
  }

  void expect_count_refused(const std::string& bytes, const std::string& reason) {
    const std::string path = write(bytes);
    EXPECT_EQ(failure_text(Status::tag_count_contradicted, [&] { read_tag_file(path); }),
              "the tag file `" + path + "` " + reason);
  }

  void expect_row_refused(const std::string& rows, Status status, const std::string& row,
                          const std::string& reason) {
    expect_refused(npy_beginning_for(rows.size() / 16) + rows, status, "row " + row + " of",
                   ' ' + reason + " (rows count from 0)");
  }

  test_support::TemporaryDirectory directory_;
};

const std::string not_ended =
    ": the run that saved it did not end; docs/saved-tags.md tells how to recover it";

TEST_F(NpyTagFile, GivesTheTagsInOrder) {
  EXPECT_EQ(read(npy_beginning_for(4) + npy_row(0, 0) + npy_row(3, 5) + npy_row(1, 5) +
                 npy_row(2, 2305843009213693951)),
            (Tags{{0, 0}, {3, 5}, {1, 5}, {2, 2305843009213693951}}));
}

// Byte for byte what NumPy 1.24 saves of one tag on channel 2 at 1000 ps.
TEST_F(NpyTagFile, IsWhatNumPySaves) {
  std::string bytes = "\x93NUMPY\x01" + std::string(1, '\0') + "\xb6" + std::string(1, '\0') +
                      "{'descr': [('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<i8')], "
                      "'fortran_order': False, 'shape': (1,), }";
  bytes += std::string(191 - bytes.size(), ' ') + '\n';
  bytes += std::string("\x02\0\0\0\0\0\0\0\xe8\x03\0\0\0\0\0\0", 16);
  EXPECT_EQ(read(bytes), (Tags{{2, 1000}}));
}

TEST_F(NpyTagFile, MayHoldNothing) {
  EXPECT_EQ(read(npy_beginning_for(0)), Tags{});
}

TEST_F(NpyTagFile, IsKnownByItsFirstBytesAndNotByItsName) {
  EXPECT_EQ(read_file(write(npy_beginning_for(1) + npy_row(1, 7), "tags.csv")), (Tags{{1, 7}}));
  EXPECT_EQ(read_file(write("channel,timestamp_ps\n1,7\n", "tags.npy")), (Tags{{1, 7}}));
  failure_text(Status::malformed_tag_line, [&] { read_file(write("\x93NUMP")); });
}

TEST_F(NpyTagFile, MayBeOfVersionTwo) {
  EXPECT_EQ(read(npy_beginning(npy_dictionary("(1,)"), 2) + npy_row(1, 7)), (Tags{{1, 7}}));
}

// A copy that NumPy makes of some of the rows brings no padding along.
TEST_F(NpyTagFile, PaddingMayHaveAnyValue) {
  EXPECT_EQ(read(npy_beginning_for(2) + npy_row(1, 7, '\xFF') + npy_row(0, 8, '\x5A')),
            (Tags{{1, 7}, {0, 8}}));
}

TEST_F(NpyTagFile, AHeaderThatIsCutShortIsRefusedWhereverItEnds) {
  for (const int version : {1, 2}) {
    const std::string whole = npy_beginning(npy_dictionary("(0,)"), version);
    for (std::size_t size = 6; size < whole.size(); ++size) {
      SCOPED_TRACE(size);
      expect_header_refused(whole.substr(0, size), "is cut short");
    }
  }
}

TEST_F(NpyTagFile, AHeaderOfAnotherKindIsRefused) {
  expect_header_refused(npy_beginning(npy_dictionary("(0,)"), 3),
                        "is of version 3.0, not 1.0 or 2.0");
  expect_header_refused(npy_beginning(npy_dictionary("(1,)", "'<i8'")) + "12345678",
                        "has rows of the type `'<i8'`, not `[('channel', '|u1'), ('', '|V7'), "
                        "('timestamp_ps', '<i8')]`");
  expect_header_refused(npy_beginning("{}"), "is not as NumPy writes it");
}

// No memory is asked for on the word of such a header.
TEST_F(NpyTagFile, AnEndlessHeaderIsRefused) {
  const std::string version_two = std::string("\x93NUMPY\x02") + '\0';
  expect_header_refused(version_two + "\xFF\xFF\xFF\xFF", "is too long");
  expect_header_refused(version_two + std::string("\0\0\1\0", 4), "is too long");
  expect_header_refused(version_two + std::string("\xFF\xFF\0\0", 4), "is cut short");
}

TEST_F(NpyTagFile, MoreRowsThanTheHeaderCountsAreRefused) {
  const std::string rows = npy_row(0, 1) + npy_row(0, 2);
  expect_count_refused(npy_beginning_for(0) + rows,
                       "holds 2 rows, but its header counts 0" + not_ended);
  expect_count_refused(npy_beginning_for(1) + rows,
                       "holds 2 rows, but its header counts 1" + not_ended);
  expect_count_refused(npy_beginning_for(0) + rows.substr(0, 16) + 'x',
                       "holds 1 row and 1 byte, but its header counts 0" + not_ended);
  expect_count_refused(npy_beginning_for(2) + rows + "abc",
                       "holds 2 rows and 3 bytes, but its header counts 2" + not_ended);
}

TEST_F(NpyTagFile, FewerRowsThanTheHeaderCountsAreRefused) {
  expect_count_refused(npy_beginning_for(2) + npy_row(0, 1),
                       "holds 1 row, but its header counts 2: it is cut short");
  expect_count_refused(npy_beginning_for(1) + npy_row(0, 1).substr(0, 15),
                       "holds 0 rows and 15 bytes, but its header counts 1: it is cut short");
}

// Rows for which no size in bytes exists, and no memory.
TEST_F(NpyTagFile, ACountThatNoFileCanHaveIsRefused) {
  for (const char* const count : {"1152921504606846976", "18446744073709551615"}) {
    expect_count_refused(
        npy_beginning(npy_dictionary("(" + std::string(count) + ",)")) + npy_row(0, 1),
        "holds 1 row, but its header counts " + std::string(count) + ": it is cut short");
  }
}

TEST_F(NpyTagFile, ChannelsBeyondThreeAreRefusedByNumber) {
  for (const int channel : {4, 5, 127, 128, 255}) {
    expect_row_refused(npy_row(0, 1) + npy_row(channel, 2), Status::tag_channel_out_of_range, "1",
                       "has a channel beyond 3");
  }
}

TEST_F(NpyTagFile, TimesThatNoUnitShowsAreRefusedByNumber) {
  for (const std::int64_t time_ps :
       {std::int64_t{-1}, std::int64_t{1} << 61, INT64_MAX, INT64_MIN}) {
    expect_row_refused(npy_row(0, time_ps), Status::tag_time_out_of_range, "0",
                       "has a time outside 0 to 2^61 - 1 ps");
    expect_row_refused(npy_row(3, 9) + npy_row(0, 10) + npy_row(0, time_ps) + npy_row(1, 3),
                       Status::tag_time_out_of_range, "2", "has a time outside 0 to 2^61 - 1 ps");
  }
}

TEST_F(NpyTagFile, TimesMustNotFall) {
  expect_row_refused(npy_row(0, 5) + npy_row(1, 5) + npy_row(0, 4), Status::tag_out_of_order, "2",
                     "is earlier than the tag before it");
}

TEST_F(NpyTagFile, RowsAcrossReadBordersAreRefusedByNumberToo) {
  std::string rows;
  for (int i = 0; i < 70'000; ++i) {
    rows += npy_row(i % 4, i);
  }
  for (const std::size_t bad : {16'383U, 16'384U, 32'768U, 69'999U}) {
    std::string changed = rows;
    changed[16 * bad] = 9;
    expect_row_refused(changed, Status::tag_channel_out_of_range, std::to_string(bad),
                       "has a channel beyond 3");
  }
}

// Tags at any distance, and some at the same time.
Tags random_tags(std::mt19937_64& random) {
  Tags tags;
  std::int64_t time_ps = static_cast<std::int64_t>(random() >> (4 + random() % 60));
  for (std::size_t count = random() % 40'000; count > 0; --count) {
    tags.emplace_back(static_cast<int>(random() % 4), time_ps);
    time_ps += random() % 5 == 0 ? 0 : static_cast<std::int64_t>(random() >> (22 + random() % 42));
  }
  return tags;
}

TEST_F(NpyTagFile, GivesTheTagsThatTheSameTagsAsTextGive) {
  std::mt19937_64 random(12);
  for (int round = 0; round < 20; ++round) {
    const Tags tags = random_tags(random);
    std::string text = "channel,timestamp_ps\n";
    std::string rows;
    for (const auto& [channel, time_ps] : tags) {
      text += std::to_string(channel) + ',' + std::to_string(time_ps) + '\n';
      rows += npy_row(channel, time_ps, static_cast<char>(random()));
    }
    EXPECT_EQ(read(npy_beginning_for(tags.size()) + rows), tags);
    EXPECT_EQ(read(text), tags);
  }
}

TEST_F(NpyTagFile, FilesThatCannotBeReadAreRefusedLikeThoseOfText) {
  const std::string missing = directory_.path() / "missing.npy";
  EXPECT_EQ(failure_text(Status::cannot_open_tag_file, [&] { read_tag_file(missing); }),
            "cannot open the tag file `" + missing + "`: No such file or directory");
}

}  // namespace
}  // namespace zelk::simulator
