#include "simulator/ports/nearest_name.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zelk::simulator {
namespace {

std::string nearest(std::string_view wrong, const std::vector<std::string_view>& names) {
  return std::string(nearest_name(wrong, names).value_or("none"));
}

TEST(NearestName, DiffersByAThirdOfTheLettersAtMost) {
  const std::vector<std::string_view> names{"pairs", "pulses", "seed", "background_hz"};
  EXPECT_EQ(nearest("pars", names), "pairs");
  EXPECT_EQ(nearest("pairss", names), "pairs");
  EXPECT_EQ(nearest("plses", names), "pulses");
  EXPECT_EQ(nearest("sead", names), "seed");
  EXPECT_EQ(nearest("bakgrund_hz", names), "background_hz");
  EXPECT_EQ(nearest("backgr_hz", names), "none");  // four letters of nine
  EXPECT_EQ(nearest("sd", names), "none");
  EXPECT_EQ(nearest("no_such_key", names), "none");
  EXPECT_EQ(nearest("", names), "none");
  EXPECT_EQ(nearest("pairs", {}), "none");
}

TEST(NearestName, MayBeWrittenInCapitals) {
  EXPECT_EQ(nearest("PAIRS", {"tags", "pairs"}), "pairs");
  EXPECT_EQ(nearest("Seed", {"seed"}), "seed");
}

TEST(NearestName, IsNoneWhereTwoAreAsNear) {
  EXPECT_EQ(nearest("channel_c", {"channel_a", "channel_b"}), "none");
  EXPECT_EQ(nearest("channel_c", {"channel_a", "channel_b", "channel_d"}), "none");
  EXPECT_EQ(nearest("channel_b", {"channel_a", "channel_b"}), "channel_b");
}

TEST(NearestName, MayHoldTheWrongOneAsAPart) {
  EXPECT_EQ(nearest("rate", {"seed", "pair_rate_hz"}), "pair_rate_hz");
  EXPECT_EQ(nearest("rate", {"rate_hz", "pair_rate_hz"}), "none");
  EXPECT_EQ(nearest("hz", {"seed", "pair_rate_hz"}), "none");  // too short to mean anything
}

TEST(NearestName, OfAVeryLongTextIsNone) {
  const std::string very_long(100'000, 'x');
  EXPECT_EQ(nearest(very_long, {"seed", very_long}), "none");
}

}  // namespace
}  // namespace zelk::simulator
