#include "smoke_test/tag_files/npy_rows.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <vector>

namespace {

using zelk::timing::TimeTag;
using namespace std::string_literals;

// A header as the format's own description makes it: 10 bytes, then a text of 182.
std::string expected_header(const std::string& rows) {
  const std::string text =
      "{'descr': [('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<i8')], "
      "'fortran_order': False, 'shape': (" +
      rows + ",), }";
  return "\x93NUMPY\x01\x00\xB6\x00"s + text + std::string(181 - text.size(), ' ') + "\n";
}

TEST(NpyHeader, TellsTheNumberOfRows) {
  EXPECT_EQ(npy::header(0), expected_header("0"));
  EXPECT_EQ(npy::header(384019), expected_header("384019"));
}

// 2^63 bytes of 16 are 2^59 rows.
TEST(NpyHeader, HasOneLengthForEveryNumberThatAFileCanHold) {
  EXPECT_EQ(npy::header(0).size(), 192U);
  EXPECT_EQ(npy::header(std::uint64_t{1} << 59), expected_header("576460752303423488"));
  EXPECT_EQ(npy::header(std::uint64_t{1} << 59).size(), 192U);
}

std::string rows_of(const std::vector<TimeTag>& tags) {
  std::string room(tags.size() * npy::row_bytes, '?');
  room.resize(static_cast<std::size_t>(npy::put_rows(tags, room.data()) - room.data()));
  return room;
}

TEST(NpyRows, AreAChannelSevenZerosAndALittleEndianTime) {
  EXPECT_EQ(rows_of({{0, 0}}), std::string(16, '\0'));
  EXPECT_EQ(rows_of({{3, 0x0123456789ABCDEF}, {1, 1}}),
            "\x03\0\0\0\0\0\0\0\xEF\xCD\xAB\x89\x67\x45\x23\x01"
            "\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0"s);
}

TEST(NpyRows, HoldEveryTimeOf64Bits) {
  EXPECT_EQ(rows_of({{2, -1}}), "\x02\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s);
  EXPECT_EQ(rows_of({{2, std::numeric_limits<std::int64_t>::min()}}),
            "\x02\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x80"s);
  EXPECT_EQ(rows_of({{2, std::numeric_limits<std::int64_t>::max()}}),
            "\x02\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F"s);
}

// What lies between the channel and the time of a tag in memory.
TEST(NpyRows, KeepNothingOfWhatIsBehindAChannelInMemory) {
  alignas(TimeTag) std::array<unsigned char, sizeof(TimeTag)> memory{};
  memory.fill(0xFF);
  auto* const tag = new (memory.data()) TimeTag;
  tag->channel = 1;
  tag->timestamp_ps = 2;
  std::string row(npy::row_bytes, '?');
  npy::put_rows({tag, 1}, row.data());
  EXPECT_EQ(row, "\x01\0\0\0\0\0\0\0\x02\0\0\0\0\0\0\0"s);
}

TEST(NpyRows, LeaveOutChannelsAbove3) {
  EXPECT_EQ(rows_of({{4, 1}, {3, 2}, {7, 3}, {255, 4}}), "\x03\0\0\0\0\0\0\0\x02\0\0\0\0\0\0\0"s);
  EXPECT_EQ(rows_of({{4, 1}}), "");
  EXPECT_EQ(rows_of({}), "");
}

// A reader may take the rows for tags as they lie in memory.
TEST(NpyRows, HaveTheLayoutOfATagInMemory) {
  const std::string row = rows_of({{2, -123456789}});
  TimeTag tag;
  std::memcpy(&tag.channel, row.data() + offsetof(TimeTag, channel), sizeof(tag.channel));
  std::memcpy(&tag.timestamp_ps, row.data() + offsetof(TimeTag, timestamp_ps),
              sizeof(tag.timestamp_ps));
  EXPECT_EQ(tag, (TimeTag{2, -123456789}));
}

}  // namespace
