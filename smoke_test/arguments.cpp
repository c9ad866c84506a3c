#include "smoke_test/arguments.hpp"

#include <unistd.h>

#include <optional>

#include "smoke_test/argument_check.hpp"
#include "smoke_test/options.hpp"
#include "smoke_test/standard_streams.hpp"

namespace {

void apply_with_note(Config& config, std::string_view argument, const ArgumentRemark& remark) {
  try {
    apply_argument(config, argument);
  } catch (const std::logic_error& error) {
    throw NotedError(error.what(), remark.note);
  }
  print_note(remark.note);
}

void apply_checked(Config& config, std::string_view argument, bool strict) {
  const std::optional<ArgumentRemark> remark = check_argument(argument);
  if (!remark) {
    apply_argument(config, argument);
  } else if (strict) {
    throw std::runtime_error(remark->refusal);
  } else {
    apply_with_note(config, argument, *remark);
  }
}

}  // namespace

void apply_arguments(Config& config, std::span<const std::string> arguments) {
  const bool strict = asks_for_strictness(arguments);
  const bool check = strict || isatty(STDERR_FILENO) != 0;
  for (const std::string& argument : arguments) {
    check ? apply_checked(config, argument, strict) : apply_argument(config, argument);
  }
}
