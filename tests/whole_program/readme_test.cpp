// The commands of the README that end in "# status N" end with that status.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/smoke_test_run.hpp"

namespace zelk::test_support {
namespace {

struct Command {
  std::string line;
  std::vector<std::string> arguments;
  int exit_status = 0;
};

// Splits at blanks, as the shell does, and drops its quotation marks.
std::vector<std::string> words_of(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    std::erase(word, '\'');
    words.push_back(word);
  }
  return words;
}

std::vector<Command> commands() {
  const std::string begin = "scripts/run ";
  const std::string comment = " # status ";
  std::ifstream readme(ZELK_README);
  std::vector<Command> found;
  for (std::string line; std::getline(readme, line);) {
    const std::size_t end = line.find(comment);
    if (line.starts_with(begin) && end != line.npos) {
      found.push_back({line, words_of(line.substr(begin.size(), end - begin.size())),
                       std::stoi(line.substr(end + comment.size()))});
    }
  }
  return found;
}

TEST(Readme, CommandsEndWithTheStatusThatItSays) {
  const std::vector<Command> all = commands();
  ASSERT_EQ(all.size(), 3U);
  for (const Command& command : all) {
    SCOPED_TRACE(command.line);
    // Long enough for a busy machine; the last value of a key counts.
    std::vector<std::string> arguments = command.arguments;
    arguments.emplace_back("capture_s=3");
    const ProgramResult result = run(simulated_smoke_test(arguments));
    EXPECT_EQ(result.exit_status, command.exit_status);
    EXPECT_EQ(result.error, command.exit_status == 2
                                ? "read_stream_bytes: the unit has vanished (nothing answers at "
                                  "its port any more)\n"
                                : "");
  }
}

}  // namespace
}  // namespace zelk::test_support
