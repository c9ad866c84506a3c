// The report's lines on the stream's health, its time bins and its residues,
// for streams whose figures are worked out by hand.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

// Steps 0, -1000 and +2000: one violation, the negative step is the least but
// counts below no limit, and the tag after it is measured from it.
TEST(StreamReport, EqualAndLateTags) {
  expect_report_of({{2, 5000}, {2, 5000}, {2, 4000}, {2, 6000}}, {},
                   {.tags_total = "4",
                    .counts = {"0", "0", "4", "0"},
                    .violations = "0,0,1,0",
                    .min_dt = "0,0,-1000,0",
                    .below_10ns = "0,0,2,0",
                    .below_100ns = "0,0,2,0",
                    .below_500ns = "0,0,2,0",
                    .below_900ns = "0,0,2,0",
                    .residues = {{{}, {}, {"3", "0", "1667:2,667:1,2667:1"}, {}}},
                    .bins = {"ch0=0 ch1=0 ch2=4 ch3=0"}},
                   3);
}

// Steps 9999, 10000, 99999, 100000, 499999, 500000, 899999 and 900000 ps.
TEST(StreamReport, StepsCountBelowEveryLimitThatIsLarger) {
  expect_report_of(
      {{1, 0},
       {1, 9'999},
       {1, 19'999},
       {1, 119'998},
       {1, 219'998},
       {1, 719'997},
       {1, 1'219'997},
       {1, 2'119'996},
       {1, 3'019'996}},
      {},
      {.tags_total = "9",
       .counts = {"0", "9", "0", "0"},
       .max_gap_ms = "0.000,0.001,0.000,0.000",
       .min_dt = "0,9999,0,0",
       .below_10ns = "0,1,0,0",
       .below_100ns = "0,3,0,0",
       .below_500ns = "0,5,0,0",
       .below_900ns = "0,7,0,0",
       .residues = {{{}, {"8", "2", "0:2,1:1,10:1,20:1,69:1,119:1,208:1,298:1"}, {}, {}}},
       .bins = {"ch0=0 ch1=9 ch2=0 ch3=0"}},
      3);
}

// Bins of 1 ms from the first tag, at 5 ms: the earlier tag of channel 1 goes
// into the first bin, and the empty third bin is printed.
TEST(StreamReport, TimeBinsStartWithTheFirstTagOfAnyChannel) {
  expect_report_of(
      {{0, 5'000'000'000},
       {1, 4'000'000'000},
       {0, 5'999'999'999},
       {2, 6'000'000'000},
       {3, 8'000'000'005}},
      {"bin_s=0.001"},
      {.tags_total = "5",
       .counts = {"2", "1", "1", "1"},
       .max_gap_ms = "1.000,0.000,0.000,0.000",
       .min_dt = "999999999,0,0,0",
       .residues =
           {{{"2", "0", "50:1,59:1"}, {"1", "0", "40:1"}, {"1", "0", "60:1"}, {"1", "0", "85:1"}}},
       .bins_s = "0.001",
       .bins = {"ch0=2 ch1=1 ch2=0 ch3=0", "ch0=0 ch1=0 ch2=1 ch3=0", "ch0=0 ch1=0 ch2=0 ch3=0",
                "ch0=0 ch1=0 ch2=0 ch3=1"}},
      3);
}

// 4096 bins of 1 ms: the last picosecond of the last bin, and the first one
// beyond it.
TEST(StreamReport, TagsBeyondTheLastBinAreCountedAsOverflow) {
  ExpectedReport expected{.tags_total = "3",
                          .counts = {"1", "1", "1", "0"},
                          .residues = {{{"1", "1", "0:1"}, {}, {}, {}}},
                          .bins_s = "0.001",
                          .bin_overflow = "1",
                          .bins = std::vector<std::string>(4096, "ch0=0 ch1=0 ch2=0 ch3=0")};
  // 4096 x 10^9 = 3333 x 1228922892 + 964
  expected.residues[1] = {"1", "0", "963:1"};
  expected.residues[2] = {"1", "0", "964:1"};
  expected.bins.front() = "ch0=1 ch1=0 ch2=0 ch3=0";
  expected.bins.back() = "ch0=0 ch1=1 ch2=0 ch3=0";
  expect_report_of({{0, 0}, {1, 4'095'999'999'999}, {2, 4'096'000'000'000}}, {"bin_s=0.001"},
                   expected, 3);
}

// The raw time falls back 29 times from the end of the epoch E to 0, so that
// the tags lie at 0, E - 1, E, 2E - 1, 2E, ... 29E, that is 415.1 s. The last
// two lie beyond 4096 bins of 0.1 s.
TEST(StreamReport, TimesGoOnOverTheWrapOfTheDevicesCounter) {
  constexpr std::uint64_t epoch = 14'315'125'997'568;
  constexpr std::uint64_t bin_ps = 100'000'000'000;
  std::vector<Tag> tags{{3, 0}};
  // 28E is 400.823 s and lies in bin 4008.
  std::vector<int> rows(4009, 0);
  rows[0] = 1;
  for (std::uint64_t wrap = 1; wrap <= 29; ++wrap) {
    tags.push_back({3, epoch - 1});
    tags.push_back({3, 0});
    if (wrap <= 28) {
      ++rows[(wrap * epoch - 1) / bin_ps];
      ++rows[wrap * epoch / bin_ps];
    }
  }
  ExpectedReport expected{.tags_total = "59",
                          .counts = {"0", "0", "0", "59"},
                          .max_gap_ms = "0.000,0.000,0.000,14315.126",
                          .min_dt = "0,0,0,1",
                          .below_10ns = "0,0,0,29",
                          .below_100ns = "0,0,0,29",
                          .below_500ns = "0,0,0,29",
                          .below_900ns = "0,0,0,29",
                          .residues = {{{}, {}, {}, {"2", "30", "0:30,3332:29"}}},
                          .bin_overflow = "2"};
  for (const int count : rows) {
    expected.bins.push_back("ch0=0 ch1=0 ch2=0 ch3=" + std::to_string(count));
  }
  expect_report_of(tags, {}, expected, 3);
}

TEST(StreamReport, BinWidthIsAtLeastOneMillisecond) {
  for (const char* width : {"bin_s=0", "bin_s=-1", "bin_s=nan", "bin_s=0.0009"}) {
    expect_report_of({{2, 0}, {2, 3333'000'000}}, {width},
                     {.tags_total = "2",
                      .counts = {"0", "0", "2", "0"},
                      .max_gap_ms = "0.000,0.000,3.333,0.000",
                      .min_dt = "0,0,3333000000,0",
                      .residues = {{{}, {}, {"1", "2", "0:2"}, {}}},
                      .bins_s = "0.001",
                      .bins = {"ch0=0 ch1=0 ch2=1 ch3=0", "ch0=0 ch1=0 ch2=0 ch3=0",
                               "ch0=0 ch1=0 ch2=0 ch3=0", "ch0=0 ch1=0 ch2=1 ch3=0"}},
                     3);
  }
}

TEST(StreamReport, WidthBeyondTheClocksRangeSwitchesBinsOff) {
  expect_report_of({{0, 5'000'000'000}, {1, 10'000'000'000'000}}, {"bin_s=1e7"},
                   {.tags_total = "2",
                    .counts = {"1", "1", "0", "0"},
                    .residues = {{{"1", "0", "50:1"}, {"1", "0", "10:1"}, {}, {}}},
                    .bins_s = "10000000.000"},
                   3);
}

TEST(StreamReport, AtMostEightResiduesAreListed) {
  expect_report_of(
      {{2, 6675}, {2, 8}, {2, 7}, {2, 6}, {2, 5}, {2, 4}, {2, 3}, {2, 2}, {2, 1}, {2, 3341}}, {},
      {.tags_total = "10",
       .counts = {"0", "0", "10", "0"},
       .violations = "0,0,8,0",
       .min_dt = "0,0,-6667,0",
       .below_10ns = "0,0,1,0",
       .below_100ns = "0,0,1,0",
       .below_500ns = "0,0,1,0",
       .below_900ns = "0,0,1,0",
       .residues = {{{}, {}, {"9", "0", "8:2,1:1,2:1,3:1,4:1,5:1,6:1,7:1"}, {}}},
       .bins = {"ch0=0 ch1=0 ch2=10 ch3=0"}},
      3);
}

TEST(StreamReport, TagsOnTheCoarseGridHaveOneResidue) {
  expect_report_of({{3, 3333}, {3, 6666}, {3, 6666}, {3, 16665}}, {},
                   {.tags_total = "4",
                    .counts = {"0", "0", "0", "4"},
                    .below_10ns = "0,0,0,3",
                    .below_100ns = "0,0,0,3",
                    .below_500ns = "0,0,0,3",
                    .below_900ns = "0,0,0,3",
                    .residues = {{{}, {}, {}, {"1", "4", "0:4"}}},
                    .bins = {"ch0=0 ch1=0 ch2=0 ch3=4"}},
                   3);
}

}  // namespace
}  // namespace zelk::test_support
