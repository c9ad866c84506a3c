// Numbers as text, without regard to the locale.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace zelk::simulator {

// The number that the whole of `text` says; none when it says anything else or
// one that `Number` cannot hold.
template <typename Number>
std::optional<Number> number_from(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || rest != end) {
    return std::nullopt;
  }
  return number;
}

}  // namespace zelk::simulator
