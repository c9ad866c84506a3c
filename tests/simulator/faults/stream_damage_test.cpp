#include "simulator/faults/stream_damage.hpp"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <initializer_list>
#include <span>
#include <string>

namespace zelk::simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t long_stream = 100'000;

Bytes damaged(const DamageRates& rates, const Bytes& healthy, std::uint64_t seed = 1) {
  Bytes result;
  StreamDamage(rates, seed).apply(healthy, result);
  return result;
}

Bytes counting(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<std::uint8_t>(i * 37 + i / 256);
  }
  return bytes;
}

std::string bits_of(const Bytes& bytes) {
  std::string bits;
  for (const std::uint8_t byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) {
      bits += (byte >> bit & 1) != 0 ? '1' : '0';
    }
  }
  return bits;
}

// Whether `part` can be made from `whole` by leaving things out.
template <typename Sequence>
bool is_left_of(const Sequence& part, const Sequence& whole) {
  auto next = part.begin();
  for (const auto& item : whole) {
    if (next != part.end() && *next == item) {
      ++next;
    }
  }
  return next == part.end();
}

// `hits` of `trials` lie within 4 standard deviations of what `probability`
// makes one expect.
void expect_rate(double hits, double trials, double probability) {
  EXPECT_NEAR(hits, trials * probability,
              4 * std::sqrt(trials * probability * (1 - probability)) + 1e-9);
}

constexpr double rates_tried[] = {1e-4, 1e-2, 0.3, 0.9, 1};

TEST(StreamDamage, OfNoKindLeavesTheStreamAlone) {
  EXPECT_EQ(damaged({}, counting(1000)), counting(1000));
}

TEST(StreamDamage, FlipsBitsAtTheRateAskedForWhereverTheyStand) {
  for (const double rate : rates_tried) {
    SCOPED_TRACE(rate);
    const Bytes flipped = damaged({.flip_bits = rate}, Bytes(long_stream));
    ASSERT_EQ(flipped.size(), long_stream);
    double total = 0;
    for (int bit = 0; bit < 8; ++bit) {
      double hits = 0;
      for (const std::uint8_t byte : flipped) {
        hits += byte >> bit & 1;
      }
      expect_rate(hits, long_stream, rate);
      total += hits;
    }
    expect_rate(total, 8.0 * long_stream, rate);
  }
}

// Of independent flips, the ones right behind another come at the same rate.
TEST(StreamDamage, FlipsAreIndependentOfEachOther) {
  constexpr double rate = 0.05;
  const std::string bits = bits_of(damaged({.flip_bits = rate}, Bytes(long_stream)));
  double flips = 0;
  double pairs = 0;
  for (std::size_t i = 0; i + 1 < bits.size(); ++i) {
    flips += bits[i] == '1' ? 1 : 0;
    pairs += bits[i] == '1' && bits[i + 1] == '1' ? 1 : 0;
  }
  expect_rate(pairs, flips, rate);
}

TEST(StreamDamage, FlipsWorkOnWhateverTheBitsAre) {
  const Bytes healthy = counting(1000);
  const Bytes of_zeros = damaged({.flip_bits = 0.1}, Bytes(1000));
  const Bytes of_counting = damaged({.flip_bits = 0.1}, healthy);
  for (std::size_t i = 0; i < healthy.size(); ++i) {
    ASSERT_EQ(of_counting[i] ^ healthy[i], of_zeros[i]);
  }
}

TEST(StreamDamage, LosesBytesAtTheRateAskedForAndKeepsTheOthersInOrder) {
  const Bytes healthy = counting(long_stream);
  for (const double rate : rates_tried) {
    SCOPED_TRACE(rate);
    const Bytes left = damaged({.lose_bytes = rate}, healthy);
    expect_rate(static_cast<double>(healthy.size() - left.size()), long_stream, rate);
    EXPECT_TRUE(is_left_of(left, healthy));
  }
}

TEST(StreamDamage, InsertsBytesAtTheRateAskedForAndKeepsTheOthersInOrder) {
  const Bytes healthy = counting(long_stream);
  for (const double rate : rates_tried) {
    SCOPED_TRACE(rate);
    const Bytes more = damaged({.insert_bytes = rate}, healthy);
    expect_rate(static_cast<double>(more.size() - healthy.size()), long_stream, rate);
    EXPECT_TRUE(is_left_of(healthy, more));
  }
}

// In a stream of zeros every byte that is none was inserted.
TEST(StreamDamage, InsertedBytesAreOfAnyValueAlike) {
  const Bytes more = damaged({.insert_bytes = 1}, Bytes(long_stream));
  std::array<double, 256> counts{};
  for (const std::uint8_t byte : more) {
    ++counts[byte];
  }
  double ones = 0;
  for (std::size_t value = 1; value < counts.size(); ++value) {
    EXPECT_GT(counts[value], 0) << value;
    ones += counts[value] * std::popcount(value);
  }
  expect_rate(counts[0] - long_stream, long_stream, 1 / 256.0);
  expect_rate(ones, 8.0 * long_stream, 0.5);
}

TEST(StreamDamage, RemovesBitsAtTheRateAskedForAndKeepsTheOthersInOrder) {
  const Bytes healthy = counting(long_stream);
  const std::string healthy_bits = bits_of(healthy);
  for (const double rate : rates_tried) {
    SCOPED_TRACE(rate);
    const std::string left = bits_of(damaged({.remove_bits = rate}, healthy));
    // Up to 7 bits wait for the byte that they will fill.
    const auto removed = static_cast<double>(healthy_bits.size() - left.size());
    EXPECT_NEAR(removed - 3.5, 8.0 * long_stream * rate,
                4 * std::sqrt(8.0 * long_stream * rate * (1 - rate)) + 3.5);
    EXPECT_TRUE(is_left_of(left, healthy_bits));
  }
}

TEST(StreamDamage, InsertsBitsAtTheRateAskedForAndKeepsTheOthersInOrder) {
  const Bytes healthy = counting(long_stream);
  const std::string healthy_bits = bits_of(healthy);
  for (const double rate : rates_tried) {
    SCOPED_TRACE(rate);
    const std::string more = bits_of(damaged({.insert_bits = rate}, healthy));
    const double inserted =
        static_cast<double>(more.size()) - static_cast<double>(healthy_bits.size());
    EXPECT_NEAR(inserted + 3.5, 8.0 * long_stream * rate,
                4 * std::sqrt(8.0 * long_stream * rate * (1 - rate)) + 3.5);
    EXPECT_TRUE(is_left_of(healthy_bits.substr(0, healthy_bits.size() - 7), more));
  }
}

// Hits of two kinds at the same places would leave as much as there was.
TEST(StreamDamage, OfDifferentKindsHitsDifferentPlaces) {
  const auto surplus = [](const DamageRates& rates) {
    return static_cast<double>(damaged(rates, Bytes(long_stream)).size()) - long_stream;
  };
  EXPECT_GT(std::abs(surplus({.lose_bytes = 0.5, .insert_bytes = 0.5})), 8);
  EXPECT_GT(std::abs(surplus({.remove_bits = 0.5, .insert_bits = 0.5})), 8);
}

TEST(StreamDamage, DoesNotDependOnHowTheStreamIsCut) {
  const Bytes healthy = counting(20'000);
  const DamageRates rates{.flip_bits = 0.01,
                          .lose_bytes = 0.02,
                          .insert_bytes = 0.03,
                          .remove_bits = 0.004,
                          .insert_bits = 0.005};
  const Bytes whole = damaged(rates, healthy);
  for (const std::size_t piece : std::initializer_list<std::size_t>{1, 2, 7, 8, 511, 19'999}) {
    StreamDamage damage(rates, 1);
    Bytes pieced;
    for (std::size_t at = 0; at < healthy.size(); at += piece) {
      damage.apply(std::span(healthy).subspan(at, std::min(piece, healthy.size() - at)), pieced);
    }
    EXPECT_EQ(pieced, whole) << piece;
  }
}

TEST(StreamDamage, IsNamedByItsSeed) {
  const DamageRates kinds[] = {{.flip_bits = 0.01},
                               {.lose_bytes = 0.01},
                               {.insert_bytes = 0.01},
                               {.remove_bits = 0.01},
                               {.insert_bits = 0.01}};
  for (const DamageRates& rates : kinds) {
    EXPECT_EQ(damaged(rates, counting(10'000), 7), damaged(rates, counting(10'000), 7));
    EXPECT_NE(damaged(rates, counting(10'000), 7), damaged(rates, counting(10'000), 8));
    EXPECT_NE(damaged(rates, counting(10'000), 0), damaged(rates, counting(10'000), 4294967295));
  }
}

TEST(StreamDamage, OneRemovedBitMovesEveryLaterBit) {
  StreamDamage damage({}, 1);
  Bytes result;
  damage.apply(Bytes{0xAA}, result);
  damage.remove_one_bit();
  // 10000001 11111111 00000000 11110000 without the first bit
  damage.apply(Bytes{0x81, 0xFF}, result);
  damage.apply(Bytes{0x00, 0xF0}, result);
  EXPECT_EQ(result, (Bytes{0xAA, 0x03, 0xFE, 0x01}));
  damage.apply(Bytes{0x80}, result);
  EXPECT_EQ(result, (Bytes{0xAA, 0x03, 0xFE, 0x01, 0xE1}));
}

TEST(StreamDamage, OneInsertedBitMovesEveryLaterBit) {
  bool seen[2] = {};
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    StreamDamage damage({}, seed);
    damage.insert_one_bit();
    Bytes result;
    // 10000001 11111111 00000000 behind one bit more
    damage.apply(Bytes{0x81, 0xFF, 0x00}, result);
    ASSERT_EQ(result.size(), 3U);
    EXPECT_EQ(result[0] & 0x7F, 0x40);
    EXPECT_EQ(result[1], 0xFF);
    EXPECT_EQ(result[2], 0x80);
    seen[result[0] >> 7] = true;
  }
  EXPECT_TRUE(seen[0] && seen[1]);
}

TEST(StreamDamage, StuckStreamHasAsManyBytesAsAHealthyOne) {
  StreamDamage damage({.flip_bits = 0.5}, 1);
  Bytes result;
  damage.apply(counting(10), result);
  damage.stick_at(0x00);
  damage.apply(counting(10), result);
  damage.stick_at(0xFF);
  damage.apply(counting(10), result);
  ASSERT_EQ(result.size(), 30U);
  EXPECT_EQ(Bytes(result.begin() + 10, result.begin() + 20), Bytes(10, 0x00));
  EXPECT_EQ(Bytes(result.begin() + 20, result.end()), Bytes(10, 0xFF));
}

}  // namespace
}  // namespace zelk::simulator
