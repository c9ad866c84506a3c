// From all arguments to the run's settings, leniently or strictly.
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "smoke_test/config.hpp"

// An error whose line names only the conversion that failed, and a note that says
// more to a person who watches.
class NotedError : public std::runtime_error {
 public:
  NotedError(const std::string& what, std::string note)
      : std::runtime_error(what), note_(std::move(note)) {}

  [[nodiscard]] const std::string& note() const { return note_; }

 private:
  std::string note_;
};

// Applies the arguments in their order. On a terminal each of them that is not
// taken as it is written makes a note; with strict=1 among them the first one is an
// error. Throws what apply_argument() throws, std::runtime_error for the refusal,
// and NotedError for a number that cannot be read, on a terminal.
void apply_arguments(Config& config, std::span<const std::string> arguments);
