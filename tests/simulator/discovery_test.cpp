#include "simulator/discovery.hpp"

#include <gtest/gtest.h>

#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator {
namespace {

TEST(Discovery, FindsTheDefaultUnitUnlessAskedOtherwise) {
  const std::vector<DiscoveredUnit> units = discovered_units(nullptr);
  ASSERT_EQ(units.size(), 1U);
  EXPECT_EQ(units[0].port, "ftdi://ZK4-0001");
  ASSERT_TRUE(units[0].identity.has_value());
  EXPECT_STREQ(units[0].identity->serial, "ZK4-0001");
}

TEST(Discovery, FailsWithAnyStatus) {
  failure_text(static_cast<Status>(-7), [] { discovered_units("fail:-7"); });
  failure_text(static_cast<Status>(2147483647), [] { discovered_units("fail:2147483647"); });
}

TEST(Discovery, FailsAsADeviceWould) {
  EXPECT_THROW(discovered_units("fail:-40"), FaultFailure);
}

TEST(Discovery, MayFindNothing) {
  EXPECT_TRUE(discovered_units("empty").empty());
}

TEST(Discovery, MayFindAnEntryOfNullPointers) {
  const std::vector<DiscoveredUnit> units = discovered_units("null");
  ASSERT_EQ(units.size(), 1U);
  EXPECT_EQ(units[0].port, std::nullopt);
  EXPECT_FALSE(units[0].identity.has_value());
}

TEST(Discovery, MayFindAUnitAtAnyPort) {
  const std::vector<DiscoveredUnit> units = discovered_units("port:sim://tags?file=a:b");
  ASSERT_EQ(units.size(), 1U);
  EXPECT_EQ(units[0].port, "sim://tags?file=a:b");
  ASSERT_TRUE(units[0].identity.has_value());
  EXPECT_STREQ(units[0].identity->serial, "SIM-TAGS");
}

TEST(Discovery, KnowsNoIdentityBehindAPortThatCannotBeOpened) {
  for (const char* const request : {"port:", "port:nowhere", "port:ftdi://\n"}) {
    const std::vector<DiscoveredUnit> units = discovered_units(request);
    ASSERT_EQ(units.size(), 1U);
    EXPECT_EQ(units[0].port, std::string(request).substr(5));
    EXPECT_FALSE(units[0].identity.has_value());
  }
}

TEST(Discovery, AnyOtherRequestFailsByName) {
  for (const char* const request : {"", "none", "Empty", "empty ", "fail", "fail:", "fail:0",
                                    "fail:x", "fail:1 ", "fail:2147483648", "port", "null:"}) {
    EXPECT_NE(
        failure_text(Status::malformed_discovery, [&] { discovered_units(request); }).find(request),
        std::string::npos);
  }
}

}  // namespace
}  // namespace zelk::simulator
