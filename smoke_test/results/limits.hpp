// How conditions are read, and how they judge a run.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "smoke_test/results/condition.hpp"
#include "smoke_test/results/run_record.hpp"

// Reads one condition. Throws std::runtime_error with a line that names what cannot
// be read, or the figure that does not exist.
Condition read_condition(std::string_view text);

// Reads conditions that are separated by commas. Throws what read_condition()
// throws.
std::vector<Condition> read_conditions(std::string_view texts);

// Reads a file with one condition per line; "#" begins a comment. Throws
// std::runtime_error with a line that names the file, and the line in it. Only a
// plain file is read.
std::vector<Condition> read_limits_file(const std::string& path);

// Judges what the run came to, after its analysis.
LimitOutcome judge(const Condition& condition, const RunRecord& record);

// One line for each limit that does not hold, on standard error. Returns how many
// there are. Each has its outcome.
std::size_t print_limits_not_met(std::span<const Limit> limits);
