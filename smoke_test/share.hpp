// A part of a whole.
#pragma once

#include <cstdint>
#include <optional>

// None of nothing.
inline std::optional<double> share(std::uint64_t part, std::uint64_t whole) {
  return whole != 0 ? std::optional(static_cast<double>(part) / static_cast<double>(whole))
                    : std::nullopt;
}
