// Tags that a run saw, kept in a file of either layout and played by the simulated
// unit: the report has the figures of that run.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/npy_bytes.hpp"
#include "tests/support/parameter_names.hpp"
#include "tests/support/temporary_directory.hpp"
#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

constexpr std::uint64_t epoch_ps = std::uint64_t{3333} << 32;

// Tags in time order, in groups of one to four: pairs on channels 0 and 1, their
// second one up to 300 ps later, and tags of channels 2 and 3 at the same time.
std::vector<Tag> tags_from(std::uint64_t first_ps, int groups) {
  std::mt19937_64 random(first_ps + 1);
  std::vector<Tag> tags{{3, first_ps}};
  std::uint64_t time_ps = first_ps;
  for (; groups > 0; --groups) {
    time_ps += 1000 + random() % 40'000'000;
    if (random() % 3 == 0) {
      tags.push_back({2, time_ps});
      tags.push_back({3, time_ps});
    }
    tags.push_back({0, time_ps});
    if (random() % 10 != 0) {
      tags.push_back({1, time_ps + random() % 300});
    }
  }
  return tags;
}

std::string as_text(const std::vector<Tag>& tags) {
  std::string text = "channel,timestamp_ps\n";
  for (const Tag& tag : tags) {
    text += std::to_string(tag.channel) + ',' + std::to_string(tag.time_ps) + '\n';
  }
  return text;
}

std::string as_array(const std::vector<Tag>& tags) {
  std::string array = npy_beginning_for(tags.size());
  for (const Tag& tag : tags) {
    array += npy_row(static_cast<int>(tag.channel), static_cast<std::int64_t>(tag.time_ps));
  }
  return array;
}

// The report from the first line on that follows from the tags.
std::string figures(const std::string& report) {
  const std::size_t place = report.find("\ntags_total=");
  return place == report.npos ? "no figures in: " + report : report.substr(place + 1);
}

class SavedTags : public testing::TestWithParam<std::uint64_t> {
 protected:
  // The run that plays a file with these bytes, to its last tag.
  ProgramResult play(const std::string& bytes) {
    const std::string path = directory_.path() / "tags";
    std::ofstream(path, std::ios::binary) << bytes;
    Program program = simulated_smoke_test({"port=sim://tags?pace=max&file=" + path, "format=raw64",
                                            "mode=external", "channel_mask=0x0f", "bin_s=0.01",
                                            "capture_s=25", count_, "queue_limit=8388608"});
    program.watchdog = std::chrono::seconds(60);
    return run(program);
  }

  // The run of a unit that sends these tags, which come in records that wrap with
  // the coarse epoch.
  [[nodiscard]] ProgramResult see(std::vector<Tag> tags) const {
    for (Tag& tag : tags) {
      tag.time_ps %= epoch_ps;
    }
    return run_smoke_test(raw64_device(tags),
                          {"format=raw64", "mode=external", "channel_mask=0x0f", "bin_s=0.01",
                           "capture_s=25", count_, "queue_limit=8388608"});
  }

  std::vector<Tag> tags_ = tags_from(GetParam(), 30'000);

 private:
  TemporaryDirectory directory_;
  std::string count_ = "stop_tags=" + std::to_string(tags_.size());
};

TEST_P(SavedTags, AreReportedAlikeFromEitherLayout) {
  const ProgramResult text = play(as_text(tags_));
  const ProgramResult array = play(as_array(tags_));
  EXPECT_EQ(text.error, "");
  EXPECT_EQ(text.exit_status, 0);
  EXPECT_EQ(array.output, text.output);
  EXPECT_EQ(array.error, "");
  EXPECT_EQ(array.exit_status, 0);
}

TEST_P(SavedTags, AreReportedAsByTheRunThatSawThem) {
  const ProgramResult seen = see(tags_);
  ASSERT_EQ(seen.error, "");
  ASSERT_TRUE(
      figures(seen.output).starts_with("tags_total=" + std::to_string(tags_.size()) + '\n'));
  EXPECT_NE(seen.output.find("\nmonotonic_violations=0,0,0,0\n"), std::string::npos);
  const ProgramResult played = play(as_array(tags_));
  EXPECT_EQ(figures(played.output), figures(seen.output));
  EXPECT_EQ(played.exit_status, seen.exit_status);
}

// From a stream's very start, from anywhere in it, and across the end of a coarse
// epoch, behind which times go on rising.
INSTANTIATE_TEST_SUITE_P(FromAnyTimeOn, SavedTags,
                         testing::Values(0, 1, 7'654'321'098'765, epoch_ps - 100'000'000'000),
                         printed_parameter);

// The whole way: a run keeps its tags, and another one plays them.
class SavedRun : public testing::TestWithParam<std::tuple<std::string, std::string>> {
 protected:
  static std::vector<std::string> arguments(std::vector<std::string> more) {
    std::vector<std::string> all{"mode=external", "channel_mask=0x0f", "bin_s=0.01",
                                 "capture_s=25",  "stop_tags=20000",   "queue_limit=8388608"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  static ProgramResult run_unit(std::vector<std::string> more) {
    Program program = simulated_smoke_test(arguments(std::move(more)));
    program.watchdog = std::chrono::seconds(60);
    return run(program);
  }
};

TEST_P(SavedRun, IsReportedAlikeWhenItIsPlayed) {
  const auto& [format, ending] = GetParam();
  const TemporaryDirectory directory;
  const std::string file = directory.path() / ("run" + ending);
  const ProgramResult seen = run_unit(
      {"port=sim://pairs?pace=max&pair_rate_hz=200000", "format=" + format, "save_tags=" + file});
  ASSERT_EQ(seen.error, "");
  ASSERT_TRUE(figures(seen.output).starts_with("tags_total=20000\n"));
  const ProgramResult played = run_unit({"port=sim://tags?pace=max&file=" + file, "format=raw64"});
  EXPECT_EQ(played.error, "");
  EXPECT_EQ(figures(played.output), figures(seen.output));
  EXPECT_EQ(played.exit_status, seen.exit_status);
}

INSTANTIATE_TEST_SUITE_P(InEachFormatAndLayout, SavedRun,
                         testing::Combine(testing::Values("raw64", "delta32", "packed_delta"),
                                          testing::Values(".npy", ".csv")),
                         printed_parameter);

}  // namespace
}  // namespace zelk::test_support
