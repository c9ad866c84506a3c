// What the smoke test prints about a run, on standard output. (What it says of
// itself stands in help.hpp.) The figures arrive calculated.
//
// Floating-point values are fixed-point with 3 decimals: print_report() sets
// the stream so once, and it stays so.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "smoke_test/analysis.hpp"
#include "smoke_test/byte_probe.hpp"
#include "smoke_test/config.hpp"
#include "smoke_test/device_settings.hpp"
#include "timing/reference_clock.hpp"

// One line with the state of the reference clock, each key beginning with
// `prefix`; written out at once, since it may be all that a run gets to say. A
// null prefix puts standard output into its bad state.
void print_ref_status(const zelk::timing::ReferenceClockStatus& status, const char* prefix);

// The line that stands in for it on a unit whose reference clock cannot be
// controlled.
void print_ref_unavailable();

// Two lower-case hexadecimal digits a byte, separated by single spaces.
std::string bytes_to_hex(const std::vector<std::uint8_t>& bytes);

// The report's first two lines: the device, and how its stream was opened.
void print_device_and_stream(const Config& config, const zelk::timing::Identity& identity);

// The twelve residue lines, three per channel, of lists of times (ps).
void print_mod_stats(const std::array<std::vector<std::int64_t>, 4>& per_channel);

// The whole report of a capture.
void print_report(const Config& config, const DeviceSettings& settings, const Analysis& analysis);

// The whole report of a byte probe.
void print_byte_probe(const Config& config, const zelk::timing::Identity& identity,
                      const ByteProbe& probe);

// Brings everything printed to its destination. Throws std::runtime_error when
// any of it could not be written.
void finish_report();
