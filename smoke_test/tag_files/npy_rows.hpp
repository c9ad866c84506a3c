// Tags as an array file of NumPy, format version 1.0; docs/saved-tags.md explains it.
//
//   offset  bytes
//        0      6  0x93, then "NUMPY"
//        6      2  1 and 0, the version
//        8      2  bytes from here to the first row: 182, little-endian
//       10    181  the text of a Python dictionary, which ends with the number of rows,
//                  and spaces
//      191      1  a line feed
//      192     16  the first row:
//        + 0    1    channel
//        + 1    7    0x00
//        + 8    8    timestamp_ps, little-endian, two's complement
//      208     16  the second row, and so on
//
// A row has the layout of a TimeTag in memory. The text keeps its room for the largest
// number of rows that a file can have, so that the number can grow in place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "timing/time_tag.hpp"

namespace npy {

inline constexpr std::size_t header_bytes = 192;
inline constexpr std::size_t row_bytes = 16;

static_assert(sizeof(zelk::timing::TimeTag) == row_bytes);
static_assert(offsetof(zelk::timing::TimeTag, channel) == 0);
static_assert(offsetof(zelk::timing::TimeTag, timestamp_ps) == 8);

// The first header_bytes of a file with so many rows, byte for byte as NumPy writes
// them.
std::string header(std::uint64_t rows);

// Puts the row of each tag with a channel up to 3 at `at`, where there is room for all
// of them, and returns the end of the rows.
char* put_rows(std::span<const zelk::timing::TimeTag> tags, char* at);

}  // namespace npy
