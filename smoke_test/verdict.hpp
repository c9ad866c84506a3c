// The exit status, which is what scripts read.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr int exit_success = 0;   // the pair saw tags and coincidences
inline constexpr int exit_no_bytes = 1;  // byte probe: nothing arrived
inline constexpr int exit_failure = 2;   // the run failed before its end
inline constexpr int exit_no_coincidences = 3;
inline constexpr int exit_limits_not_met = 4;  // in place of success
inline constexpr int exit_signal_base = 128;   // plus the signal that ended the capture

// The status of a run whose report was printed. `signal` is the number of the
// signal that ended the capture early, or 0. Limits that are not met take away a
// success and nothing else.
constexpr int verdict(std::size_t tags_a, std::size_t tags_b, std::uint64_t coincidences,
                      int signal, std::size_t limits_not_met = 0) {
  if (signal != 0) {
    return exit_signal_base + signal;
  }
  if (tags_a == 0 || tags_b == 0 || coincidences == 0) {
    return exit_no_coincidences;
  }
  return limits_not_met == 0 ? exit_success : exit_limits_not_met;
}

// The same for a byte probe: any byte at all, even 0x00, is a sign of life.
constexpr int byte_probe_verdict(std::uint64_t payload_bytes, int signal) {
  if (signal != 0) {
    return exit_signal_base + signal;
  }
  return payload_bytes != 0 ? exit_success : exit_no_bytes;
}
