// The key=value list behind the "?" of a port string. Any byte of a value may
// be written as %XX.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zelk::simulator {

// The text between quotation marks, for messages.
std::string quoted(std::string_view text);

// Undoes %XX. Throws Failure for what is no such sign, and for a NUL byte,
// which would cut a path short.
std::string percent_decoded(std::string_view text);

// Whoever knows a key takes it; what is left in the end is unknown.
class PortQuery {
 public:
  // Splits "key=value&key=value". Throws Failure for what is no such list, and
  // for a key given twice.
  explicit PortQuery(std::string_view text);

  std::optional<std::string> take(std::string_view key);

  // The value as it was written, for one whose own signs may not be told from
  // those that are written as %XX once these are undone.
  std::optional<std::string> take_encoded(std::string_view key);

  // A key that nobody has taken.
  [[nodiscard]] std::optional<std::string_view> first_left() const;

 private:
  void add(std::string_view item);

  std::vector<std::pair<std::string, std::string>> items_;  // values as they were written
};

}  // namespace zelk::simulator
