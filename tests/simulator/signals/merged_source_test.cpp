#include "simulator/signals/merged_source.hpp"

#include <gtest/gtest.h>

#include "tests/simulator/listed_source.hpp"

namespace zelk::simulator {
namespace {

TEST(MergedSource, KeepsEveryEventInCommonTimeOrder) {
  std::vector<std::unique_ptr<SignalSource>> sources;
  sources.push_back(
      std::make_unique<ListedSource>(std::vector<Event>{{5, 1, 0}, {5, 1, 0}, {20, 1, 0}}));
  sources.push_back(std::make_unique<ListedSource>(std::vector<Event>{}));
  sources.push_back(
      std::make_unique<ListedSource>(std::vector<Event>{{1, 1, 2}, {6, 1, 2}, {30, 1, 2}}));
  MergedSource merged(std::move(sources));
  std::vector<std::pair<std::int64_t, int>> seen;
  while (const Event* event = merged.peek()) {
    seen.emplace_back(event->time_ps, event->channel);
    merged.pop();
  }
  EXPECT_EQ(seen, (std::vector<std::pair<std::int64_t, int>>{
                      {1, 2}, {5, 0}, {5, 0}, {6, 2}, {20, 0}, {30, 2}}));
  EXPECT_EQ(merged.peek(), nullptr);
}

TEST(MergedSource, OfNothingIsSilent) {
  MergedSource merged({});
  EXPECT_EQ(merged.peek(), nullptr);
}

}  // namespace
}  // namespace zelk::simulator
