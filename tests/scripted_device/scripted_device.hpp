// A drop-in libzelk_timing.so.0 that answers from a script and logs every call.
// Programs that link it control it through this header; a whole program takes
// its script from the file that ZELK_SCRIPT names and appends its log, line by
// line as the calls return, to the file that ZELK_SCRIPT_LOG names.
//
// One line per call: the function, its arguments, what the caller had put into
// the records to be filled ("zeroed" or the values), and " -> " with the status
// or the result. A line ends in " device=closed" or " device=foreign" when the
// handle was no open one, and in " during_read" when another thread was inside
// a stream read of the same library. Arguments are logged in decimal, masks and
// codes in hexadecimal.
//
// The functions may be called from any thread; load() only while no other
// thread is inside the library.
#pragma once

#include <string>
#include <vector>

#include "tests/scripted_device/script.hpp"

namespace scripted_device {

// Starts over with this script: empty log, no device open.
void load(Script script);

// Every call since load(), in the order in which the calls returned.
std::vector<std::string> calls();

}  // namespace scripted_device
