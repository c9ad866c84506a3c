// The fenced blocks of a page of the documents, for tests that hold the page to
// what the program does.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zelk::test_support {

struct FencedBlock {
  // What stands behind the opening fence: a language, and for a block that is to be
  // saved the name of its file.
  std::string info;
  std::vector<std::string> lines;
};

inline std::vector<FencedBlock> fenced_blocks(const std::string& page) {
  constexpr std::string_view fence = "```";
  std::ifstream file(page);
  EXPECT_TRUE(file.is_open()) << page;
  std::vector<FencedBlock> blocks;
  bool inside = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(fence)) {
      inside = !inside;
      if (inside) {
        blocks.push_back({line.substr(fence.size()), {}});
      }
    } else if (inside) {
      blocks.back().lines.push_back(line);
    }
  }
  EXPECT_FALSE(inside) << "a block without an end in " << page;
  return blocks;
}

inline std::string text_of(const FencedBlock& block) {
  std::string text;
  for (const std::string& line : block.lines) {
    text += line + '\n';
  }
  return text;
}

// Where the commands of a page end in "# status N", this is N, and the command is
// what stands before.
struct StatedCommand {
  std::string text;
  int exit_status = 0;
};

inline std::vector<StatedCommand> stated_commands(const FencedBlock& block) {
  constexpr std::string_view comment = " # status ";
  std::vector<StatedCommand> commands;
  for (const std::string& line : block.lines) {
    if (const std::size_t end = line.find(comment); end != std::string::npos) {
      commands.push_back({line.substr(0, line.find_last_not_of(' ', end) + 1),
                          std::stoi(line.substr(end + comment.size()))});
    }
  }
  return commands;
}

}  // namespace zelk::test_support
