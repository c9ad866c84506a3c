// Decimal numbers as texts say them. What a report prints is compared with what a
// person asks for digit by digit: as floating point numbers, neither 2^64 - 1 nor
// 0.1 would be what it says.
#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

class Decimal {
 public:
  // Reads "-12.5", "+3", ".5", "4e6" or, as the report prints masks, "0x0c": the
  // whole text or nothing. Exponents go up to three digits, and hexadecimal numbers
  // up to 64 bits.
  static std::optional<Decimal> read(std::string_view text);

  friend std::strong_ordering operator<=>(const Decimal& a, const Decimal& b);
  friend bool operator==(const Decimal& a, const Decimal& b) { return std::is_eq(a <=> b); }

 private:
  bool negative_ = false;
  std::string digits_;  // without zeros at either end; empty: zero
  long point_ = 0;      // the value is 0.DIGITS times ten to this power
};
