// The one exception type for device failures, and the two functions that build
// it from a library status. Usable from any thread.
#pragma once

#include <array>
#include <stdexcept>
#include <string>

#include "timing/c_api/zelk_timing.h"

namespace zelk::timing {

// Marks, in Error::status, that discovery found no device; never a library's.
inline constexpr qx_status no_device_found_status = -5;

// Status of a stream read during which nothing arrived. Not a failure.
inline constexpr qx_status read_timeout_status = -3;

// Statuses with which a unit whose reference clock cannot be controlled answers
// a call about it. What a status means depends on the call: this -3 is no
// time-out of a read.
inline constexpr std::array<qx_status, 3> fixed_clock_statuses{-3, -4, -7};

class Error : public std::runtime_error {
 public:
  Error(const std::string& message, qx_status code) : std::runtime_error(message), status(code) {}

  qx_status status;  // the code that caused the error, unchanged
};

namespace detail {

// Throws Error with "<what>: <status text>", followed by " (<detail>)" when
// `detail` is neither null nor empty.
[[noreturn]] void throw_status(qx_status status, const char* what, const char* detail);

// Throws the Error for a failed call `what` on `device`, whose last error text
// becomes the detail; a null device gives none. Call it with a non-zero status.
[[noreturn]] void check(qx_status status, const char* what, const qx_device* device);

}  // namespace detail
}  // namespace zelk::timing
