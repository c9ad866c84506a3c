// Damage on the way from the unit to the host: flipped, lost and additional
// bits and bytes, and lines that are stuck.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "simulator/ports/fault_plan.hpp"
#include "simulator/random_numbers.hpp"

namespace zelk::simulator {

// Trials in a row, each a hit with the same probability. Costs one random
// number per hit and none per trial.
class RareHits {
 public:
  RareHits(double probability, std::uint64_t seed) : probability_(probability), random_(seed) {
    draw();
  }

  // Makes one trial and tells whether it is a hit.
  bool next() {
    if (misses_left_ != 0) {
      --misses_left_;
      return false;
    }
    draw();
    return true;
  }

  // misses() tells whether the next `count` trials all miss; skip() then makes
  // them.
  [[nodiscard]] bool misses(std::uint64_t count) const { return misses_left_ >= count; }
  void skip(std::uint64_t count) { misses_left_ -= count; }

  // A random number for what a hit brings, uniform from 0 to `count` - 1. `count`
  // is at most 256.
  std::uint8_t below(unsigned count);

 private:
  void draw();

  double probability_;
  RandomNumbers random_;
  std::uint64_t misses_left_ = 0;
};

// One stream from its start to its end, used by the thread that reads it. What
// the rates do depends on the seed and the bytes of the stream alone, not on
// how they are cut into pieces. Slips and stuck lines begin with the next byte.
//
// Bytes are lost and inserted before bits are; flips come last, also in what
// was inserted.
class StreamDamage {
 public:
  StreamDamage(const DamageRates& rates, std::uint64_t seed);

  // One slip, at the beginning of the next byte.
  void remove_one_bit() { remove_one_bit_ = true; }
  void insert_one_bit() { insert_one_bit_ = true; }

  // From now on every byte that the host gets is `byte`.
  void stick_at(std::uint8_t byte) { stuck_at_ = byte; }

  // Appends what becomes of `healthy`. Bits that fill no byte are kept for the
  // next call.
  void apply(std::span<const std::uint8_t> healthy, std::vector<std::uint8_t>& damaged);

 private:
  void put_byte(std::uint8_t byte, std::vector<std::uint8_t>& damaged);
  void put_bits(unsigned bits, int count, std::vector<std::uint8_t>& damaged);
  [[nodiscard]] std::uint8_t arrived(std::uint8_t byte);

  RareHits flipped_bits_;
  RareHits lost_bytes_;
  RareHits inserted_bytes_;
  RareHits removed_bits_;
  RareHits inserted_bits_;
  bool remove_one_bit_ = false;
  bool insert_one_bit_ = false;
  std::optional<std::uint8_t> stuck_at_;
  unsigned unfilled_ = 0;  // its lowest bits fill no byte yet; those above have been sent
  int unfilled_bits_ = 0;  // their number, 0 to 7
};

}  // namespace zelk::simulator
