#include "smoke_test/verdict.hpp"

#include <gtest/gtest.h>

namespace {

TEST(Verdict, TagsOnBothChannelsAndCoincidencesAreASuccess) {
  EXPECT_EQ(verdict(1, 1, 1, 0), 0);
}

TEST(Verdict, AnyCountOfZeroFailsTheTest) {
  EXPECT_EQ(verdict(0, 1, 1, 0), 3);
  EXPECT_EQ(verdict(1, 0, 1, 0), 3);
  EXPECT_EQ(verdict(1, 1, 0, 0), 3);
}

TEST(Verdict, ASignalOutranksTheCounts) {
  EXPECT_EQ(verdict(1, 1, 1, 2), 130);
  EXPECT_EQ(verdict(0, 0, 0, 15), 143);
}

}  // namespace
