// Laws of the packed_delta encoder: what a host decodes is what was encoded.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "tests/simulator/packed_streams.hpp"
#include "tests/simulator/random_tags.hpp"

namespace zelk::simulator {
namespace {

using timing::StreamMode;

constexpr std::int64_t epoch_ps = 14'315'125'997'568;
constexpr std::int64_t span_ps = 2'199'023'255'552;  // of 2^41 ticks of 1 ps
constexpr std::int64_t ten_ms_ps = 10'000'000'000;

// After how long sync values repeat, and how much too long a delta across an
// epoch is, for each quantum.
std::int64_t period_ps(int quantum_ps) {
  return std::min(span_ps * quantum_ps, epoch_ps);
}

std::int64_t excess_ps(int quantum_ps) {
  switch (quantum_ps) {
    case 1:
      return 1'078'036'791'296;
    case 2:
    case 4:
    case 8:
      return 3'277'060'046'848;
    default:
      return span_ps * quantum_ps - epoch_ps;
  }
}

// Any step up to this goes out whatever the payload. Only syncs that repeat
// within an epoch are searched for the excess.
std::int64_t sure_step_ps(int quantum_ps) {
  const std::int64_t half_ps = period_ps(quantum_ps) / 2 - quantum_ps;
  return quantum_ps < 8 ? std::min(excess_ps(quantum_ps), half_ps) : half_ps;
}

TagList random_tags(const PackedStream& stream, std::int64_t end_ps, std::int64_t largest_step_ps) {
  std::mt19937_64 random(static_cast<unsigned>(1000 * stream.bits + stream.quantum_ps));
  TagList tags;
  for (std::uint8_t channel = 0; channel < timing::channel_count; ++channel) {
    if ((stream.mask >> channel & 1) != 0) {
      append_channel(
          channel, channel, end_ps, random, [&] { return log_uniform_ps(random, largest_step_ps); },
          tags);
    }
  }
  sort_by_time(tags);
  return tags;
}

testing::AssertionResult same(const TagList& seen, const TagList& expected) {
  const auto [a, b] = std::ranges::mismatch(seen, expected);
  if (a == seen.end() && b == expected.end()) {
    return testing::AssertionSuccess();
  }
  auto failure = testing::AssertionFailure();
  failure << seen.size() << " tags for " << expected.size() << ", the same up to "
          << a - seen.begin();
  if (a != seen.end()) {
    failure << ", then " << int{a->channel} << "," << a->timestamp_ps;
  }
  if (b != expected.end()) {
    failure << " for " << int{b->channel} << "," << b->timestamp_ps;
  }
  return failure;
}

TagList earlier(TagList tags, std::int64_t by_ps) {
  for (timing::TimeTag& tag : tags) {
    tag.timestamp_ps -= by_ps;
  }
  return tags;
}

std::string name(const PackedStream& stream) {
  return std::to_string(stream.bits) + " bits, " + std::to_string(stream.quantum_ps) +
         " ps, mask " + std::to_string(stream.mask);
}

TEST(PackedDeltaRoundTrip, EveryPayloadAndQuantumShowsTheTicksAcrossEpochs) {
  unsigned mask = 0;
  for (int bits = 1; bits <= 31; ++bits) {
    for (int quantum_ps = 1; quantum_ps <= 1024; quantum_ps *= 2) {
      mask = mask % 15 + 1;
      const PackedStream stream{
          .bits = bits, .quantum_ps = quantum_ps, .mask = static_cast<std::uint8_t>(mask)};
      const TagList tags = random_tags(stream, 3 * epoch_ps + 1'000'000, sure_step_ps(quantum_ps));
      EXPECT_TRUE(same(packed_round_trip(stream, tags), quantised(tags, quantum_ps)))
          << name(stream);
    }
  }
}

TEST(PackedDeltaRoundTrip, EveryMaskShowsTheTicksAcrossEpochs) {
  for (unsigned mask = 1; mask < 16; ++mask) {
    for (const int bits : {4, 11, 16, 24}) {
      for (const int quantum_ps : {1, 8, 64, 1024}) {
        const PackedStream stream{
            .bits = bits, .quantum_ps = quantum_ps, .mask = static_cast<std::uint8_t>(mask)};
        const TagList tags =
            random_tags(stream, 2 * epoch_ps + 1'000'000, sure_step_ps(quantum_ps));
        EXPECT_TRUE(same(packed_round_trip(stream, tags), quantised(tags, quantum_ps)))
            << name(stream);
      }
    }
  }
}

TEST(PackedDeltaRoundTrip, ABusyStreamOverManyReadsShowsTheTicks) {
  for (const int bits : {8, 16}) {
    const PackedStream stream{.bits = bits, .quantum_ps = 8};
    const TagList tags = random_tags(stream, 1'000'000'000, 30'000);
    EXPECT_GT(packed_bytes(stream, tags).size(), 262'144U * 3 / 2);
    EXPECT_TRUE(same(packed_round_trip(stream, tags), quantised(tags, 8))) << name(stream);
  }
}

TEST(PackedDeltaRoundTrip, FlushesBetweenTheTagsChangeNothing) {
  for (int bits = 1; bits <= 31; ++bits) {
    const PackedStream stream{.bits = bits, .quantum_ps = 8, .mask = 0xB};
    const TagList tags = random_tags(stream, epoch_ps + 1'000'000, sure_step_ps(8));
    PackedDeltaEncoder encoder(stream.bits, stream.quantum_ps);
    ByteList bytes;
    for (const timing::TimeTag& tag : tags) {
      encoder.append(tag, bytes);
      encoder.flush(bytes);
    }
    EXPECT_TRUE(same(host_tags(stream, bytes), quantised(tags, 8))) << name(stream);
  }
}

// A pulse on every active channel each `interval_ps`, a bit apart.
TagList pulses(const PackedStream& stream, std::int64_t first_ps, std::int64_t interval_ps,
               std::int64_t end_ps) {
  TagList tags;
  for (std::int64_t time_ps = first_ps; time_ps < end_ps; time_ps += interval_ps) {
    for (std::uint8_t channel = 0; channel < timing::channel_count; ++channel) {
      if ((stream.mask >> channel & 1) != 0) {
        tags.push_back({channel, time_ps + 25 * channel});
      }
    }
  }
  return tags;
}

TEST(PackedDeltaRoundTrip, InternalModeShowsTheTicksOfRegularPulses) {
  int bits = 0;
  for (unsigned mask = 1; mask < 16; ++mask) {
    for (int quantum_ps = 1; quantum_ps <= 1024; quantum_ps *= 4) {
      bits = bits % 31 + 1;
      const PackedStream stream{.bits = bits,
                                .quantum_ps = quantum_ps,
                                .mask = static_cast<std::uint8_t>(mask),
                                .mode = StreamMode::internal};
      TagList tags = pulses(stream, 777, 300'000'000, 600'000'000'000);
      const TagList slow = pulses(stream, 1'000'000'000'000, 70'000'000'001, 2 * epoch_ps);
      tags.insert(tags.end(), slow.begin(), slow.end());
      EXPECT_TRUE(same(packed_round_trip(stream, tags), quantised(tags, quantum_ps)))
          << name(stream);
    }
  }
}

TEST(PackedDeltaRoundTrip, InternalModeRelocksAfterASilenceOfMoreThanASecond) {
  const PackedStream stream{.mask = 0x6, .mode = StreamMode::internal};
  const TagList before = pulses(stream, 800, 20'000'000'000, 1'000'000'000'000);
  const TagList after = pulses(stream, 2'000'000'000'000, 20'000'000'000, 3'000'000'000'000);
  TagList tags = before;
  tags.insert(tags.end(), after.begin(), after.end());
  TagList expected = quantised(tags, stream.quantum_ps);
  expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(before.size()));
  EXPECT_TRUE(same(host_tags(stream, filled_bytes(stream, tags), 256), expected));
}

// Beyond the sure steps: what is left to deltas, which these payloads have the
// room for, less the steps that no records say.
TEST(PackedDeltaRoundTrip, LongSilencesShowTheTicks) {
  for (int bits = 16; bits <= 31; ++bits) {
    for (int quantum_ps = 1; quantum_ps <= 1024; quantum_ps *= 2) {
      const PackedStream stream{.bits = bits, .quantum_ps = quantum_ps, .mask = 0x9};
      const std::int64_t counter_ps = span_ps * quantum_ps;
      const std::int64_t excess = excess_ps(quantum_ps);
      const auto sayable_step_ps = [&](std::mt19937_64& random) {
        const std::int64_t step_ps = log_uniform_ps(random, 2 * epoch_ps);
        const auto near = [&](std::int64_t from_ps, std::int64_t to_ps) {
          return step_ps >= from_ps - quantum_ps && step_ps <= to_ps + quantum_ps;
        };
        return near(excess, excess + ten_ms_ps) || near(counter_ps - 1'000'000, counter_ps) ||
                       near(counter_ps - excess - 1'000'000, counter_ps - excess)
                   ? quantum_ps
                   : step_ps;
      };
      // Every other time so late that a host sees whole periods less.
      const std::int64_t early_ps = bits % 2 * 2 * period_ps(quantum_ps);
      std::mt19937_64 random(static_cast<unsigned>(bits));
      TagList tags;
      for (const std::uint8_t channel : {std::uint8_t{0}, std::uint8_t{3}}) {
        append_channel(
            channel, early_ps + period_ps(quantum_ps) - 1 - channel, 12 * epoch_ps, random,
            [&] { return sayable_step_ps(random); }, tags);
      }
      sort_by_time(tags);
      EXPECT_TRUE(
          same(packed_round_trip(stream, tags), earlier(quantised(tags, quantum_ps), early_ps)))
          << name(stream);
    }
  }
}

TEST(PackedDeltaRoundTrip, ALateChannelIsSeenWholePeriodsEarly) {
  for (int quantum_ps = 1; quantum_ps <= 1024; quantum_ps *= 2) {
    const PackedStream stream{.bits = 10, .quantum_ps = quantum_ps, .mask = 0x4};
    const std::int64_t late_ps = 3 * period_ps(quantum_ps);
    std::mt19937_64 random(7);
    TagList tags;
    append_channel(
        2, late_ps + 1, late_ps + 3 * epoch_ps, random,
        [&] { return log_uniform_ps(random, sure_step_ps(quantum_ps)); }, tags);
    EXPECT_TRUE(
        same(packed_round_trip(stream, tags), earlier(quantised(tags, quantum_ps), late_ps)))
        << name(stream);
  }
}

TEST(PackedDeltaRoundTrip, ASilenceThatNothingSaysPutsTheChannelWholePeriodsEarly) {
  // With 8 bits, 8192 overflow records say 4.26 s at 8 ps. 18 s less an epoch
  // lies before 10 s, 25 s less an epoch behind it.
  EXPECT_EQ(packed_round_trip({.bits = 8, .quantum_ps = 8, .mask = 0x3}, {{0, 0},
                                                                          {1, 0},
                                                                          {0, 10'000'000'000'000},
                                                                          {0, 18'000'000'000'000},
                                                                          {0, 25'000'000'000'000},
                                                                          {0, 25'000'000'000'800},
                                                                          {0, 26'000'000'000'000}}),
            (TagList{{0, 0},
                     {1, 0},
                     {0, 10'000'000'000'000},
                     {0, 10'684'874'002'432},
                     {0, 10'684'874'003'232},
                     {0, 11'684'874'002'432}}));
  // One bit has no overflows: 2.7 s less 2^41 ps lies before 1.5 s.
  EXPECT_EQ(
      packed_round_trip({.bits = 1, .quantum_ps = 1, .mask = 0x1}, {{0, 0},
                                                                    {0, 1'500'000'000'000},
                                                                    {0, 2'700'000'000'000},
                                                                    {0, 4'000'000'000'000},
                                                                    {0, 4'000'000'000'001}}),
      (TagList{{0, 0}, {0, 1'500'000'000'000}, {0, 1'800'976'744'448}, {0, 1'800'976'744'449}}));
}

TEST(PackedDeltaRoundTrip, ADeltaTakesNoMoreThanItsOverflowRecords) {
  const PackedStream stream{.bits = 14, .quantum_ps = 1, .mask = 0x1};
  // 8192 * (2^14 - 2) * 2^14 and the largest payload; a sync of the tick behind
  // that, 2^41 ps less, would lie before the first tag.
  const timing::TimeTag first{0, 1'500'000'000'000};
  const timing::TimeTag last{0, first.timestamp_ps + 2'198'754'820'096 + 16'383};
  EXPECT_EQ(packed_round_trip(stream, {first, last}), (TagList{first, last}));
  EXPECT_EQ(packed_round_trip(stream, {first, {0, last.timestamp_ps + 1}}), (TagList{first}));
}

// With 14 bits at 1 ps a delta says 2.2 s, with the excess 1.1 s less.
TEST(PackedDeltaRoundTrip, AChannelThatIsSeenEarlyHasItsOwnEpochs) {
  TagList tags{{0, 0}, {0, 1'000'000'000'000}};
  TagList late{{0, 3'900'000'000'000}};
  while (late.back().timestamp_ps < 12'500'000'000'000) {
    late.push_back({0, late.back().timestamp_ps + 1'000'000'000'000});
  }
  // The end of an epoch, but not of the one that the host sees.
  late.push_back({0, late.back().timestamp_ps + 600'000'000'000});
  late.push_back({0, late.back().timestamp_ps + 2'000'000'000'000});
  TagList expected = tags;
  tags.insert(tags.end(), late.begin(), late.end());
  late = earlier(late, span_ps);
  expected.insert(expected.end(), late.begin(), late.end());
  EXPECT_EQ(packed_round_trip({.bits = 14, .quantum_ps = 1, .mask = 0x1}, tags), expected);
}

// Joined `start_bits` late, a host sees each channel from its first sync that
// is whole.
TEST(PackedDeltaRoundTrip, AStreamJoinedMidwayIsSeenFromEachChannelsNextSync) {
  for (const int bits : {4, 8, 16, 31}) {
    const PackedStream stream{.bits = bits, .quantum_ps = 1, .mask = 0x9};
    TagList tags;
    std::vector<std::size_t> first_bits;  // of each tag's records
    std::vector<bool> has_sync;
    std::size_t bit = 0;
    for (std::int64_t i = 0; i < 400; ++i) {
      // Four channel turns in each 10 ms, the first of each channel with a sync.
      tags.push_back(
          {static_cast<std::uint8_t>(i % 2 * 3), i / 4 * ten_ms_ps + i % 4 / 2 * 15 + i % 2});
      first_bits.push_back(bit);
      has_sync.push_back(i % 4 < 2);
      const auto width = static_cast<std::size_t>(bits) + 3;
      bit +=
          has_sync.back()
              ? (1 + (static_cast<std::size_t>(bits) + 40) / static_cast<std::size_t>(bits) + 1) *
                    width
              : width;
    }
    for (std::uint32_t start_bits = 0; start_bits < 1500; start_bits += 7) {
      TagList expected;
      std::set<int> synced;
      for (std::size_t i = 0; i < tags.size(); ++i) {
        if (has_sync[i] && first_bits[i] >= start_bits) {
          synced.insert(tags[i].channel);
        }
        if (synced.contains(tags[i].channel)) {
          expected.push_back(tags[i]);
        }
      }
      EXPECT_TRUE(same(packed_round_trip(stream, tags, start_bits), expected))
          << name(stream) << ", " << start_bits;
    }
  }
}

}  // namespace
}  // namespace zelk::simulator
