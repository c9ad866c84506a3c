// What the README shows is what the program does: its commands end with the status
// that it says, and its report is the one that the program prints.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/document.hpp"
#include "tests/support/file_content.hpp"
#include "tests/support/smoke_test_run.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::test_support {
namespace {

using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

std::string page() {
  return file_content(ZELK_README);
}

std::vector<StatedCommand> commands() {
  std::vector<StatedCommand> found;
  for (const FencedBlock& block : fenced_blocks(ZELK_README)) {
    std::ranges::copy(stated_commands(block), std::back_inserter(found));
  }
  return found;
}

// A folder with a scripts/run that builds nothing. The amount of tags, half a second of
// pairs, ends its captures: on a busy machine, too. The last value of a key counts.
class ProjectFolder {
 public:
  ProjectFolder() {
    namespace fs = std::filesystem;
    const fs::path program = simulated_smoke_test({}).file;
    const fs::path script = directory_.path() / "scripts/run";
    fs::create_directory(script.parent_path());
    std::ofstream(script) << "#!/bin/sh\nexec '" << program.string()
                          << "' \"$@\" capture_s=20 stop_tags=20000\n";
    fs::permissions(script, fs::perms::owner_exec, fs::perm_options::add);
  }

  [[nodiscard]] ProgramResult run_in_shell(const std::string& command) const {
    Program shell = simulated_smoke_test({"-c", command});
    shell.environment["PATH"] = "/usr/bin:/bin";
    shell.file = "/bin/sh";
    shell.directory = directory_.path();
    return run(shell);
  }

 private:
  TemporaryDirectory directory_;
};

TEST(Readme, CommandsEndWithTheStatusThatItSays) {
  const ProjectFolder folder;
  const std::vector<StatedCommand> all = commands();
  EXPECT_THAT(all, SizeIs(10));
  for (const StatedCommand& command : all) {
    SCOPED_TRACE(command.text);
    const ProgramResult result = folder.run_in_shell(command.text);
    EXPECT_EQ(result.exit_status, command.exit_status);
    const bool prints_steps = command.text.starts_with("ZELK_PACKED_DEBUG=");
    const bool says_why = command.exit_status == 2 || command.exit_status == 4;
    EXPECT_EQ(result.error.empty(), !says_why && !prints_steps) << result.error;
  }
}

const StatedCommand* find_command(const std::vector<StatedCommand>& all, const std::string& part) {
  const auto command = std::ranges::find_if(
      all, [&part](const StatedCommand& c) { return c.text.find(part) != std::string::npos; });
  EXPECT_NE(command, all.end()) << part;
  return command == all.end() ? nullptr : &*command;
}

TEST(Readme, AUnitThatVanishesLeavesTheLineOfTheReferenceClock) {
  const std::vector<StatedCommand> all = commands();
  const StatedCommand* command = find_command(all, "vanish_at_s");
  ASSERT_NE(command, nullptr);
  const ProgramResult result = ProjectFolder().run_in_shell(command->text);
  EXPECT_THAT(result.output, StartsWith("ref_requested=internal "));
  EXPECT_EQ(std::ranges::count(result.output, '\n'), 1);
  EXPECT_EQ(std::ranges::count(result.error, '\n'), 1);
  EXPECT_THAT(page(), HasSubstr("\n`" + result.error.substr(0, result.error.size() - 1) + "`.\n"));
}

TEST(Readme, AWiderWindowShowsTheDelay) {
  const std::vector<StatedCommand> all = commands();
  const StatedCommand* command = find_command(all, "coincidence_window_ps=");
  ASSERT_NE(command, nullptr);
  const ProgramResult result = ProjectFolder().run_in_shell(command->text);
  EXPECT_THAT(result.output, HasSubstr("\nxcorr_offset_ps=1504\n"));
  EXPECT_THAT(page(), HasSubstr("says `xcorr_offset_ps=1504`"));
}

// Key and value of a line of the report. Those of a line with several keys, and of a
// bin, stand in one value.
struct ReportLine {
  std::string key;
  std::string value;
};

std::vector<ReportLine> report_lines(const std::vector<std::string>& lines) {
  std::vector<ReportLine> report;
  for (const std::string& line : lines) {
    const bool is_bin = line.starts_with("bin ");
    const std::size_t end = line.find(is_bin ? " ch0=" : "=");
    EXPECT_NE(end, std::string::npos) << line;
    report.push_back({line.substr(0, end), line.substr(std::min(line.size(), end + 1))});
  }
  return report;
}

// The numbers of a value, whatever stands between them.
std::vector<double> numbers_in(const std::string& value) {
  std::vector<double> numbers;
  const char* at = value.c_str();
  const char* const digits = "-0123456789";
  while (*(at += std::strcspn(at, digits)) != '\0') {
    char* end = nullptr;
    numbers.push_back(std::strtod(at, &end));
    at = end == at ? at + 1 : end;
  }
  return numbers;
}

// How far a figure of 5000 pulses, seen with 4 ps rms of jitter, may lie from the same
// figure of others: six times its standard deviation, or more. None: it is the same.
std::optional<double> spread_of(const std::string& key, double value) {
  constexpr double quantum_ps = 8.0;
  constexpr double pulses = 5000;
  if (key == "xcorr_offset_ps" || key == "xcorr_peak_center_ps") {
    return quantum_ps;
  }
  if (key == "xcorr_rms_ps" || key == "xcorr_fwhm_est_ps") {
    return 6 * value / std::sqrt(2 * pulses);
  }
  if (key == "xcorr_peak_count") {
    return 6 * std::sqrt(value);
  }
  if (key == "max_gap_ms") {
    return 0.001;
  }
  if (key == "min_dt_ps") {
    return 2 * 14 + quantum_ps;  // the jitter goes no further than 14 ps
  }
  if (key.ends_with("_unique")) {
    return 6.0;  // of the rarest positions some may be missing
  }
  if (key == "tags_total" || key == "coincidences" || key.starts_with("bin ") ||
      (key.starts_with("ch") && key.size() == 3)) {
    return std::max(value * 0.03, 1.0);
  }
  return std::nullopt;
}

// Rankings, whose entries change places.
bool is_ranking(const std::string& key) {
  return key.ends_with("_top") || key == "xcorr_top_bins";
}

std::vector<std::string> sample_report() {
  const std::vector<FencedBlock> blocks = fenced_blocks(ZELK_README);
  const auto block = std::ranges::find(blocks, "text report", &FencedBlock::info);
  EXPECT_NE(block, blocks.end());
  return block == blocks.end() ? std::vector<std::string>() : block->lines;
}

// As many tags as the sample has, of the same unit.
std::vector<ReportLine> report_like(const std::vector<ReportLine>& sample) {
  const auto total = std::ranges::find(sample, "tags_total", &ReportLine::key);
  Program program =
      simulated_smoke_test({"port=ftdi://?pace=max", "channel_a=2", "channel_b=3", "capture_s=20",
                            "stop_tags=" + (total == sample.end() ? "" : total->value)});
  program.environment["HOME"] = "/home/lab";
  const ProgramResult result = run(program);
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.error, "");
  std::istringstream output(result.output);
  std::vector<std::string> lines;
  for (std::string line; std::getline(output, line);) {
    lines.push_back(line);
  }
  return report_lines(lines);
}

TEST(Readme, ReportHasTheLinesThatTheProgramPrints) {
  const std::vector<ReportLine> sample = report_lines(sample_report());
  const std::vector<ReportLine> report = report_like(sample);
  ASSERT_GT(sample.size(), 40U);
  ASSERT_EQ(report.size(), sample.size());
  for (std::size_t i = 0; i < sample.size(); ++i) {
    EXPECT_EQ(report[i].key, sample[i].key);
  }
}

void expect_same_figures(const ReportLine& line, const ReportLine& sample) {
  SCOPED_TRACE(sample.key);
  if (sample.key == "port") {
    EXPECT_EQ(line.value, "ftdi://?pace=max" + sample.value.substr(sizeof "ftdi://" - 1));
    return;
  }
  if (!spread_of(sample.key, 0) && !is_ranking(sample.key)) {
    EXPECT_EQ(line.value, sample.value);
    return;
  }
  const std::vector<double> expected = numbers_in(sample.value);
  const std::vector<double> values = numbers_in(line.value);
  ASSERT_EQ(values.size(), expected.size());
  for (std::size_t i = 0; i < values.size() && !is_ranking(sample.key); ++i) {
    EXPECT_NEAR(values[i], expected[i], spread_of(sample.key, expected[i]).value_or(0));
  }
}

TEST(Readme, ReportHasTheFiguresThatTheProgramPrints) {
  const std::vector<ReportLine> sample = report_lines(sample_report());
  const std::vector<ReportLine> report = report_like(sample);
  ASSERT_EQ(report.size(), sample.size());
  for (std::size_t i = 0; i < sample.size(); ++i) {
    expect_same_figures(report[i], sample[i]);
  }
}

}  // namespace
}  // namespace zelk::test_support
