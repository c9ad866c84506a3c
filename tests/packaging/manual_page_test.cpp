// The manual page, held against the table of options that it is made from.
#include "packaging/manual/manual_page.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "smoke_test/options.hpp"
#include "tests/support/file_content.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::string page() {
  return zelk::test_support::file_content(ZELK_MANUAL_PAGE);
}

std::vector<std::string> lines_of_page() {
  std::istringstream page_text(page());
  std::vector<std::string> lines;
  for (std::string line; std::getline(page_text, line);) {
    lines.push_back(line);
  }
  return lines;
}

// The keys that have an entry, under the heading that stands before it.
std::map<std::string, std::vector<std::string>> keys_by_heading() {
  std::map<std::string, std::vector<std::string>> keys;
  std::string heading;
  const std::string bold = "\\fB";
  for (const std::string& line : lines_of_page()) {
    const std::size_t end_of_key = line.find("\\fR=");
    if (line.starts_with(".SS ") || line.starts_with(".SH ")) {
      heading = line.substr(4);
    } else if (line.starts_with(bold) && end_of_key != std::string::npos) {
      keys[heading].push_back(line.substr(bold.size(), end_of_key - bold.size()));
    }
  }
  return keys;
}

std::string without_fonts(std::string line) {
  for (std::size_t at = line.find("\\f"); at != std::string::npos; at = line.find("\\f", at)) {
    line.erase(at, 3);
  }
  return line;
}

// What stands before the first "=" of each word that has one.
std::vector<std::string> keys_of_arguments(const std::string& line) {
  std::istringstream words(line);
  std::vector<std::string> keys;
  for (std::string word; words >> word;) {
    const std::size_t length = word.find('=');
    const std::string key = word.substr(0, length);
    constexpr const char* letters = "abcdefghijklmnopqrstuvwxyz0123456789_";
    if (length != std::string::npos && length > 0 &&
        key.find_first_not_of(letters) == std::string::npos) {
      keys.push_back(key);
    }
  }
  return keys;
}

TEST(ManualPage, HasAnEntryForEveryKeyOfTheTableInItsGroup) {
  std::map<std::string, std::vector<std::string>> expected;
  const std::map<OptionGroup, std::string> headings = {{OptionGroup::device, "Device"},
                                                       {OptionGroup::stream, "Stream"},
                                                       {OptionGroup::signals, "Signals"},
                                                       {OptionGroup::analysis, "Analysis"},
                                                       {OptionGroup::output, "Output"}};
  for (const Option& option : options()) {
    for (const std::string_view key : option.keys) {
      if (!key.empty()) {
        expected[headings.at(option.group)].emplace_back(key);
      }
    }
  }
  EXPECT_EQ(keys_by_heading(), expected);
}

TEST(ManualPage, NamesNoKeyThatIsNotInTheTable) {
  std::size_t named = 0;
  for (const std::string& line : lines_of_page()) {
    for (const std::string& key : keys_of_arguments(without_fonts(line))) {
      EXPECT_NE(find_option(key), nullptr) << key;
      ++named;
    }
  }
  EXPECT_GT(named, options().size());
}

TEST(ManualPage, HasTheUsualSections) {
  std::vector<std::string> sections;
  for (const std::string& line : lines_of_page()) {
    if (line.starts_with(".SH ")) {
      sections.push_back(line.substr(4));
    }
  }
  EXPECT_THAT(sections, ElementsAre("NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS",
                                    "ENVIRONMENT", "FILES", "EXAMPLES", "SEE ALSO"));
}

TEST(ManualPage, LeavesNoMarkUnfilled) {
  EXPECT_THAT(page(), Not(HasSubstr("@")));
  EXPECT_THAT(page(), Not(HasSubstr("%")));
}

TEST(ManualPage, SaysWhatAKeyTakes) {
  for (const char* entry : {
           ".TP\n\\fBport\\fR=\\fITEXT\\fR\n.TQ\n\\fBcontrol_port\\fR=\\fITEXT\\fR\n"
           "Device to open; empty: the first one found.\n.br\nDefault: \\fBftdi://\\fR.\n.TP\n",
           ".TP\n\\fBformat\\fR=\\fBraw64\\fR|\\fBdelta32\\fR|\\fBpacked_delta\\fR\n"
           "Stream format: raw64, delta32 or packed_delta.\n.br\nDefault: \\fBpacked_delta\\fR.\n"
           ".br\nOther spellings: \\fBraw\\fR for \\fBraw64\\fR; \\fBdelta\\fR for "
           "\\fBdelta32\\fR; \\fBpacked\\-delta\\fR or \\fBpacked\\fR for "
           "\\fBpacked_delta\\fR.\n.TP\n",
           ".TP\n\\fBstrict\\fR=\\fB1\\fR|\\fB0\\fR\n"
           "End the run at an argument that would not be taken as it is written: 1 or 0.\n"
           ".br\nDefault: \\fB0\\fR.\n.br\nOther spellings: \\fBtrue\\fR, \\fByes\\fR or "
           "\\fBon\\fR for \\fB1\\fR; \\fBfalse\\fR, \\fBno\\fR or \\fBoff\\fR for \\fB0\\fR.\n",
           ".TP\n\\fBtransport\\fR=\\fBusb\\fR\nLink to the device: usb.\n"
           ".br\nDefault: \\fBusb\\fR.\n.TP\n",
           ".TP\n\\fBdead_time_ps\\fR=\\fINUMBER\\fR\n"
           "Input dead time; negative: left as it is.\n.br\nDefault: \\fB\\-1\\fR ps.\n.TP\n",
           ".TP\n\\fBlimits\\fR=\\fIFILE\\fR\nFile with such conditions, one per line.\n"
           ".br\nThere is no default.\n",
       }) {
    EXPECT_THAT(option_entries() + ".TP\n", HasSubstr(entry));
    EXPECT_THAT(page(),
                HasSubstr(std::string(entry).substr(0, std::string(entry).rfind("\n.TP") + 1)));
  }
}

TEST(ShownText, IsNotTakenForTheLanguageOfThePage) {
  EXPECT_EQ(as_shown("a-b"), "a\\-b");
  EXPECT_EQ(as_shown("\\fB"), "\\efB");
  EXPECT_EQ(as_shown("'it'"), "\\(aqit\\(aq");
  EXPECT_EQ(as_shown(".npy and .csv."), "\\&.npy and .csv.");
  EXPECT_EQ(as_shown(""), "");
}

}  // namespace
