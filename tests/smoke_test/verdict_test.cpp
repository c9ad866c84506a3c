#include "smoke_test/verdict.hpp"

#include <gtest/gtest.h>

#include <cstdint>

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

TEST(ByteProbeVerdict, AnyByteAtAllIsASuccess) {
  EXPECT_EQ(byte_probe_verdict(1, 0), 0);
  EXPECT_EQ(byte_probe_verdict(std::uint64_t{1} << 32, 0), 0);
  EXPECT_EQ(byte_probe_verdict(UINT64_MAX, 0), 0);
}

TEST(ByteProbeVerdict, NoByteFailsTheTest) {
  EXPECT_EQ(byte_probe_verdict(0, 0), 1);
}

TEST(ByteProbeVerdict, ASignalOutranksTheCount) {
  EXPECT_EQ(byte_probe_verdict(5, 2), 130);
  EXPECT_EQ(byte_probe_verdict(0, 15), 143);
}

}  // namespace
