// What every fuzzer is made of: its entry, the input that it takes numbers and
// texts off, and the way in which it reports a finding.
//
// A fuzzer is one file that defines LLVMFuzzerTestOneInput() and judges what the
// product makes of the input by code of its own. Every input must lead to a
// verdict: one that asks for nothing sensible is cut down to something that does.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace zelk::fuzz {

using Bytes = std::vector<std::uint8_t>;

// Takes values off the front. What is not there any more reads as 0.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  [[nodiscard]] bool empty() const { return rest_.empty(); }
  [[nodiscard]] std::size_t size() const { return rest_.size(); }

  std::uint8_t byte() { return number<std::uint8_t>(); }
  bool flag() { return (byte() & 1U) != 0; }

  // Little-endian.
  template <std::integral Number>
  Number number() {
    std::uint64_t value = 0;
    const auto taken = bytes(sizeof(Number));
    for (std::size_t i = 0; i < taken.size(); ++i) {
      value |= std::uint64_t{taken[i]} << (8 * i);
    }
    return static_cast<Number>(value);
  }

  // 0 to `count` - 1, for a `count` of at most 256.
  std::size_t below(std::size_t count) { return byte() % count; }

  // The next bytes, at most `count` of them.
  std::span<const std::uint8_t> bytes(std::size_t count) {
    const auto taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

  // What stands before the next `end`, which is taken too, or everything.
  std::string text_until(char end) {
    const auto found = std::ranges::find(rest_, static_cast<std::uint8_t>(end));
    const auto length = static_cast<std::size_t>(found - rest_.begin());
    const auto taken = bytes(length);
    bytes(1);
    return {taken.begin(), taken.end()};
  }

  std::span<const std::uint8_t> rest() { return bytes(rest_.size()); }

 private:
  std::span<const std::uint8_t> rest_;
};

// Ends the program in the way that a fuzzer takes for a finding.
[[noreturn]] inline void report_finding(const std::string& what) {
  std::fprintf(stderr, "FINDING: %s\n", what.c_str());
  std::abort();
}

inline void expect(bool holds, std::string_view what) {
  if (!holds) {
    report_finding(std::string(what));
  }
}

template <typename Number>
requires std::is_arithmetic_v<Number> std::string shown(Number value) {
  return std::to_string(value);
}

inline std::string shown(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

template <typename Expected, typename Actual>
void expect_equal(std::string_view what, const Expected& expected, const Actual& actual) {
  if (!(expected == actual)) {
    report_finding(std::string(what) + ": expected " + shown(expected) + ", is " + shown(actual));
  }
}

// The same for lists, of which the first difference is shown.
template <typename Expected, typename Actual>
void expect_equal_lists(std::string_view what, const Expected& expected, const Actual& actual) {
  const std::size_t common = std::min(std::size(expected), std::size(actual));
  for (std::size_t i = 0; i < common; ++i) {
    if (!(expected[i] == actual[i])) {
      expect_equal(std::string(what) + "[" + std::to_string(i) + "]", expected[i], actual[i]);
    }
  }
  expect_equal(std::string(what) + " in number", std::size(expected), std::size(actual));
}

}  // namespace zelk::fuzz
