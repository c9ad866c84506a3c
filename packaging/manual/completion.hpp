// The shell's completion of the program's arguments.
#pragma once

#include <string>

// The template with what the tables say in place of its marks: the keys, the words that
// they take, those that take a file, and the ports of the simulated library with theirs.
// Throws std::runtime_error for a template that lacks a mark.
std::string completion(const std::string& text);
