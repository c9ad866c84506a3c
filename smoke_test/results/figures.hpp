// The figures of a run, in one table: what each is called, what it means, and its
// value as the report prints it, or would.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

struct RunRecord;  // run_record.hpp

struct Figure {
  enum class Shape {
    single,        // one value
    per_channel,   // one value per channel under one name
    channel_name,  // one value per channel, whose number takes the place of "%" in the name
  };

  std::string_view name;
  Shape shape;
  std::string_view unit;  // empty for counts and plain numbers
  std::string_view meaning;
  std::string_view absent;  // when a run does not have it; empty: each report has it
  // The value as printed. `channel` is 0 for a single value. None: the run does not
  // have it.
  std::optional<std::string> (*value)(const RunRecord& record, std::size_t channel);
};

std::span<const Figure> figures();

// The name with the channel's number in it, where it has one.
std::string figure_name(const Figure& figure, std::size_t channel);

// A figure, or the one for a channel of those that have the number in their name.
struct NamedFigure {
  const Figure* figure = nullptr;  // null: there is none
  std::optional<std::size_t> channel;
};

NamedFigure find_figure(std::string_view name);

// The name of the figure that was probably meant; empty when none is near.
std::string nearest_figure(std::string_view name);
