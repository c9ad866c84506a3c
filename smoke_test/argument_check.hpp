// What an argument says and the run would not do. The reader of the arguments
// is lenient: it takes what it understands and ignores the rest. This is where
// it is said that something was ignored, cut or taken for something else.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

// Each is one line, without its end, and may hold control characters of the
// argument.
struct ArgumentRemark {
  std::string note;     // for a run that goes on: how the argument is read
  std::string refusal;  // for a strict run, which ends: what is wrong, and what is allowed
};

// Nothing when the run goes by the argument as it is written, and for a word
// that is rejected, whose error says all. An argument whose conversion fails
// has a remark. Looks at this argument alone: the pair of channels and the
// transport are checked when all arguments are known.
std::optional<ArgumentRemark> check_argument(std::string_view argument);

// The key or alias that was probably meant, in lower case; empty when none is near.
std::string nearest_key(std::string_view text);

// Whether the last strict= among the arguments asks for a strict run. None of the
// others matters, be it wrong or not.
bool asks_for_strictness(std::span<const std::string> arguments);
