// Texts that somebody else wrote, a port or a path, as a message shows them: in
// one line and of bounded length.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zelk::simulator {

// The most that a message shows of one such text.
inline constexpr std::size_t max_shown_bytes = 200;

// The text with each control character written out ("\n", "\r", "\t", "\x1b").
// Of one that is then longer than `max_bytes`, its beginning and its end with
// "..." between them, cut between characters of UTF-8.
std::string in_one_line(std::string_view text, std::size_t max_bytes = max_shown_bytes);

// The text in one line, between backquotes.
std::string named(std::string_view text);

// The text in one line, between quotation marks.
std::string quoted(std::string_view text);

}  // namespace zelk::simulator
