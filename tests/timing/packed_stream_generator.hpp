// Seeded packed_delta streams for the comparison of two decoders: what a device
// would send, the same with mistakes in it, and bytes without any meaning.
//
// Every seed gives the same stream on every machine.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "tests/timing/packed_decoder_harness.hpp"

namespace zelk::test_support {

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  std::uint64_t bits() { return engine_(); }
  std::uint64_t below(std::uint64_t limit) { return engine_() % limit; }
  bool percent(std::uint64_t chance) { return below(100) < chance; }

  template <typename Range>
  auto pick(const Range& range) {
    return *(std::begin(range) + static_cast<std::ptrdiff_t>(below(std::size(range))));
  }

 private:
  std::mt19937_64 engine_;
};

// Times, in ps, at which some rule of the decoder changes sides.
inline constexpr std::uint64_t packed_thresholds_ps[] = {
    0,
    1'000'000,
    10'000'000'000,
    1'000'000'000'000,
    1'000'000'000'008,
    1'078'036'791'296,  // excess of a 1 ps quantum
    1'088'036'791'296,  // the same and 10 ms
    3'277'060'046'848,  // excess of 2, 4 and 8 ps
    3'287'060'046'848,
    1'099'511'627'776,  // half a span of 1 ps
    2'199'022'255'552,  // a span less 1 us
    2'199'023'255'552,
    4'398'046'511'104,
    8'796'093'022'208,
    17'592'185'044'416,  // a span of 8 ps less 1 us
    17'592'186'044'416,
    7'157'562'998'784,  // half an epoch
    14'315'125'997'568,
    2'237'484'687'687'680,  // excess of 1024 ps
    2'251'799'813'685'248,
};

class PackedStreamGenerator {
 public:
  PackedStreamGenerator(Random& random, const PackedStream& stream)
      : random_(random),
        bits_(stream.bits >= 1 && stream.bits <= 31 ? static_cast<int>(stream.bits) : 16),
        builder_(bits_),
        threshold_percent_(random.pick(std::array<std::uint64_t, 4>{0, 1, 1, 15})) {
    const unsigned mask = stream.mask == 0 ? 0xF : stream.mask & 0xF;
    for (unsigned ch = 0; ch < 4; ++ch) {
      if ((mask >> ch & 1) != 0) {
        channels_.push_back(ch);
      }
    }
    if (channels_.empty()) {
      channels_ = {0, 1, 2, 3};
    }
    while (shift_ < 15 && (stream.quantum_ps >> shift_ & 1) == 0) {
      ++shift_;
    }
  }

  // Nothing but small steps forward from here on.
  PackedStreamGenerator& calm() {
    threshold_percent_ = 0;
    return *this;
  }

  // A sync and a tag on every channel, then events up to the wanted length.
  std::vector<bool> device_stream(std::size_t bit_count) {
    const std::uint64_t origin = threshold_ticks();
    for (const unsigned ch : channels_) {
      now_[ch] = origin + random_.below(1000);
      const std::uint64_t payload = small_delta();
      builder_.synced_tag(ch, now_[ch], payload);
      now_[ch] += payload;
    }
    const std::uint64_t first_channel_percent =
        random_.pick(std::array<std::uint64_t, 5>{0, 0, 0, 70, 95});
    while (builder_.bit_count() < bit_count) {
      add_event(random_.percent(first_channel_percent) ? channels_[0] : random_.pick(channels_));
    }
    return builder_.bits();
  }

  // Short pieces of streams on different record grids, whose payloads are
  // mostly zero so that one piece seldom disturbs the reading of another.
  std::vector<bool> rival_streams(std::size_t bit_count) {
    const std::uint64_t break_percent = random_.pick(std::array<std::uint64_t, 3>{0, 0, 5});
    while (builder_.bit_count() < bit_count) {
      builder_.raw_bits(0, static_cast<int>(random_.below(40)));
      for (std::uint64_t n = 1 + random_.below(6); n > 0; --n) {
        const unsigned ch = random_.pick(channels_);
        builder_.sync(ch, random_.percent(10) ? random_.bits() : 0);
        builder_.tags(ch, 1 + random_.below(4), 0);
        builder_.tags(random_.pick(channels_), random_.below(3), 0);
        if (random_.percent(break_percent)) {
          builder_.sync_start(ch);
        }
      }
    }
    return builder_.bits();
  }

  // Records without a plan behind them, with syncs that often come to an end
  // and often do not.
  std::vector<bool> restless_stream(std::size_t bit_count) {
    const std::uint64_t break_percent = random_.pick(std::array<std::uint64_t, 3>{0, 2, 10});
    while (builder_.bit_count() < bit_count) {
      const unsigned ch = random_.pick(channels_);
      if (random_.percent(10)) {
        builder_.sync(ch, random_.bits());
      } else if (random_.percent(break_percent)) {
        builder_.record(static_cast<unsigned>(random_.below(4)), 1, random_.bits());
        builder_.raw_bits(random_.bits(), static_cast<int>(random_.below(3)));
      } else if (random_.percent(break_percent)) {
        builder_.sync_start(ch);
      } else if (random_.percent(10)) {
        builder_.overflow(ch, random_.below(3));
      } else {
        builder_.tag(ch, random_.bits() >> random_.below(64));
      }
    }
    return builder_.bits();
  }

  // One of the thresholds and a few ticks more or less, in ticks.
  std::uint64_t threshold_ticks() {
    return (random_.pick(packed_thresholds_ps) >> shift_) + random_.below(5) - 2;
  }

 private:
  std::uint64_t small_delta() { return random_.bits() & ((std::uint64_t{1} << bits_) - 1) >> 1; }

  void add_event(unsigned ch) {
    const bool is_special = random_.percent(threshold_percent_);
    if (random_.percent(8)) {
      const std::uint64_t away = is_special ? threshold_ticks() : 1 + random_.below(100);
      now_[ch] += random_.percent(is_special ? 40 : threshold_percent_) ? 0 - away : away;
      const std::uint64_t payload = is_special ? 0 : small_delta() & 0xFF;
      builder_.synced_tag(ch, now_[ch], payload);
      now_[ch] += payload;
      return;
    }
    std::uint64_t delta = is_special ? threshold_ticks() : small_delta();
    if (delta >> bits_ >> bits_ != 0) {  // would take very many overflows
      delta = random_.bits() >> (64 - 2 * bits_);
      builder_.overflow(ch, random_.bits() & ~std::uint64_t{1});
    }
    delta = bits_ == 1 ? delta & 1 : std::min(delta, most_of_a_step());
    builder_.step(ch, delta);
    now_[ch] += delta;
  }

  // A few full overflow records and a full tag.
  [[nodiscard]] std::uint64_t most_of_a_step() const {
    return std::uint64_t{3} << bits_ << std::min(bits_, 30);
  }

  Random& random_;
  int bits_;
  PackedStreamBuilder builder_;
  std::uint64_t threshold_percent_;
  std::vector<unsigned> channels_;
  unsigned shift_ = 0;
  std::array<std::uint64_t, 4> now_{};
};

// Flips, adds or removes single bits.
inline void spoil(std::vector<bool>& bits, Random& random) {
  for (std::uint64_t n = 1 + random.below(4); n > 0 && !bits.empty(); --n) {
    const auto where = bits.begin() + static_cast<std::ptrdiff_t>(random.below(bits.size()));
    switch (random.below(3)) {
      case 0:
        *where = !*where;
        break;
      case 1:
        bits.insert(where, random.percent(50));
        break;
      default:
        bits.erase(where);
        break;
    }
  }
}

inline std::vector<bool> random_bits(std::size_t count, Random& random) {
  std::vector<bool> bits(count);
  for (std::size_t i = 0; i < count; ++i) {
    bits[i] = random.percent(50);
  }
  return bits;
}

}  // namespace zelk::test_support
