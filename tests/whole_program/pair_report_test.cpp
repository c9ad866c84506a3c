// The report's lines on the channel pair, for streams whose figures are worked
// out by hand.
#include <gtest/gtest.h>

#include <vector>

#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

// 1000 and 1000 coincide; 2000 and 2001 do not. A window of 0 has one bin,
// which counts nothing.
TEST(PairReport, WindowOfZeroAsksForEqualTimes) {
  const ExpectedReport expected{
      .tags_total = "4",
      .counts = {"2", "2", "0", "0"},
      .coincidences = "1",
      .peak_center = "0",
      .top_bins = "0:0",
      .min_dt = "1000,1001,0,0",
      .below_10ns = "1,1,0,0",
      .below_100ns = "1,1,0,0",
      .below_500ns = "1,1,0,0",
      .below_900ns = "1,1,0,0",
      .residues = {{{"2", "0", "1000:1,2000:1"}, {"2", "0", "1000:1,2001:1"}, {}, {}}},
      .bins = {"ch0=2 ch1=2 ch2=0 ch3=0"}};
  expect_report_of({{0, 1000}, {1, 1000}, {0, 2000}, {1, 2001}}, {"coincidence_window_ps=0"},
                   expected, 0);
}

TEST(PairReport, NegativeWindowCountsNothing) {
  expect_report_of({{0, 1000}, {1, 1000}}, {"coincidence_window_ps=-1"},
                   {.tags_total = "2",
                    .counts = {"1", "1", "0", "0"},
                    .peak_center = "0",
                    .top_bins = "0:0",
                    .residues = {{{"1", "0", "1000:1"}, {"1", "0", "1000:1"}, {}, {}}},
                    .bins = {"ch0=1 ch1=1 ch2=0 ch3=0"}},
                   3);
}

// Partners at +1000 and -1000 ps count, those at +1001 and -1001 do not. The
// offset is the upper one of the two that count.
TEST(PairReport, WindowIncludesBothItsEnds) {
  expect_report_of(
      {{0, 5000},
       {1, 6000},
       {0, 105000},
       {1, 104000},
       {0, 205000},
       {1, 206001},
       {0, 305000},
       {1, 303999}},
      {},
      {.tags_total = "8",
       .counts = {"4", "4", "0", "0"},
       .coincidences = "2",
       .offset = "1000",
       .peak_count = "2",
       .peak_center = "0",
       .top_bins = "0:2,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0,-936:0",
       .min_dt = "100000,97998,0,0",
       .below_100ns = "0,2,0,0",
       .below_500ns = "3,3,0,0",
       .below_900ns = "3,3,0,0",
       .residues = {{{"4", "0", "1667:1,1677:1,1687:1,1697:1"},
                     {"4", "0", "677:1,696:1,2667:1,2688:1"},
                     {},
                     {}}},
       .bins = {"ch0=4 ch1=4 ch2=0 ch3=0"}},
      0);
}

// Differences 0, +4 and -4 ps: with the offset 0 they go to the bins 0, 8, -8.
// The spread is sqrt(128 / 3).
TEST(PairReport, HalfABinIsRoundedAwayFromZero) {
  expect_report_of(
      {{0, 1000}, {0, 101000}, {0, 201000}, {1, 1000}, {1, 101004}, {1, 200996}}, {},
      {.tags_total = "6",
       .counts = {"3", "3", "0", "0"},
       .coincidences = "3",
       .peak_count = "1",
       .peak_center = "-8",
       .rms = "6.532",
       .fwhm = "15.383",
       .top_bins = "-8:1,0:1,8:1,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0",
       .min_dt = "100000,99992,0,0",
       .below_100ns = "0,1,0,0",
       .below_500ns = "2,2,0,0",
       .below_900ns = "2,2,0,0",
       .residues =
           {{{"3", "0", "1000:1,1010:1,1020:1"}, {"3", "0", "1000:1,1014:1,1016:1"}, {}, {}}},
       .bins = {"ch0=3 ch1=3 ch2=0 ch3=0"}},
      0);
}

// Partners 5 ps before and after: the offset is +5, so the pairs lie at 0 and
// at -10, which is nearest to the bin -8.
TEST(PairReport, TieOfTheNearestPartnersGoesToTheLaterOne) {
  expect_report_of({{0, 1000}, {1, 995}, {1, 1005}}, {},
                   {.tags_total = "3",
                    .counts = {"1", "2", "0", "0"},
                    .coincidences = "1",
                    .offset = "5",
                    .peak_count = "1",
                    .peak_center = "-8",
                    .rms = "4.000",
                    .fwhm = "9.420",
                    .top_bins = "-8:1,0:1,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0",
                    .min_dt = "0,10,0,0",
                    .below_10ns = "0,1,0,0",
                    .below_100ns = "0,1,0,0",
                    .below_500ns = "0,1,0,0",
                    .below_900ns = "0,1,0,0",
                    .residues = {{{"1", "0", "1000:1"}, {"2", "0", "995:1,1005:1"}, {}, {}}},
                    .bins = {"ch0=1 ch1=2 ch2=0 ch3=0"}},
                   0);
}

// Differences 10, 20, 30, 40: the third is the offset.
TEST(PairReport, EvenNumberOfDifferencesTakesTheUpperMiddleOne) {
  expect_report_of(
      {{0, 0},
       {0, 100000},
       {0, 200000},
       {0, 300000},
       {1, 10},
       {1, 100020},
       {1, 200030},
       {1, 300040}},
      {},
      {.tags_total = "8",
       .counts = {"4", "4", "0", "0"},
       .coincidences = "4",
       .offset = "30",
       .peak_count = "1",
       .peak_center = "-24",
       .rms = "11.832",
       .fwhm = "27.865",
       .top_bins = "-24:1,-8:1,0:1,8:1,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0",
       .min_dt = "100000,100010,0,0",
       .below_500ns = "3,3,0,0",
       .below_900ns = "3,3,0,0",
       .residues = {{{"4", "1", "0:1,10:1,20:1,30:1"}, {"4", "0", "10:1,30:1,50:1,70:1"}, {}, {}}},
       .bins = {"ch0=4 ch1=4 ch2=0 ch3=0"}},
      0);
}

// B's one tag at 2001 serves the four A tags from 1500 to 3001.
TEST(PairReport, OneTagMayServeSeveral) {
  expect_report_of(
      {{0, 1000}, {0, 1500}, {0, 2000}, {0, 2001}, {0, 3001}, {1, 2001}}, {},
      {.tags_total = "6",
       .counts = {"5", "1", "0", "0"},
       .coincidences = "4",
       .offset = "1",
       .peak_count = "2",
       .peak_center = "0",
       .rms = "414.883",
       .fwhm = "977.050",
       .top_bins = "0:2,504:1,1000:1,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0",
       .min_dt = "1,0,0,0",
       .below_10ns = "4,0,0,0",
       .below_100ns = "4,0,0,0",
       .below_500ns = "4,0,0,0",
       .below_900ns = "4,0,0,0",
       .residues =
           {{{"5", "0", "1000:1,1500:1,2000:1,2001:1,3001:1"}, {"1", "0", "2001:1"}, {}, {}}},
       .bins = {"ch0=5 ch1=1 ch2=0 ch3=0"}},
      0);
}

// Satellites at +3333 (bin 3336) and +3293 (bin 3296) lie in the plus window,
// at -3333 (bin -3336) in the minus window; -3373 falls into the bin -3376 and
// so outside.
TEST(PairReport, SideWindowsLieOneClockPeriodFromTheOffset) {
  expect_report_of(
      {{0, 5000},
       {1, 5000},
       {0, 105000},
       {1, 105000},
       {0, 205000},
       {1, 205000},
       {1, 8333},
       {1, 101667},
       {1, 208293},
       {1, 201627}},
      {"coincidence_window_ps=4000"},
      {.tags_total = "10",
       .counts = {"3", "7", "0", "0"},
       .coincidences = "3",
       .peak_count = "3",
       .peak_center = "0",
       .rms = "2521.844",
       .fwhm = "5938.942",
       .minus_window = "1",
       .plus_window = "2",
       .top_bins = "0:3,-3376:1,-3336:1,3296:1,3336:1,-4000:0,-3992:0,-3984:0,-3976:0,-3968:0",
       .violations = "0,2,0,0",
       .min_dt = "100000,-196667,0,0",
       .below_100ns = "0,1,0,0",
       .below_500ns = "2,4,0,0",
       .below_900ns = "2,4,0,0",
       .residues = {{{"3", "0", "1667:1,1677:1,1687:1"},
                     {"4", "0", "1647:2,1667:2,1677:2,1687:1"},
                     {},
                     {}}},
       .bins = {"ch0=3 ch1=7 ch2=0 ch3=0"}},
      0);
}

// The cursor into B has passed 1000 when A's late tag comes; the histogram
// sorts first and finds both pairs.
TEST(PairReport, LateTagMissesItsPartnerInTheCountButNotInTheHistogram) {
  expect_report_of(
      {{0, 9000}, {0, 1000}, {1, 1000}, {1, 9000}}, {"coincidence_window_ps=100"},
      {.tags_total = "4",
       .counts = {"2", "2", "0", "0"},
       .coincidences = "1",
       .peak_count = "2",
       .peak_center = "0",
       .top_bins = "0:2,-96:0,-88:0,-80:0,-72:0,-64:0,-56:0,-48:0,-40:0,-32:0",
       .violations = "1,0,0,0",
       .min_dt = "-8000,8000,0,0",
       .below_10ns = "0,1,0,0",
       .below_100ns = "0,1,0,0",
       .below_500ns = "0,1,0,0",
       .below_900ns = "0,1,0,0",
       .residues = {{{"2", "0", "1000:1,2334:1"}, {"2", "0", "1000:1,2334:1"}, {}, {}}},
       .bins = {"ch0=2 ch1=2 ch2=0 ch3=0"}},
      0);
}

TEST(PairReport, EqualBinsAreRankedByTheirCentre) {
  expect_report_of(
      {{0, 100000},
       {1, 100000},
       {1, 100016},
       {1, 100016},
       {1, 99984},
       {1, 99984},
       {1, 100500},
       {0, 900000}},
      {},
      {.tags_total = "8",
       .counts = {"2", "6", "0", "0"},
       .coincidences = "1",
       .peak_count = "2",
       .peak_center = "-16",
       .rms = "188.283",
       .fwhm = "443.408",
       .top_bins = "-16:2,16:2,0:1,504:1,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0",
       .violations = "0,1,0,0",
       .max_gap_ms = "0.001,0.000,0.000,0.000",
       .min_dt = "800000,-32,0,0",
       .below_10ns = "0,4,0,0",
       .below_100ns = "0,4,0,0",
       .below_500ns = "0,4,0,0",
       .below_900ns = "1,4,0,0",
       .residues = {{{"2", "0", "10:1,90:1"}, {"4", "0", "26:2,3327:2,10:1,510:1"}, {}, {}}},
       .bins = {"ch0=2 ch1=6 ch2=0 ch3=0"}},
      0);
}

// Windows far wider than any capture have more bins than memory holds. Every tag
// then pairs with every other: 0 twice, one clock period before it, 2 ms to both
// sides, and 2 ms and a period.
TEST(PairReport, WindowOf5MillisecondsHoldsAllPairs) {
  expect_report_of(
      {{1, 99'996'667}, {0, 100'000'000}, {1, 100'000'000}, {0, 2'100'000'000}, {1, 2'100'000'000}},
      {"coincidence_window_ps=5000000000"},
      {.tags_total = "5",
       .counts = {"2", "3", "0", "0"},
       .coincidences = "2",
       .peak_count = "2",
       .peak_center = "0",
       .rms = "1374369081.273",
       .fwhm = "3236639186.397",
       .minus_window = "1",
       .top_bins = "0:2,-2000003336:1,-2000000000:1,-3336:1,2000000000:1,-5000000000:0,"
                   "-4999999992:0,-4999999984:0,-4999999976:0,-4999999968:0",
       .max_gap_ms = "2.000,2.000,0.000,0.000",
       .min_dt = "2000000000,3333,0,0",
       .below_10ns = "0,1,0,0",
       .below_100ns = "0,1,0,0",
       .below_500ns = "0,1,0,0",
       .below_900ns = "0,1,0,0",
       .residues = {{{"2", "0", "1:1,21:1"}, {"2", "0", "1:2,21:1"}, {}, {}}},
       .bins = {"ch0=2 ch1=3 ch2=0 ch3=0"}},
      0);
}

TEST(PairReport, TheWidestWindowHoldsAllPairs) {
  expect_report_of({{0, 5000}, {1, 5100}}, {"coincidence_window_ps=9223372036854775807"},
                   {.tags_total = "2",
                    .counts = {"1", "1", "0", "0"},
                    .coincidences = "1",
                    .offset = "100",
                    .peak_count = "1",
                    .peak_center = "0",
                    .top_bins = "0:1,-9223372036854775808:0,-9223372036854775800:0,"
                                "-9223372036854775792:0,-9223372036854775784:0,"
                                "-9223372036854775776:0,-9223372036854775768:0,"
                                "-9223372036854775760:0,-9223372036854775752:0,"
                                "-9223372036854775744:0",
                    .residues = {{{"1", "0", "1667:1"}, {"1", "0", "1767:1"}, {}, {}}},
                    .bins = {"ch0=1 ch1=1 ch2=0 ch3=0"}},
                   0);
}

}  // namespace
}  // namespace zelk::test_support
