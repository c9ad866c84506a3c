#include "smoke_test/tag_files/csv_rows.hpp"

#include <charconv>

using zelk::timing::TimeTag;

namespace csv {

char* put_rows(std::span<const TimeTag> tags, char* at) {
  constexpr std::size_t most_time_bytes = 20;  // a sign and 19 digits
  static_assert(2 + most_time_bytes + 1 == most_row_bytes);
  for (const TimeTag& tag : tags) {
    if (tag.channel < zelk::timing::channel_count) {
      *at++ = static_cast<char>('0' + tag.channel);
      *at++ = ',';
      at = std::to_chars(at, at + most_time_bytes, tag.timestamp_ps).ptr;
      *at++ = '\n';
    }
  }
  return at;
}

}  // namespace csv
