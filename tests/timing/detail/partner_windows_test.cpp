#include "timing/detail/partner_windows.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "tests/reference/random_times.hpp"
#include "timing/detail/wrapping.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using zelk::timing::detail::for_each_window;
using zelk::timing::detail::partner_lanes;
using zelk::timing::detail::windows_stay_in_range;
using zelk::timing::detail::wrap_add;
using zelk::timing::detail::wrap_sub;

using Times = std::vector<std::int64_t>;
using Visit = std::pair<std::int64_t, std::size_t>;  // time, index of its first partner

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

// Ascending; within a lane, they must have come so.
std::vector<Visit> visits(const Times& times, const Times& partners, std::int64_t low_ps) {
  std::array<std::vector<Visit>, partner_lanes> lanes;
  for_each_window(times, partners, low_ps,
                  [&](std::size_t lane, std::int64_t x, const std::int64_t* first) {
                    lanes.at(lane).emplace_back(x, first - partners.data());
                  });
  std::vector<Visit> all;
  for (const std::vector<Visit>& lane : lanes) {
    EXPECT_TRUE(std::is_sorted(lane.begin(), lane.end()));
    all.insert(all.end(), lane.begin(), lane.end());
  }
  EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
  return all;
}

// Every time by itself.
std::vector<Visit> expected_visits(const Times& times, const Times& partners, std::int64_t low_ps) {
  std::vector<Visit> all;
  for (const std::int64_t x : times) {
    const auto first = std::find_if(partners.begin(), partners.end(), [&](std::int64_t partner) {
      return partner >= wrap_add(x, low_ps);
    });
    if (first != partners.end()) {
      all.emplace_back(x, first - partners.begin());
    }
  }
  return all;
}

TEST(PartnerWindows, BeginAtTheFirstPartnerThatIsNotBefore) {
  EXPECT_THAT(visits({10, 20, 30}, {9, 10, 19, 35, 35}, 0),
              ElementsAre(Pair(10, 1), Pair(20, 3), Pair(30, 3)));
  EXPECT_THAT(visits({10, 20, 30}, {9, 10, 19, 35, 35}, -1),
              ElementsAre(Pair(10, 0), Pair(20, 2), Pair(30, 3)));
}

TEST(PartnerWindows, LeaveOutTimesBehindAllPartners) {
  EXPECT_THAT(visits({10, 20, 30}, {5, 20}, 0), ElementsAre(Pair(10, 1), Pair(20, 1)));
  EXPECT_THAT(visits({10, 20, 30}, {5}, 0), IsEmpty());
  EXPECT_THAT(visits({10}, {}, 0), IsEmpty());
  EXPECT_THAT(visits({}, {10}, 0), IsEmpty());
}

TEST(PartnerWindows, AreFoundAcrossAnyNumberOfPartnersBetween) {
  for (std::int64_t between = 0; between < 12; ++between) {
    Times times;
    Times partners;
    for (std::int64_t i = 0; i < 40; ++i) {
      times.push_back(100 * i);
      for (std::int64_t k = between; k >= 0; --k) {
        partners.push_back(100 * i - k);
      }
    }
    EXPECT_EQ(visits(times, partners, 0), expected_visits(times, partners, 0)) << between;
  }
}

TEST(PartnerWindows, AgreeWithASearchForEveryTime) {
  zelk::reference::RandomTimes random(14);
  std::size_t compared = 0;
  for (int round = 0; round < 3000; ++round) {
    Times times = random.list(random.below(80));
    Times partners = random.partner_of(times, random.below(200));
    std::sort(times.begin(), times.end());
    std::sort(partners.begin(), partners.end());
    const std::int64_t offset = random.below(3) == 0 ? random.extreme() : random.between(-50, 50);
    const std::int64_t range = random.between(0, 3000);
    if (times.empty() || !windows_stay_in_range(times, offset, range)) {
      continue;
    }
    const std::int64_t low_ps = wrap_sub(offset, range);
    const std::vector<Visit> expected = expected_visits(times, partners, low_ps);
    ASSERT_EQ(visits(times, partners, low_ps), expected) << "round " << round;
    compared += expected.size();
  }
  EXPECT_GT(compared, 20'000U);
}

TEST(PartnerWindows, StayInRangeUpToItsEnds) {
  EXPECT_TRUE(windows_stay_in_range(Times{smallest + 5, largest - 5}, 0, 5));
  EXPECT_FALSE(windows_stay_in_range(Times{smallest + 5, largest - 5}, 0, 6));
  EXPECT_FALSE(windows_stay_in_range(Times{smallest + 5, largest - 5}, 1, 5));
  EXPECT_FALSE(windows_stay_in_range(Times{smallest + 5, largest - 5}, -1, 5));
  EXPECT_TRUE(windows_stay_in_range(Times{largest - 5}, smallest, 5));
  EXPECT_FALSE(windows_stay_in_range(Times{4}, smallest, 5));
}

}  // namespace
