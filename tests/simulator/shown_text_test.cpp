#include "simulator/shown_text.hpp"

#include <gtest/gtest.h>

#include <string>

namespace zelk::simulator {
namespace {

TEST(ShownText, WritesControlCharactersOut) {
  EXPECT_EQ(in_one_line("sim://pairs?seed=1 \xC2\xB5 \\n~"), "sim://pairs?seed=1 \xC2\xB5 \\n~");
  EXPECT_EQ(in_one_line("a\nb\rc\td\x1b[2J\x7f\x01"), "a\\nb\\rc\\td\\x1b[2J\\x7f\\x01");
  EXPECT_EQ(in_one_line(std::string("\0", 1)), "\\x00");
  EXPECT_EQ(in_one_line(""), "");
}

TEST(ShownText, KeepsTheBeginningAndTheEndOfALongText) {
  const std::string longest(200, 'x');
  EXPECT_EQ(in_one_line(longest), longest);
  EXPECT_EQ(in_one_line("abcdefghijklmnopqrstuvwxyz", 12), "abc...uvwxyz");
  EXPECT_EQ(in_one_line("abcdefghijklm", 12), "abc...hijklm");
  const std::string cut = in_one_line('/' + longest + "/tags.csv");
  EXPECT_EQ(cut.size(), 200U);
  EXPECT_TRUE(cut.starts_with("/xxx"));
  EXPECT_TRUE(cut.ends_with("xxx/tags.csv"));
}

// At the front the cut would fall into a character in both, at the end in the
// second.
TEST(ShownText, IsCutBetweenCharacters) {
  EXPECT_EQ(in_one_line("ab\xC2\xB5\xC2\xB5\xC2\xB5\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC", 12),
            "ab...\xE2\x82\xAC\xE2\x82\xAC");
  EXPECT_EQ(in_one_line("a\xC2\xB5\xC2\xB5zzzzzzzzbc\xE2\x82\xAC\xE2\x82\xAC", 9),
            "a...\xE2\x82\xAC");
}

// What is written out counts as it is shown.
TEST(ShownText, ControlCharactersCountAsTheyAreShown) {
  EXPECT_EQ(in_one_line("\n\n\n\n\n\n\n", 12), "\\n\\...\\n\\n\\n");
  EXPECT_EQ(in_one_line(std::string(1000, '\x01')).size(), 200U);
}

TEST(ShownText, IsMarkedAsWhatItIs) {
  EXPECT_EQ(named("sim://pairs\n"), "`sim://pairs\\n`");
  EXPECT_EQ(quoted("a\tb"), "\"a\\tb\"");
}

}  // namespace
}  // namespace zelk::simulator
