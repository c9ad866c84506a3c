// The outcome of a run in one line, for whoever sits in front of the terminal.
// Scripts read the exit status instead.
#pragma once

#include <cstddef>
#include <string>

#include "smoke_test/analysis.hpp"
#include "smoke_test/byte_probe.hpp"
#include "smoke_test/config.hpp"

// The limits that a run was asked to keep.
struct LimitCounts {
  std::size_t given = 0;
  std::size_t not_met = 0;
};

// Why the run passed or failed, and what to try next, without a line feed. The
// signal is the one that ended the capture early, or 0. Nothing for a status that
// has its own line: the run failed. The pair of the settings was validated.
std::string verdict_in_words(const Config& config, const Analysis& analysis,
                             int interrupting_signal, int exit_status, LimitCounts limits = {});

// The same for a byte probe.
std::string byte_probe_in_words(const ByteProbe& probe);

// Writes the line to standard error when that is a terminal that takes it at once.
void show_verdict(const std::string& line);
