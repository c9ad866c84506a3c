// The header of a NumPy array file, and the one array of which tags are read:
//
//   byte 0      0x93 "NUMPY"
//   byte 6      version: 1 0, or 2 0
//   byte 8      length of the text in bytes, little-endian: 2 bytes in version
//               1.0, 4 bytes in 2.0
//   then        the text: a Python dictionary, blanks, and a line feed
//   then        the rows, 16 bytes each:
//
//     byte 0      channel, 0 to 3
//     bytes 1..7  padding, of any value
//     bytes 8..   time in ps, signed, little-endian
//
// NumPy writes the same dictionary always in the same way, so it is compared
// and not interpreted. Nothing but the number of rows may differ in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zelk::simulator::npy {

inline constexpr std::string_view magic = "\x93NUMPY";
inline constexpr std::size_t version_bytes = 2;
inline constexpr std::size_t row_bytes = 16;
inline constexpr std::size_t time_offset_bytes = 8;

// The text of version 1.0 is never longer; this array's has some 120 bytes.
inline constexpr std::uint32_t max_text_bytes = 65535;

// What NumPy writes for the rows above.
inline constexpr std::string_view row_type =
    "[('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<i8')]";

// How many bytes say the text's length. Throws Failure for another version than
// 1.0 and 2.0. `path` names the file, here and below.
std::size_t length_bytes(std::uint8_t major, std::uint8_t minor, const std::string& path);

// The number of rows that the header's text tells. Throws Failure unless the
// text is that of such an array.
std::uint64_t rows_told(std::string_view text, const std::string& path);

// Throws the refusal of a header that `reason` speaks of.
[[noreturn]] void refuse_header(const std::string& path, const std::string& reason);

}  // namespace zelk::simulator::npy
