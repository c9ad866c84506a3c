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

// Replaces each %XX by the byte it stands for. Throws Failure for a percent sign
// without two hexadecimal digits, and for %00, which would cut a path short.
std::string percent_decoded(std::string_view text);

// The keys that nobody has taken yet. Whoever knows a key takes it, so a key that
// is left in the end is unknown.
class PortQuery {
 public:
  // Splits "key=value&key=value". Throws Failure for a text that is no such
  // list, and for a key given twice.
  explicit PortQuery(std::string_view text);

  // The value of `key`, with each %XX replaced; none without the key.
  std::optional<std::string> take(std::string_view key);

  // The same with each %XX as it was written. For values that are split further:
  // a comma that separates must not be taken for one that was written as %2C.
  std::optional<std::string> take_encoded(std::string_view key);

  // A key that nobody has taken.
  [[nodiscard]] std::optional<std::string_view> first_left() const;

 private:
  void add(std::string_view item);

  std::vector<std::pair<std::string, std::string>> items_;  // values as they were written
};

}  // namespace zelk::simulator
