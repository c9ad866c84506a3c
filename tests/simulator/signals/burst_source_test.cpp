#include "simulator/signals/burst_source.hpp"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace zelk::simulator {
namespace {

using Pulses = std::vector<std::pair<std::int64_t, int>>;

Pulses pulses_of(const BurstSettings& settings, int count) {
  BurstSource source(settings);
  Pulses pulses;
  for (int i = 0; i < count && source.peek() != nullptr; ++i) {
    pulses.emplace_back(source.peek()->time_ps, source.peek()->channel);
    source.pop();
  }
  return pulses;
}

TEST(BurstSource, TrainsGoThroughTheChannelsAndPauseBetween) {
  const BurstSettings settings{
      .channel_mask = 0xB, .step_ps = 10.5, .train_ps = 40, .pause_ps = 100};
  EXPECT_EQ(
      pulses_of(settings, 9),
      (Pulses{
          {0, 0}, {10, 1}, {21, 3}, {31, 0}, {140, 1}, {150, 3}, {161, 0}, {171, 1}, {280, 3}}));
}

TEST(BurstSource, WithoutAPauseTrainsMeet) {
  const BurstSettings settings{.channel_mask = 1, .step_ps = 10, .train_ps = 20, .pause_ps = 0};
  EXPECT_EQ(pulses_of(settings, 4), (Pulses{{0, 0}, {10, 0}, {20, 0}, {30, 0}}));
}

TEST(BurstSource, EveryTrainHasAPulseHoweverShort) {
  const BurstSettings settings{.channel_mask = 4, .step_ps = 1e9, .train_ps = 1, .pause_ps = 9};
  EXPECT_EQ(pulses_of(settings, 3), (Pulses{{0, 2}, {10, 2}, {20, 2}}));
}

TEST(BurstSource, WithoutChannelsThereIsNoPulse) {
  for (const std::uint8_t mask : std::initializer_list<std::uint8_t>{0x00, 0xF0}) {
    EXPECT_TRUE(
        pulses_of({.channel_mask = mask, .step_ps = 1, .train_ps = 1, .pause_ps = 0}, 3).empty());
  }
}

TEST(BurstSource, EndsAtTheEndOfTime) {
  const BurstSettings settings{
      .channel_mask = 1, .step_ps = 1, .train_ps = 1, .pause_ps = end_of_time_ps / 4};
  EXPECT_LE(pulses_of(settings, 100).size(), 4U);
  EXPECT_GE(pulses_of(settings, 100).size(), 3U);
}

}  // namespace
}  // namespace zelk::simulator
