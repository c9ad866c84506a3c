// docs/production.md as its reader has it: the files are saved under the names that
// it gives them, and the commands run in their directory.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/document.hpp"
#include "tests/support/smoke_test_run.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::test_support {

// A command of the page, and what it says about standard error.
struct ShownRun {
  StatedCommand command;
  std::vector<std::string> error_lines;
};

class ProductionPage : public testing::Test {
 protected:
  ProductionPage() : blocks_(fenced_blocks(ZELK_PRODUCTION_PAGE)) {
    for (const FencedBlock& block : blocks_) {
      std::istringstream words(block.info);
      std::string language;
      std::string name;
      if (words >> language >> name) {
        save(name, text_of(block));
      }
    }
  }

  [[nodiscard]] std::filesystem::path directory() const { return directory_.path(); }

  void save(const std::string& name, const std::string& text) const {
    namespace fs = std::filesystem;
    std::ofstream(directory() / name) << text;
    fs::permissions(directory() / name, fs::perms::owner_exec, fs::perm_options::add);
  }

  // The commands with their status. The block behind one is its standard error.
  [[nodiscard]] std::vector<ShownRun> shown_runs() const {
    std::vector<ShownRun> runs;
    bool errors_may_follow = false;
    for (const FencedBlock& block : blocks_) {
      if (block.info.empty() && errors_may_follow) {
        runs.back().error_lines = block.lines;
      }
      const std::vector<StatedCommand> commands = stated_commands(block);
      for (const StatedCommand& command : commands) {
        runs.push_back({command, {}});
      }
      errors_may_follow = !commands.empty();
    }
    return runs;
  }

  // With the program in the search path. The unit that discovery finds sends all that
  // it is asked for, whatever the machine does meanwhile.
  [[nodiscard]] ProgramResult run_in_shell(const std::string& command,
                                           const std::string& attached = "ftdi://?pace=max") const {
    Program shell = simulated_smoke_test({"-c", command});
    shell.environment["PATH"] = shell.file.parent_path().string() + ":/usr/bin:/bin";
    shell.environment["ZELK_SIM_DISCOVERY"] = "port:" + attached;
    shell.file = "/bin/sh";
    shell.directory = directory();
    ProgramResult result = run(shell);
    EXPECT_FALSE(result.killed_by_watchdog) << command;
    return result;
  }

 private:
  TemporaryDirectory directory_;
  std::vector<FencedBlock> blocks_;
};

inline std::vector<std::string> lines_of(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

}  // namespace zelk::test_support
