// The key that was probably meant.
#pragma once

#include <string_view>

// The key or alias, in lower case, that takes the fewest changes to become
// `text`: a character more, less or another one, or two neighbours in each
// other's place. Empty when even that one takes more than one change for three
// characters. The first one of the table when several are as near.
std::string_view nearest_key(std::string_view text);
