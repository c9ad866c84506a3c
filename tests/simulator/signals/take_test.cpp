// However events are taken from a source, in blocks of any size and up to any
// time, they are those that come one by one.
#include <gtest/gtest.h>

#include <fstream>
#include <limits>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "simulator/unit/scenario.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

constexpr std::int64_t end_of_all_ps = std::numeric_limits<std::int64_t>::max();

std::vector<Event> one_by_one(SignalSource& source, std::size_t count) {
  std::vector<Event> events;
  while (events.size() < count && source.peek() != nullptr) {
    events.push_back(*source.peek());
    source.pop();
  }
  return events;
}

// Expects the events of `source` to be `expected`, and checks each answer.
void expect_taken(SignalSource& source, const std::vector<Event>& expected,
                  std::mt19937_64& random) {
  std::vector<Event> block(600);
  for (std::size_t done = 0; done < expected.size();) {
    const std::size_t place = std::min<std::size_t>(done + random() % 400, expected.size() - 1);
    const std::int64_t before_ps = random() % 3 == 0
                                       ? end_of_all_ps
                                       : expected[place].time_ps + static_cast<int>(random() % 3);
    const std::size_t room = std::min<std::size_t>(random() % 600, expected.size() - done);
    const std::size_t taken = source.take(std::span(block).first(room), before_ps);
    ASSERT_LE(taken, room);
    for (std::size_t i = 0; i < taken; ++i) {
      ASSERT_EQ(block[i].time_ps, expected[done + i].time_ps) << done + i;
      ASSERT_EQ(block[i].channel, expected[done + i].channel);
      ASSERT_EQ(block[i].amplitude_v, expected[done + i].amplitude_v);
      ASSERT_LT(block[i].time_ps, before_ps);
    }
    done += taken;
    if (taken < room) {
      ASSERT_TRUE(done == expected.size() || expected[done].time_ps >= before_ps);
    }
    if (done < expected.size()) {
      ASSERT_NE(source.peek(), nullptr);
      ASSERT_EQ(source.peek()->time_ps, expected[done].time_ps);
    }
  }
}

void expect_same_events(const std::string& port, const StreamShape& shape = {}) {
  SCOPED_TRACE(port);
  const Scenario scenario(parse_device_port(port));
  const auto expected = one_by_one(*scenario.start(shape).source, 20'000);
  std::mt19937_64 random(1);
  for (int run = 0; run < 3; ++run) {
    expect_taken(*scenario.start(shape).source, expected, random);
  }
}

TEST(Take, EveryScenarioGivesTheSameEvents) {
  for (const char* const port :
       {"ftdi://", "sim://pulses", "sim://random", "sim://pairs", "sim://burst",
        "sim://burst?burst_us=1&pause_us=0", "sim://burst?burst_us=1&pause_us=3&background_hz=1e6",
        "sim://burst?efficiency=0.5&afterpulse_percent=10", "sim://silent"}) {
    expect_same_events(port);
  }
  expect_same_events("sim://burst", {.channel_mask = 0x5});
  expect_same_events("sim://burst", {.channel_mask = 0});
}

TEST(Take, ATagFileGivesTheSameEvents) {
  const test_support::TemporaryDirectory directory;
  const std::string path = directory.path() / "tags.csv";
  std::ofstream file(path);
  file << "channel,timestamp_ps\n";
  std::mt19937_64 random(2);
  std::uint64_t time_ps = 0;
  for (int i = 0; i < 777; ++i) {
    time_ps += random() % 3;  // often at the same time
    file << random() % 4 << ',' << time_ps << '\n';
  }
  file.close();
  expect_same_events("sim://tags?file=" + path);
  expect_same_events("sim://tags?loop=1&loop_gap_ps=1&file=" + path);
}

// The last blocks of a source that ends.
TEST(Take, AfterTheEndThereIsNothing) {
  const test_support::TemporaryDirectory directory;
  const std::string path = directory.path() / "tags.csv";
  std::ofstream(path) << "channel,timestamp_ps\n1,5\n2,6\n";
  const Signal signal = Scenario(parse_device_port("sim://tags?file=" + path)).start();
  std::vector<Event> block(3);
  EXPECT_EQ(signal.source->take(block, 5), 0U);
  EXPECT_EQ(signal.source->take(block, end_of_all_ps), 2U);
  EXPECT_EQ(block[1].time_ps, 6);
  EXPECT_EQ(signal.source->take(block, end_of_all_ps), 0U);
  EXPECT_EQ(signal.source->peek(), nullptr);
}

}  // namespace
}  // namespace zelk::simulator
