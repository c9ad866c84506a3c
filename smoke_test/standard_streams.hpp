// What the program makes of its standard descriptors, and its error line.
#pragma once

#include <string>
#include <string_view>

// Call it before anything is opened. A standard descriptor that is closed is
// occupied, so that no file and no device gets its number: writing to it fails as
// before. A write to a closed pipe, or beyond the largest size of a file, becomes
// an error of the stream instead of a signal that ends the program without a
// word.
void prepare_standard_streams();

// The text with each control character written out: "\n", "\r", "\t", "\x1b".
std::string without_control_characters(std::string_view text);

// Writes the one line that says why the run failed to standard error, and waits
// until it could be written, whatever signals are handled meanwhile.
void print_error(std::string_view text);

// Writes the text to standard error if that takes it at once; it is left out
// otherwise.
void print_if_ready(std::string_view text);

// Writes "note: " and the text as a line to standard error, for a person who
// watches: call it only when that is a terminal. While the terminal takes
// nothing, because it was stopped, the line is left out.
void print_note(std::string_view text);
