// Tags as text, which the port sim://tags plays: the line "channel,timestamp_ps", and
// then one line per tag, such as "0,8584904". Lines end in a line feed.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "timing/time_tag.hpp"

namespace csv {

inline constexpr std::string_view header = "channel,timestamp_ps\n";
inline constexpr std::size_t most_row_bytes = 23;  // digit, comma, 64 bits with a sign, line feed

// Puts the row of each tag with a channel up to 3 at `at`, where there is room for
// most_row_bytes per tag, and returns the end of the rows.
char* put_rows(std::span<const zelk::timing::TimeTag> tags, char* at);

}  // namespace csv
