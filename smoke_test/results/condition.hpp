// A condition that a run has to meet beyond its verdict, and what came of it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "smoke_test/results/decimal.hpp"

struct Figure;  // figures.hpp

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

// A condition of a run.
struct Limit {
  Condition condition;
  std::optional<LimitOutcome> outcome = std::nullopt;  // none: the run has not come so far
};
