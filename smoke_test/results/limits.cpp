#include "smoke_test/results/limits.hpp"

#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "smoke_test/results/figures.hpp"
#include "smoke_test/standard_streams.hpp"

namespace {

constexpr std::string_view spaces = " \t\r";
constexpr std::string_view relation_characters = "<>=";

std::string_view trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(spaces);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(spaces) + 1 - first);
}

struct RelationText {
  std::string_view text;
  Relation relation;
};

constexpr std::array<RelationText, 5> relation_texts{{
    {"<=", Relation::at_most},
    {">=", Relation::at_least},
    {"<", Relation::less},
    {">", Relation::greater},
    {"=", Relation::equal},
}};

[[noreturn]] void refuse(std::string_view text, const std::string& reason) {
  throw std::runtime_error("cannot read the condition \"" + std::string(text) + "\": " + reason);
}

// Takes a relation from the front of the text.
Relation take_relation(std::string_view condition, std::string_view& text) {
  for (const RelationText& candidate : relation_texts) {
    if (text.starts_with(candidate.text)) {
      text.remove_prefix(candidate.text.size());
      return candidate.relation;
    }
  }
  refuse(condition, "it needs one of = < <= > >= behind a figure, and a number");
}

// Takes "[N]" from the end of a figure's name.
std::optional<std::size_t> take_channel(std::string_view condition, std::string_view& name) {
  const std::size_t bracket = name.find('[');
  if (bracket == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view number = name.substr(bracket);
  constexpr std::size_t length = 3;
  const char digit = number.size() == length && number.back() == ']' ? number[1] : ' ';
  if (digit < '0' || digit >= '0' + zelk::timing::channel_count) {
    refuse(condition, "a channel is [0], [1], [2] or [3]");
  }
  name = name.substr(0, bracket);
  return static_cast<std::size_t>(digit - '0');
}

const LimitOutcome not_available{.met = false, .seen = "not available"};

bool holds(const Decimal& value, Relation relation, const Decimal& number) {
  switch (relation) {
    case Relation::equal:
      return value == number;
    case Relation::less:
      return value < number;
    case Relation::at_most:
      return value <= number;
    case Relation::greater:
      return value > number;
    case Relation::at_least:
      return value >= number;
  }
  return false;
}

LimitOutcome judge_value(const Condition& condition, const std::optional<std::string>& value) {
  if (!value) {
    return not_available;
  }
  // The report also prints what is no number, such as the width "inf".
  const std::optional<Decimal> number = Decimal::read(*value);
  return {.met = number && holds(*number, condition.relation, condition.number), .seen = *value};
}

}  // namespace

Condition read_condition(std::string_view text) {
  const std::string_view condition = trim(text);
  const std::size_t name_length = condition.find_first_of(relation_characters);
  std::string_view name = trim(condition.substr(0, name_length));
  std::string_view rest =
      name_length == std::string_view::npos ? std::string_view() : condition.substr(name_length);
  const Relation relation = take_relation(condition, rest);
  const std::optional<Decimal> number = Decimal::read(trim(rest));
  if (!number) {
    refuse(condition, "\"" + std::string(trim(rest)) + "\" is no number");
  }
  const std::optional<std::size_t> channel = take_channel(condition, name);
  const NamedFigure named = find_figure(name);
  if (named.figure == nullptr) {
    const std::string nearest = nearest_figure(name);
    refuse(condition, "no figure is called \"" + std::string(name) + "\"" +
                          (nearest.empty() ? "" : "; did you mean " + nearest + "?"));
  }
  if (channel && named.figure->shape != Figure::Shape::per_channel) {
    refuse(condition, std::string(name) + " has no value per channel");
  }
  return {.text = std::string(condition),
          .figure = named.figure,
          .channel = channel ? channel : named.channel,
          .relation = relation,
          .number = *number};
}

std::vector<Condition> read_conditions(std::string_view texts) {
  std::vector<Condition> conditions;
  for (;;) {
    const std::size_t comma = texts.find(',');
    conditions.push_back(read_condition(texts.substr(0, comma)));
    if (comma == std::string_view::npos) {
      return conditions;
    }
    texts.remove_prefix(comma + 1);
  }
}

std::vector<Condition> read_limits_file(const std::string& path) {
  // Opening a pipe would wait for somebody to write into it.
  std::error_code unknown;
  const bool is_plain = std::filesystem::is_regular_file(path, unknown);
  std::ifstream file;
  if (is_plain) {
    file.open(path);
  }
  if (!file.is_open()) {
    throw std::runtime_error("cannot read the limits file " + path);
  }
  std::vector<Condition> conditions;
  std::string line;
  for (std::size_t number = 1; std::getline(file, line); ++number) {
    const std::string_view text = trim(std::string_view(line).substr(0, line.find('#')));
    if (text.empty()) {
      continue;
    }
    try {
      conditions.push_back(read_condition(text));
    } catch (const std::runtime_error& error) {
      throw std::runtime_error(path + ":" + std::to_string(number) + ": " + error.what());
    }
  }
  if (file.bad()) {
    throw std::runtime_error("cannot read the limits file " + path);
  }
  return conditions;
}

LimitOutcome judge(const Condition& condition, const RunRecord& record) {
  if (condition.figure->shape != Figure::Shape::per_channel || condition.channel) {
    return judge_value(condition, condition.figure->value(record, condition.channel.value_or(0)));
  }
  std::string met;
  std::string not_met;
  for (std::size_t channel = 0; channel < zelk::timing::channel_count; ++channel) {
    if ((record.config.channel_mask >> channel & 1U) == 0) {
      continue;
    }
    const LimitOutcome of_channel =
        judge_value(condition, condition.figure->value(record, channel));
    std::string& list = of_channel.met ? met : not_met;
    list += list.empty() ? "" : ", ";
    list += "channel " + std::to_string(channel) + ": " + of_channel.seen;
  }
  if (met.empty() && not_met.empty()) {
    return not_available;
  }
  return not_met.empty() ? LimitOutcome{.met = true, .seen = met}
                         : LimitOutcome{.met = false, .seen = not_met};
}

std::size_t print_limits_not_met(std::span<const Limit> limits) {
  std::size_t count = 0;
  for (const auto& [condition, outcome] : limits) {
    if (!outcome->met) {
      ++count;
      print_error("not met: " + condition.text + " (" + outcome->seen + ")");
    }
  }
  return count;
}
