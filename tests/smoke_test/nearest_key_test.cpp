// Which key is suggested for one that does not exist.
#include <gtest/gtest.h>

#include <string>

#include "smoke_test/argument_check.hpp"
#include "smoke_test/options.hpp"

namespace {

TEST(NearestKey, OfAKeyIsTheKey) {
  for (const Option& option : options()) {
    for (const std::string_view key : option.keys) {
      if (!key.empty()) {
        EXPECT_EQ(nearest_key(key), key);
      }
    }
  }
}

TEST(NearestKey, CountsEachKindOfChangeOnce) {
  EXPECT_EQ(nearest_key("ef"), "ref");    // one missing: 1 of 3
  EXPECT_EQ(nearest_key("rev"), "ref");   // another one: 1 of 3
  EXPECT_EQ(nearest_key("erf"), "ref");   // exchanged: 1 of 3
  EXPECT_EQ(nearest_key("reff"), "ref");  // one more: 1 of 4
}

TEST(NearestKey, IsAtMostOneChangeInThreeCharactersAway) {
  EXPECT_EQ(nearest_key("r"), "");                      // 2 of 3
  EXPECT_EQ(nearest_key("fer"), "");                    // 2 of 3
  EXPECT_EQ(nearest_key("dead_time"), "dead_time_ps");  // 3 of 12
  EXPECT_EQ(nearest_key("queue"), "");                  // 6 of 11
  EXPECT_EQ(nearest_key("tld_maks"), "tdl_mask");       // 2 of 8
}

TEST(NearestKey, MayBeAnAlias) {
  EXPECT_EQ(nearest_key("controlport"), "control_port");
  EXPECT_EQ(nearest_key("byts"), "bytes");
}

TEST(NearestKey, IsTheFirstOfThoseThatAreAsNear) {
  EXPECT_EQ(nearest_key("channel_c"), "channel_a");
}

TEST(NearestKey, OfNothingAndOfALongTextIsNone) {
  EXPECT_EQ(nearest_key(""), "");
  EXPECT_EQ(nearest_key(std::string(10'000'000, 'e')), "");
}

}  // namespace
