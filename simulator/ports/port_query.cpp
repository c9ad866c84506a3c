#include "simulator/ports/port_query.hpp"

#include <algorithm>
#include <charconv>
#include <utility>

#include "simulator/failure.hpp"
#include "simulator/shown_text.hpp"

namespace zelk::simulator {
namespace {

Failure malformed(const std::string& detail) {
  return {Status::malformed_port, "malformed port: " + detail};
}

}  // namespace

void expect_one_line(std::string_view port) {
  if (port.find('\n') != port.npos) {
    throw malformed(named(port) + " holds a line feed; a value holds it as %0A");
  }
}

std::string percent_decoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const std::string_view digits = text.substr(i + 1, 2);
    unsigned value = 0;
    const auto [rest, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (error != std::errc{} || rest != digits.data() + 2 || value == 0) {
      throw malformed("a `%` in " + named(text) +
                      " wants two hexadecimal digits, other than 00; the sign itself is written "
                      "as %25");
    }
    decoded += static_cast<char>(value);
    i += 2;
  }
  return decoded;
}

PortQuery::PortQuery(std::string_view text, std::string_view file) {
  std::string_view before = file;
  std::string_view escape = escaped_question_mark;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('&'), text.size());
    const std::string_view item = text.substr(0, end);
    add(item, before, escape);
    before = item;
    escape = escaped_ampersand;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void PortQuery::add(std::string_view item, std::string_view before, std::string_view escape) {
  const std::size_t equals = item.find('=');
  if (equals == item.npos || equals == 0) {
    throw malformed(named(item) + " is not key=value" +
                    (before.empty() ? std::string()
                                    : "; if it belongs to what stands before it, " +
                                          joined_text(before, escape, item)));
  }
  const std::string_view key = item.substr(0, equals);
  for (const Item& known : items_) {
    if (known.key == key) {
      throw Failure(Status::repeated_port_key, "key " + named(key) + " is given twice");
    }
  }
  const std::string_view value = item.substr(equals + 1);
  percent_decoded(value);  // only to refuse a bad one
  items_.push_back({std::string(key), std::string(value), std::string(before), escape});
}

std::optional<std::string> PortQuery::take(std::string_view key) {
  const std::optional<std::string> encoded = take_encoded(key);
  return encoded ? std::optional(percent_decoded(*encoded)) : std::nullopt;
}

std::optional<std::string> PortQuery::take_encoded(std::string_view key) {
  const auto found = std::find_if(items_.begin(), items_.end(),
                                  [key](const Item& item) { return item.key == key; });
  if (found == items_.end()) {
    return std::nullopt;
  }
  std::string value = std::move(found->value);
  items_.erase(found);
  return value;
}

const PortQuery::Item* PortQuery::first_left() const {
  return items_.empty() ? nullptr : &items_.front();
}

std::string joined_text(std::string_view before, std::string_view escape, std::string_view item) {
  std::string joined(before);
  joined += escape;
  joined += item;
  return "write " + named(joined);
}

}  // namespace zelk::simulator
