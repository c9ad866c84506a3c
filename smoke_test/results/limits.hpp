// Conditions that a run has to meet beyond its verdict: how they are read, and
// what came of them.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "smoke_test/results/decimal.hpp"

struct Figure;     // figures.hpp
struct RunRecord;  // run_record.hpp

enum class Relation { equal, less, at_most, greater, at_least };

// FIGURE OP NUMBER, as in "coincidences>=4000" or "rate_hz[2]<1e6".
struct Condition {
  std::string text;  // as given, without the spaces around it
  const Figure* figure;
  // Of a figure with a value per channel; none: it holds for each channel of the
  // mask.
  std::optional<std::size_t> channel;
  Relation relation;
  Decimal number;
};

struct LimitOutcome {
  bool met = false;
  // The value as printed. Of a figure that was asked for on several channels, those
  // of the channels on which the condition does not hold, or else of all.
  std::string seen;
};

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

// One line for each condition that does not hold, on standard error. Returns how
// many there are.
std::size_t print_limits_not_met(std::span<const Condition> conditions,
                                 std::span<const LimitOutcome> outcomes);
