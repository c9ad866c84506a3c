// The key=value list behind the "?" of a port string. Any byte of a value may
// be written as %XX.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelk::simulator {

// How a value holds a "&", and a file that the port names a "?".
inline constexpr std::string_view escaped_ampersand = "%26";
inline constexpr std::string_view escaped_question_mark = "%3F";

// Throws Failure for a port with a line feed, which would break every line that
// shows it.
void expect_one_line(std::string_view port);

// Replaces each %XX by the byte it stands for. Throws Failure for a percent sign
// without two hexadecimal digits, and for %00, which would cut a path short.
std::string percent_decoded(std::string_view text);

// The keys that nobody has taken yet. Whoever knows a key takes it, so a key that
// is left in the end is unknown.
class PortQuery {
 public:
  struct Item {
    std::string key;
    std::string value;        // as it was written
    std::string before;       // the item before it, or the file of the port; empty without one
    std::string_view escape;  // how that would hold the "&" or "?" between the two
  };

  // Splits "key=value&key=value". `file` is what a port names before its "?".
  // Throws Failure for a text that is no such list, and for a key given twice.
  explicit PortQuery(std::string_view text, std::string_view file = {});

  // The value of `key`, with each %XX replaced; none without the key.
  std::optional<std::string> take(std::string_view key);

  // The same with each %XX as it was written. For values that are split further:
  // a comma that separates must not be taken for one that was written as %2C.
  std::optional<std::string> take_encoded(std::string_view key);

  // The first item that nobody has taken; null without one.
  [[nodiscard]] const Item* first_left() const;

 private:
  void add(std::string_view item, std::string_view before, std::string_view escape);

  std::vector<Item> items_;
};

// "write `file=a%26b=1`": how an item is written that belongs to what stands
// before it, which must not be empty.
std::string joined_text(std::string_view before, std::string_view escape, std::string_view item);

}  // namespace zelk::simulator
