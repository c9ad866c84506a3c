#include "simulator/ports/port_query.hpp"

#include <algorithm>
#include <charconv>

#include "simulator/failure.hpp"

namespace zelk::simulator {

std::string quoted(std::string_view text) {
  return '"' + std::string(text) + '"';
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
      throw Failure(Status::malformed_port, "bad percent sign in " + quoted(text));
    }
    decoded += static_cast<char>(value);
    i += 2;
  }
  return decoded;
}

PortQuery::PortQuery(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('&'), text.size());
    add(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void PortQuery::add(std::string_view item) {
  const std::size_t equals = item.find('=');
  if (equals == item.npos || equals == 0) {
    throw Failure(Status::malformed_port, quoted(item) + " is not key=value");
  }
  const std::string_view key = item.substr(0, equals);
  for (const auto& [known, value] : items_) {
    if (known == key) {
      throw Failure(Status::repeated_port_key, "key " + quoted(key) + " given twice");
    }
  }
  const std::string_view value = item.substr(equals + 1);
  percent_decoded(value);  // only to refuse a bad one
  items_.emplace_back(key, value);
}

std::optional<std::string> PortQuery::take(std::string_view key) {
  const std::optional<std::string> encoded = take_encoded(key);
  return encoded ? std::optional(percent_decoded(*encoded)) : std::nullopt;
}

std::optional<std::string> PortQuery::take_encoded(std::string_view key) {
  const auto found = std::find_if(items_.begin(), items_.end(),
                                  [key](const auto& item) { return item.first == key; });
  if (found == items_.end()) {
    return std::nullopt;
  }
  std::string value = std::move(found->second);
  items_.erase(found);
  return value;
}

std::optional<std::string_view> PortQuery::first_left() const {
  if (items_.empty()) {
    return std::nullopt;
  }
  return items_.front().first;
}

}  // namespace zelk::simulator
