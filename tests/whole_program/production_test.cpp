// The limits of docs/production.md let a healthy unit pass and catch each of the six
// that are not, as the page says.
#include "tests/whole_program/production_page.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The limits of a file as the program names them, without comments.
std::vector<std::string> conditions_in(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::vector<std::string> conditions;
  for (std::string line; std::getline(in, line);) {
    const std::string text = line.substr(0, line.find('#'));
    if (const std::size_t end = text.find_last_not_of(' '); end != std::string::npos) {
      conditions.push_back(text.substr(0, end + 1));
    }
  }
  return conditions;
}

// A line "not met: rate_hz>=22500 (channel 1: 1332.439)".
struct Missed {
  std::string condition;
  std::vector<double> values;
};

Missed read_missed(const std::string& line) {
  const std::string begin = "not met: ";
  const std::size_t parenthesis = line.find(" (");
  if (!line.starts_with(begin) || parenthesis == std::string::npos || !line.ends_with(")")) {
    ADD_FAILURE() << line;
    return {};
  }
  Missed missed{line.substr(begin.size(), parenthesis - begin.size()), {}};
  std::istringstream items(line.substr(parenthesis + 2));
  for (std::string item; std::getline(items, item, ',');) {
    const std::size_t colon = item.find(": ");
    missed.values.push_back(std::stod(colon == std::string::npos ? item : item.substr(colon + 2)));
  }
  return missed;
}

std::vector<Missed> read_all_missed(const std::vector<std::string>& lines) {
  std::vector<Missed> all;
  std::ranges::transform(lines, std::back_inserter(all), read_missed);
  return all;
}

// Nearly all values are the same on every run. But silence goes by the host's clock,
// and the ends of reads decide what damage does.
void expect_same_size(const Missed& missed, const Missed& on_the_page) {
  ASSERT_EQ(missed.values.size(), on_the_page.values.size()) << missed.condition;
  for (std::size_t i = 0; i < missed.values.size(); ++i) {
    EXPECT_GE(missed.values[i], on_the_page.values[i] / 3) << missed.condition;
    EXPECT_LE(missed.values[i], on_the_page.values[i] * 3) << missed.condition;
  }
}

// What a short queue drops is what the machine reads before it looks again.
bool depends_on_the_machine(const ShownRun& run) {
  return run.command.text.find(" queue_limit=") != std::string::npos;
}

class ProductionLimits : public ProductionPage {
 protected:
  [[nodiscard]] std::vector<std::string> limits() const {
    return conditions_in(directory() / "limits.txt");
  }
};

TEST_F(ProductionLimits, AreShownOnAHealthyUnitAndSixOthers) {
  std::vector<int> statuses;
  for (const ShownRun& run : shown_runs()) {
    statuses.push_back(run.command.exit_status);
  }
  EXPECT_THAT(statuses, ElementsAre(0, 4, 4, 4, 4, 4, 4));
}

TEST_F(ProductionLimits, GiveTheStatusAndTheLinesOnThePage) {
  for (const ShownRun& run : shown_runs()) {
    SCOPED_TRACE(run.command.text);
    const ProgramResult result = run_in_shell(run.command.text);
    EXPECT_THAT(result.output, HasSubstr("\ntags_total="));
    EXPECT_EQ(result.exit_status, run.command.exit_status);
    EXPECT_EQ(run.error_lines.empty(), run.command.exit_status == 0);
    const std::vector<Missed> all = read_all_missed(lines_of(result.error));
    EXPECT_EQ(all.empty(), run.command.exit_status == 0) << result.error;
    for (const Missed& missed : all) {
      EXPECT_THAT(limits(), Contains(missed.condition));
    }
    for (const Missed& shown : read_all_missed(run.error_lines)) {
      const auto missed = std::ranges::find(all, shown.condition, &Missed::condition);
      ASSERT_NE(missed, all.end()) << shown.condition << '\n' << result.error;
      if (!depends_on_the_machine(run)) {
        expect_same_size(*missed, shown);
      }
    }
  }
}

// That is what the page is for.
TEST_F(ProductionLimits, AreAllThatCatchesTheSix) {
  save("limits.txt", "");
  for (const ShownRun& run : shown_runs()) {
    SCOPED_TRACE(run.command.text);
    const ProgramResult result = run_in_shell(run.command.text);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.error, "");
  }
}

// Of the table that says which limit catches which unit.
TEST_F(ProductionLimits, OfTheTableAreThoseOfTheFileAndOfTheLines) {
  std::ifstream page(ZELK_PRODUCTION_PAGE);
  std::vector<std::string> named;
  bool in_table = false;
  for (std::string line; std::getline(page, line);) {
    in_table = line.starts_with("| Unit | The limit ") || (in_table && line.starts_with('|'));
    const std::size_t begin = line.find('`');
    if (in_table && begin != std::string::npos) {
      named.push_back(line.substr(begin + 1, line.rfind('`') - begin - 1));
    }
  }
  std::vector<ShownRun> bad = shown_runs();
  bad.erase(bad.begin());
  ASSERT_EQ(named.size(), bad.size());
  for (std::size_t i = 0; i < bad.size(); ++i) {
    EXPECT_THAT(limits(), Contains(named[i]));
    EXPECT_THAT(bad[i].error_lines, Contains(HasSubstr("not met: " + named[i] + " (")));
  }
}

// Two tags on channels 0 and 1, a nanosecond apart.
const std::vector<Tag> one_pair{{0, 1'000}, {1, 2'000}};

std::string silence_limit(const std::vector<std::string>& limits) {
  const auto limit = std::ranges::find_if(
      limits, [](const std::string& text) { return text.starts_with("silent_tail_s<"); });
  EXPECT_NE(limit, limits.end());
  return limit == limits.end() ? "" : *limit;
}

// Silent for all of five seconds but the time until its only read is counted.
TEST_F(ProductionLimits, CatchALibraryThatFallsSilent) {
  const SmokeTestResult result =
      run_smoke_test(raw64_device(one_pair), {"format=raw64", "mode=external", "channel_mask=3",
                                              "capture_s=5", "require=" + silence_limit(limits())});
  EXPECT_EQ(result.exit_status, 4);
  const std::vector<Missed> missed = read_all_missed(lines_of(result.error));
  ASSERT_EQ(missed.size(), 1U) << result.error;
  EXPECT_EQ(missed[0].condition, silence_limit(limits()));
  ASSERT_EQ(missed[0].values.size(), 2U);
  for (const double tail_s : missed[0].values) {
    EXPECT_GT(tail_s, 0.25);
  }
}

// One that goes on until the tags are counted.
TEST_F(ProductionLimits, LetALibraryPassThatDoesNot) {
  scripted_device::Script script = raw64_device(one_pair);
  script.forever = script.reads.front();
  script.forever.delay_ms = 1;
  const SmokeTestResult result =
      run_smoke_test(script, {"format=raw64", "mode=external", "channel_mask=3", "capture_s=20",
                              "stop_tags=100", "require=" + silence_limit(limits())});
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 0);
}

}  // namespace
}  // namespace zelk::test_support
