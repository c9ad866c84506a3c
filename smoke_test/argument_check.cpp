#include "smoke_test/argument_check.hpp"

#include <stdexcept>
#include <vector>

#include "smoke_test/conversions.hpp"
#include "smoke_test/nearest_word.hpp"
#include "smoke_test/options.hpp"

namespace {

constexpr const char* keys_are_listed = "arguments are key=value, and --help lists the keys";

ArgumentRemark same_for_both(const std::string& text) {
  return {.note = text, .refusal = text};
}

ArgumentRemark without_equals(std::string_view argument, const std::string& key) {
  const std::string fault =
      (argument.empty() ? "an empty argument" : std::string(argument)) + " has no \"=\"; ";
  if (const Option* const option = find_option(key)) {
    return same_for_both(
        fault + "write " + key + "=VALUE" +
        (option->value.allowed != nullptr ? "; " + option->value.allowed(option->unit) : ""));
  }
  const std::string nearest = nearest_key(key);
  return same_for_both(fault +
                       (nearest.empty() ? keys_are_listed : "did you mean " + nearest + "=VALUE?"));
}

ArgumentRemark unknown_key(std::string_view argument, std::string_view written,
                           const std::string& key) {
  if (key.empty()) {
    return same_for_both(std::string(argument) + " has no key; " + keys_are_listed);
  }
  const std::string nearest = nearest_key(key);
  return same_for_both(
      std::string(written) + " is unknown; " +
      (nearest.empty() ? "--help lists the keys" : "did you mean " + nearest + "?"));
}

// A value that was read, but not as it is written.
ArgumentRemark read_otherwise(const Option& option, const Reading& reading,
                              const std::string& written, const std::string& value) {
  Config config;
  option.value.apply(config, value);
  const std::string as_read = option.value.as_read(config, option.unit);
  const std::string allowed = "; " + option.value.allowed(option.unit);
  if (reading.length < value.size()) {
    return {.note = written + " is read as " + as_read,
            .refusal = written + ": \"" + value.substr(reading.length) +
                       "\" stands behind the number" + allowed};
  }
  return {.note = written + " is read as " + as_read + allowed,
          .refusal = option.value.word != nullptr
                         ? written + " is none of its words" + allowed
                         : written + " would be read as " + as_read + allowed};
}

ArgumentRemark unreadable(const Option& option, const std::string& fault) {
  return same_for_both(fault + "; " + option.value.allowed(option.unit));
}

// `written` is the argument as it is quoted.
std::optional<ArgumentRemark> check_value(const Option& option, const std::string& written,
                                          const std::string& value) {
  if (option.value.read == nullptr) {
    return std::nullopt;
  }
  try {
    const Reading reading = option.value.read(value);
    if (reading.length == value.size() && reading.kept) {
      return std::nullopt;
    }
    return read_otherwise(option, reading, written, value);
  } catch (const std::invalid_argument&) {
    return unreadable(option, written + (value.empty() ? " has no value" : " cannot be read"));
  } catch (const std::out_of_range&) {
    return unreadable(option, written + " is beyond what can be read");
  }
}

}  // namespace

std::optional<ArgumentRemark> check_argument(std::string_view argument) {
  const SplitArgument split = split_argument(argument);
  const std::string key = lower_ascii(std::string(split.key));
  if (!split.value) {
    return without_equals(argument, key);
  }
  if (const Option* const option = find_option(key)) {
    const std::string value(*split.value);
    return check_value(*option, std::string(split.key) + "=" + value, value);
  }
  return unknown_key(argument, split.key, key);
}

std::string nearest_key(std::string_view text) {
  std::vector<std::string> keys;
  for (const Option& option : options()) {
    keys.insert(keys.end(), option.keys.begin(), option.keys.end());
  }
  return nearest_word(text, keys);
}

bool asks_for_strictness(std::span<const std::string> arguments) {
  Config config;
  for (const std::string& argument : arguments) {
    if (lower_ascii(std::string(split_argument(argument).key)) == "strict") {
      apply_argument(config, argument);
    }
  }
  return config.strict;
}
