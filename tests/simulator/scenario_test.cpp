#include "simulator/scenario.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fstream>

#include "tests/simulator/expect_failure.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

constexpr std::int64_t second_ps = 1'000'000'000'000;

TEST(Scenario, DefaultUnitHasPairsOverBackground) {
  const Signal signal = Scenario(parse_device_port("ftdi://")).start();
  EXPECT_EQ(signal.origin_ps, 0);
  EXPECT_EQ(signal.pace, Pace::real_time);
  std::array<int, 4> counts{};
  std::array<std::int64_t, 4> last_ps{-second_ps, -second_ps, -second_ps, -second_ps};
  std::array<int, 4> partners{};
  std::int64_t latest_ps = 0;
  while (signal.source->peek()->time_ps < second_ps) {
    const Event event = *signal.source->peek();
    signal.source->pop();
    ASSERT_GE(event.time_ps, latest_ps);
    latest_ps = event.time_ps;
    ++counts[event.channel];
    last_ps[event.channel] = event.time_ps;
    if (event.time_ps - last_ps[event.channel ^ 1U] <= 1000) {
      ++partners[event.channel];
    }
  }
  // 20 kHz of pairs and 5 kHz of background, to within 5 standard deviations.
  for (const int count : counts) {
    EXPECT_NEAR(count, 25'000, 800);
  }
  EXPECT_NEAR(partners[0] + partners[1], 20'000, 720);
  EXPECT_NEAR(partners[2] + partners[3], 20'000, 720);
}

TEST(Scenario, EveryStartGivesTheSameSignal) {
  const Scenario scenario(parse_device_port("ftdi://"));
  const Signal one = scenario.start();
  const Signal two = scenario.start();
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(one.source->peek()->time_ps, two.source->peek()->time_ps);
    one.source->pop();
    two.source->pop();
  }
}

TEST(Scenario, RecordedTagsBeginAtTheFirstTag) {
  const test_support::TemporaryDirectory directory;
  const std::string path = directory.path() / "a&b.csv";
  std::ofstream(path) << "channel,timestamp_ps\n1,5000\n2,6000\n";
  const std::string port = "sim://tags?file=" + directory.path().string() + "/a%26b.csv&pace=max";
  const Scenario scenario(parse_device_port(port));
  for (int start = 0; start < 2; ++start) {
    const Signal signal = scenario.start();
    EXPECT_EQ(signal.origin_ps, 5000);
    EXPECT_EQ(signal.pace, Pace::as_read);
    EXPECT_EQ(signal.source->peek()->time_ps, 5000);
  }
}

TEST(Scenario, ABadTagFileFailsAtOnce) {
  failure_text(Status::cannot_open_tag_file,
               [] { Scenario(parse_device_port("sim://tags?file=/nonexistent/tags.csv")); });
}

}  // namespace
}  // namespace zelk::simulator
