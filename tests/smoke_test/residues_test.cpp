#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "smoke_test/channel_analysis.hpp"
#include "tests/reference/literal_analysis.hpp"
#include "tests/reference/random_times.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Times = std::vector<std::int64_t>;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

TEST(Residues, AnEmptyListHasNone) {
  const ResidueStatistics residues = residue_statistics(Times{});
  EXPECT_EQ(residues.unique, 0U);
  EXPECT_EQ(residues.exact_zero, 0U);
  EXPECT_THAT(residues.top, IsEmpty());
}

TEST(Residues, NegativeResidueIsLiftedIntoRange) {
  EXPECT_THAT(residue_statistics(Times{-1}).top, ElementsAre(Pair(3332, 1)));
  EXPECT_THAT(residue_statistics(Times{-3332}).top, ElementsAre(Pair(1, 1)));
  EXPECT_THAT(residue_statistics(Times{-3334}).top, ElementsAre(Pair(3332, 1)));
}

TEST(Residues, NegativeMultiplesOfThePeriodAreExactZeros) {
  const ResidueStatistics residues = residue_statistics(Times{-3333, -6666, 0, 3333, 1});
  EXPECT_EQ(residues.unique, 2U);
  EXPECT_EQ(residues.exact_zero, 4U);
  EXPECT_THAT(residues.top, ElementsAre(Pair(0, 4), Pair(1, 1)));
}

TEST(Residues, TimesOnTheGridHaveOneResidue) {
  Times times;
  for (std::int64_t k = -20; k < 80; ++k) {
    times.push_back(3333 * k);
  }
  const ResidueStatistics residues = residue_statistics(times);
  EXPECT_EQ(residues.unique, 1U);
  EXPECT_EQ(residues.exact_zero, 100U);
  EXPECT_THAT(residues.top, ElementsAre(Pair(0, 100)));
}

TEST(Residues, TheMostFrequentComeFirst) {
  const ResidueStatistics residues =
      residue_statistics(Times{5, 1666, 0, 3333, 6666, 1666 + 3333, 0});
  EXPECT_EQ(residues.unique, 3U);
  EXPECT_EQ(residues.exact_zero, 4U);
  EXPECT_THAT(residues.top, ElementsAre(Pair(0, 4), Pair(1666, 2), Pair(5, 1)));
}

TEST(Residues, OfEqualCountsTheSmallestEightAreListed) {
  const ResidueStatistics residues =
      residue_statistics(Times{3332, 90, 80, 70, 60, 50, 40, 30, 20, 10});
  EXPECT_EQ(residues.unique, 10U);
  EXPECT_EQ(residues.exact_zero, 0U);
  EXPECT_THAT(residues.top, ElementsAre(Pair(10, 1), Pair(20, 1), Pair(30, 1), Pair(40, 1),
                                        Pair(50, 1), Pair(60, 1), Pair(70, 1), Pair(80, 1)));
}

TEST(Residues, EveryPositionOfThePeriodIsKept) {
  Times times;
  for (std::int64_t t = -3333; t < 0; ++t) {
    times.push_back(t);
  }
  times.push_back(3332);
  const ResidueStatistics residues = residue_statistics(times);
  EXPECT_EQ(residues.unique, 3333U);
  EXPECT_EQ(residues.exact_zero, 1U);
  EXPECT_THAT(residues.top, ElementsAre(Pair(3332, 2), Pair(0, 1), Pair(1, 1), Pair(2, 1),
                                        Pair(3, 1), Pair(4, 1), Pair(5, 1), Pair(6, 1)));
}

TEST(Residues, ExistAtTheEndsOfTheRange) {
  // 2^63 is 3333 * 2767288339890421 + 2615.
  EXPECT_THAT(residue_statistics(Times{largest}).top, ElementsAre(Pair(2614, 1)));
  EXPECT_THAT(residue_statistics(Times{smallest}).top, ElementsAre(Pair(718, 1)));
}

TEST(Residues, AnyListsAgreeWithThePlainMap) {
  zelk::reference::RandomTimes random(12);
  for (int round = 0; round < 1500; ++round) {
    const Times times = random.list(random.below(round % 3 == 0 ? 1000 : 300));
    const ResidueStatistics residues = residue_statistics(times);
    const zelk::reference::Residues expected = zelk::reference::residues(times);
    ASSERT_EQ(residues.unique, expected.counts.size()) << "round " << round;
    ASSERT_EQ(residues.exact_zero, expected.exact_zero) << "round " << round;
    ASSERT_EQ(residues.top, expected.top) << "round " << round;
  }
}

}  // namespace
