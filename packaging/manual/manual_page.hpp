// The options as a section of the manual page, in the language of man(7).
#pragma once

#include <string>
#include <string_view>

// Every option of the table in its group: its keys, the words that it takes, its meaning,
// default and unit.
std::string option_entries();

// The text as man(7) shows it, whatever it says in that language.
std::string as_shown(std::string_view text);
