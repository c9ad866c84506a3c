// What makes something of the text of an argument.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The text with every byte passed through tolower.
std::string lower_ascii(std::string text);

// Unsigned number, base 16 after "0x" or "0X" and base 10 otherwise. `length`
// becomes the number of characters that were read. Throws what std::stoul throws.
unsigned long parse_prefixed(const std::string& text, std::size_t* length = nullptr);

// The same, cut to 32 bits.
std::uint32_t parse_u32(std::string text);
