// docs/port-keys.md has a row for each key of port strings, as the key's own row
// in the code says, and no row besides.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>

#include "simulator/ports/port_keys.hpp"

namespace zelk::simulator {
namespace {

std::string page() {
  std::ifstream file(ZELK_PORT_KEYS_PAGE);
  EXPECT_TRUE(file.is_open());
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The names of the ports that take a key, as the page has them.
std::string port_names(std::uint32_t mask) {
  struct Name {
    std::uint32_t bit;
    const char* name;
  };
  constexpr Name names[] = {
      {ports::unit, "ftdi"},     {ports::tags, "tags"},   {ports::pulses, "pulses"},
      {ports::random, "random"}, {ports::pairs, "pairs"}, {ports::burst, "burst"},
      {ports::silent, "silent"}, {ports::tap, "tap"},     {ports::replay, "replay"}};
  std::string text;
  if ((mask & ports::every_unit) == ports::every_unit) {
    text = "every";
    mask &= ~ports::every_unit;
  }
  for (const Name& name : names) {
    if ((mask & name.bit) != 0) {
      text += (text.empty() ? "" : ", ") + std::string(name.name);
    }
  }
  return text;
}

// As Markdown has it in the cells of a table.
std::string with_escaped_bars(std::string text) {
  for (std::size_t at = text.find('|'); at != text.npos; at = text.find('|', at + 2)) {
    text.insert(at, 1, '\\');
  }
  return text;
}

std::string row_of(const PortKey& key) {
  const bool is_words = key.kind == KeyKind::words;
  std::string range(is_words ? with_escaped_bars(std::string(key.unit)) : "");
  if (!is_words) {
    range = std::to_string(key.lowest) + " to " + std::to_string(key.highest);
  }
  if (key.per_channel) {
    range += "; one or four";
  }
  return "| `" + std::string(key.name) + "` | " + port_names(key.ports) + " | " +
         (is_words ? "" : std::string(key.unit)) + " | " + std::string(key.standard) + " | " +
         range + " | " + std::string(key.meaning) + " |\n";
}

TEST(DocumentedKeys, EveryKeyHasItsRow) {
  const std::string text = page();
  for (const PortKey& key : port_keys) {
    EXPECT_NE(text.find('\n' + row_of(key)), text.npos) << row_of(key);
  }
}

bool is_row_of_a_key(const std::string& line) {
  return std::any_of(port_keys.begin(), port_keys.end(), [&line](const PortKey& key) {
    return line.starts_with("| `" + std::string(key.name) + "` |");
  });
}

TEST(DocumentedKeys, NoRowIsLeftOver) {
  std::istringstream lines(page());
  std::size_t rows = 0;
  bool in_table_of_keys = false;
  for (std::string line; std::getline(lines, line);) {
    in_table_of_keys = line.starts_with("| Key |") || (in_table_of_keys && line.starts_with('|'));
    if (is_row_of_a_key(line)) {
      ++rows;
    } else if (in_table_of_keys) {
      EXPECT_FALSE(line.starts_with("| `")) << line;
    }
  }
  EXPECT_EQ(rows, port_keys.size());
}

}  // namespace
}  // namespace zelk::simulator
