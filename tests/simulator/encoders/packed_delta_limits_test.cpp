// Steps at the edges of the packed_delta format's rules: each is seen as it is,
// or its tag is left out because no records at all say it.
#include <gtest/gtest.h>

#include <tuple>

#include "tests/simulator/packed_streams.hpp"
#include "tests/support/parameter_names.hpp"

namespace zelk::simulator {
namespace {

using timing::TimeTag;

constexpr std::int64_t epoch_ps = 14'315'125'997'568;
constexpr std::int64_t ten_ms_ps = 10'000'000'000;
constexpr std::int64_t micro_ps = 1'000'000;

struct Counter {
  explicit Counter(int quantum) : quantum_ps(quantum), span_ps((std::int64_t{1} << 41) * quantum) {
    std::int64_t spans_ps = span_ps;
    while (spans_ps < epoch_ps) {
      spans_ps += span_ps;
    }
    excess_ps = spans_ps - epoch_ps;
    period_ps = std::min(span_ps, epoch_ps);
  }

  std::int64_t quantum_ps;
  std::int64_t span_ps;
  std::int64_t excess_ps;
  std::int64_t period_ps;
};

// Channel 0, kept alive by a tag every second up to `time_ps`.
TagList alive_until(std::int64_t time_ps) {
  TagList tags;
  for (std::int64_t t = 0; t < time_ps; t += 1'024'000'000'000) {
    tags.push_back({0, t});
  }
  tags.push_back({0, time_ps});
  return tags;
}

std::string sync_with_tag(const PackedStream& stream, const Counter& counter, std::int64_t time_ps,
                          std::int64_t delta_ps) {
  const auto value = static_cast<std::uint64_t>(time_ps % counter.period_ps / counter.quantum_ps);
  const auto delta = static_cast<std::uint64_t>(delta_ps / counter.quantum_ps);
  return sync(stream.bits, 0, value) + record(stream.bits, 0, 0, delta);
}

// Whether a host that has seen `before` goes to `time_ps` by some records: a
// delta with or without the excess, or a sync of this time or of an earlier
// one with the rest in the tag.
bool some_records_say(const PackedStream& stream, const Counter& counter, const TagList& before,
                      std::int64_t time_ps) {
  std::string start;
  for (const TimeTag& tag : before) {
    start += sync_with_tag(stream, counter, tag.timestamp_ps, 0);
  }
  const std::int64_t step_ps = time_ps - before.back().timestamp_ps;
  const std::int64_t largest_ps = ((std::int64_t{1} << stream.bits) - 1) * counter.quantum_ps;
  std::vector<std::string> attempts;
  for (const std::int64_t delta_ps : {step_ps, step_ps + counter.excess_ps}) {
    attempts.push_back(
        step(stream.bits, 0, static_cast<std::uint64_t>(delta_ps / counter.quantum_ps)));
  }
  for (const std::int64_t rest_ps :
       {std::int64_t{0}, counter.quantum_ps, largest_ps, step_ps - counter.excess_ps,
        step_ps - counter.period_ps / 2 + counter.quantum_ps,
        time_ps % counter.period_ps + counter.quantum_ps}) {
    if (rest_ps >= 0 && rest_ps <= largest_ps && rest_ps <= step_ps) {
      attempts.push_back(sync_with_tag(stream, counter, time_ps - rest_ps, rest_ps));
    }
  }
  return std::ranges::any_of(attempts, [&](const std::string& attempt) {
    const TagList seen = host_tags(stream, bytes_of(start + attempt));
    return seen.back() == TimeTag{0, time_ps};
  });
}

// Steps from `first_ps` that lie around the edges of a rule.
std::vector<std::int64_t> edge_steps(const PackedStream& stream, const Counter& counter,
                                     std::int64_t first_ps) {
  const std::int64_t payload_ps = (std::int64_t{1} << stream.bits) * counter.quantum_ps;
  const std::int64_t to_epoch_ps = epoch_ps - first_ps % epoch_ps;
  const std::int64_t to_period_ps = counter.period_ps - first_ps % counter.period_ps;
  std::vector<std::int64_t> steps;
  for (const std::int64_t edge_ps :
       {counter.quantum_ps, payload_ps, ten_ms_ps, counter.excess_ps,
        counter.excess_ps + payload_ps, counter.excess_ps + ten_ms_ps, counter.period_ps / 2,
        counter.period_ps, counter.span_ps - micro_ps, counter.span_ps,
        counter.span_ps - counter.excess_ps - micro_ps, counter.span_ps - counter.excess_ps,
        to_epoch_ps, to_epoch_ps + counter.excess_ps, to_period_ps,
        to_period_ps + counter.period_ps, epoch_ps, epoch_ps + counter.excess_ps}) {
    for (const std::int64_t ticks : {-2, -1, 0, 1, 2}) {
      const std::int64_t step_ps = (edge_ps / counter.quantum_ps + ticks) * counter.quantum_ps;
      if (step_ps > 0 && step_ps < 2 * epoch_ps) {
        steps.push_back(step_ps);
      }
    }
  }
  return steps;
}

using BitsAndQuantum = std::tuple<int, int>;

class PackedDeltaSteps : public testing::TestWithParam<BitsAndQuantum> {};

TEST_P(PackedDeltaSteps, AreSeenAsTheyAreUnlessNoRecordsSayThem) {
  const auto [bits, quantum_ps] = GetParam();
  const PackedStream stream{.bits = bits, .quantum_ps = quantum_ps, .mask = 0x1};
  const Counter counter(quantum_ps);
  for (const std::int64_t from_ps :
       {std::int64_t{0}, counter.period_ps / 2, counter.period_ps - 1, epoch_ps / 2,
        epoch_ps - 1'500'000'000'000, epoch_ps - counter.excess_ps / 2, epoch_ps - ten_ms_ps / 3,
        epoch_ps - 3 * ten_ms_ps / 2, epoch_ps - 1}) {
    const std::int64_t first_ps = std::max<std::int64_t>(from_ps, 0) / 1024 * 1024;
    const TagList before = alive_until(first_ps);
    for (const std::int64_t step_ps : edge_steps(stream, counter, first_ps)) {
      TagList tags = before;
      tags.push_back({0, first_ps + step_ps});
      tags.push_back({0, first_ps + step_ps + 3 * counter.quantum_ps});
      tags.push_back({0, first_ps + step_ps + 4 * ten_ms_ps});
      const TagList seen = packed_round_trip(stream, tags);
      if (seen.size() == tags.size()) {
        EXPECT_EQ(seen, tags) << first_ps << " + " << step_ps;
        continue;
      }
      // Left out, which is no harm to the tag behind the range.
      ASSERT_GT(seen.size(), before.size());
      EXPECT_EQ(seen.back(), tags.back()) << first_ps << " + " << step_ps;
      TagList rest = before;
      for (std::size_t i = before.size(); i < tags.size(); ++i) {
        if (std::ranges::find(seen, tags[i]) == seen.end()) {
          EXPECT_FALSE(some_records_say(stream, counter, before, tags[i].timestamp_ps))
              << first_ps << " + " << step_ps;
        } else {
          rest.push_back(tags[i]);
        }
      }
      EXPECT_EQ(seen, rest) << first_ps << " + " << step_ps;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(EveryQuantum, PackedDeltaSteps,
                         testing::Combine(testing::Values(16, 18, 31),
                                          testing::Values(1, 2, 4, 8, 16, 32, 64, 128, 256, 512,
                                                          1024)),
                         test_support::printed_parameter);

TEST(PackedDeltaSilences, ThatLookLikeAWrapAreLeftOut) {
  for (const int quantum_ps : {1, 2, 4}) {
    const Counter counter(quantum_ps);
    const PackedStream stream{.bits = 16, .quantum_ps = quantum_ps, .mask = 0x3};
    const std::int64_t payload_ps = 65'536 * quantum_ps;
    const std::int64_t base_ps = 1'024;
    EXPECT_EQ(
        packed_round_trip(stream, {{0, base_ps},
                                   {1, base_ps},
                                   {0, base_ps + counter.excess_ps + payload_ps},
                                   {0, base_ps + counter.excess_ps + ten_ms_ps},
                                   {1, base_ps + counter.excess_ps + payload_ps - quantum_ps},
                                   {0, base_ps + counter.excess_ps + ten_ms_ps + quantum_ps},
                                   {0, base_ps + counter.excess_ps + ten_ms_ps + 2 * quantum_ps}}),
        (TagList{{0, base_ps},
                 {1, base_ps},
                 {1, base_ps + counter.excess_ps + payload_ps - quantum_ps},
                 {0, base_ps + counter.excess_ps + ten_ms_ps + quantum_ps},
                 {0, base_ps + counter.excess_ps + ten_ms_ps + 2 * quantum_ps}}))
        << quantum_ps;
  }
}

}  // namespace
}  // namespace zelk::simulator
