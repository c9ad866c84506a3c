#include "smoke_test/tag_files/csv_rows.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace {

using zelk::timing::TimeTag;

std::string rows_of(const std::vector<TimeTag>& tags) {
  std::string room(tags.size() * csv::most_row_bytes, '?');
  room.resize(static_cast<std::size_t>(csv::put_rows(tags, room.data()) - room.data()));
  return room;
}

TEST(CsvRows, AreAChannelACommaAndATime) {
  EXPECT_EQ(csv::header, "channel,timestamp_ps\n");
  EXPECT_EQ(rows_of({{0, 8584904}, {1, 9093711}, {3, 0}, {2, 14660155019263}}),
            "0,8584904\n1,9093711\n3,0\n2,14660155019263\n");
}

TEST(CsvRows, HaveRoomForEveryTimeOf64Bits) {
  EXPECT_EQ(rows_of({{3, std::numeric_limits<std::int64_t>::min()},
                     {3, std::numeric_limits<std::int64_t>::max()},
                     {0, -1}}),
            "3,-9223372036854775808\n3,9223372036854775807\n0,-1\n");
  EXPECT_EQ(rows_of({{3, std::numeric_limits<std::int64_t>::min()}}).size(), csv::most_row_bytes);
}

TEST(CsvRows, LeaveOutChannelsAbove3) {
  EXPECT_EQ(rows_of({{4, 1}, {3, 2}, {10, 3}, {255, 4}}), "3,2\n");
  EXPECT_EQ(rows_of({}), "");
}

}  // namespace
