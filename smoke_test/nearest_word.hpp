// The word that was probably meant.
#pragma once

#include <span>
#include <string>
#include <string_view>

// The word that takes the fewest changes to become `text`: a character more, less
// or another one, or two neighbours in each other's place. Empty when even that one
// takes more than one change for three characters. The first one when several are as
// near. Empty words are none.
std::string nearest_word(std::string_view text, std::span<const std::string> words);
