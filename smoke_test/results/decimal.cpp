#include "smoke_test/results/decimal.hpp"

#include <charconv>
#include <cstdint>
#include <system_error>

namespace {

constexpr std::string_view decimal_digits = "0123456789";
constexpr std::size_t most_exponent_digits = 3;

// Removes the prefix from the text, if it is there.
bool take(std::string_view& text, char c, char other) {
  if (text.empty() || (text.front() != c && text.front() != other)) {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

// Takes the digits at the front of the text.
std::string_view take_digits(std::string_view& text) {
  const std::string_view digits = text.substr(0, text.find_first_not_of(decimal_digits));
  text.remove_prefix(digits.size());
  return digits;
}

// The whole text as an exponent.
std::optional<long> read_exponent(std::string_view text) {
  const bool negative = take(text, '-', '-');
  if (!negative) {
    take(text, '+', '+');
  }
  const std::string_view digits = take_digits(text);
  if (digits.empty() || digits.size() > most_exponent_digits || !text.empty()) {
    return std::nullopt;
  }
  long exponent = 0;
  std::from_chars(digits.begin(), digits.end(), exponent);
  return negative ? -exponent : exponent;
}

// A hexadecimal number in decimal digits.
std::optional<std::string> from_hexadecimal(std::string_view text) {
  constexpr int hexadecimal = 16;
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.begin(), text.end(), value, hexadecimal);
  if (error != std::errc() || end != text.end()) {
    return std::nullopt;
  }
  return std::to_string(value);
}

}  // namespace

std::optional<Decimal> Decimal::read(std::string_view text) {
  Decimal number;
  number.negative_ = take(text, '-', '-');
  if (!number.negative_) {
    take(text, '+', '+');
  }
  std::string whole;
  std::string_view fraction;
  long exponent = 0;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    const std::optional<std::string> digits = from_hexadecimal(text.substr(2));
    if (!digits) {
      return std::nullopt;
    }
    whole = *digits;
  } else {
    whole = take_digits(text);
    if (take(text, '.', '.')) {
      fraction = take_digits(text);
    }
    if (whole.empty() && fraction.empty()) {
      return std::nullopt;
    }
    if (take(text, 'e', 'E')) {
      const std::optional<long> read = read_exponent(text);
      if (!read) {
        return std::nullopt;
      }
      exponent = *read;
    } else if (!text.empty()) {
      return std::nullopt;
    }
  }
  number.digits_ = whole + std::string(fraction);
  number.point_ = static_cast<long>(whole.size()) + exponent;

  const std::size_t leading = number.digits_.find_first_not_of('0');
  if (leading == std::string::npos) {
    return Decimal();  // zero has no sign and no place
  }
  number.digits_.erase(0, leading);
  number.point_ -= static_cast<long>(leading);
  number.digits_.erase(number.digits_.find_last_not_of('0') + 1);
  return number;
}

std::strong_ordering operator<=>(const Decimal& a, const Decimal& b) {
  const auto sign = [](const Decimal& number) {
    return number.digits_.empty() ? 0 : number.negative_ ? -1 : 1;
  };
  if (sign(a) != sign(b) || sign(a) == 0) {
    return sign(a) <=> sign(b);
  }
  const Decimal& x = sign(a) > 0 ? a : b;  // of two negative numbers the larger is smaller
  const Decimal& y = sign(a) > 0 ? b : a;
  if (x.point_ != y.point_) {
    return x.point_ <=> y.point_;
  }
  return x.digits_.compare(y.digits_) <=> 0;
}
