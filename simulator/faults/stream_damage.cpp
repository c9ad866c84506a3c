#include "simulator/faults/stream_damage.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zelk::simulator {
namespace {

constexpr int byte_bits = 8;

// Seeds of the kinds of damage lie far from those of the signals.
constexpr std::uint64_t damage_seed = std::uint64_t{0xFA} << 56;

std::uint64_t seed_of(std::uint64_t seed, std::uint64_t kind) {
  return damage_seed + (seed << 3) + kind;
}

}  // namespace

std::uint8_t RareHits::below(unsigned count) {
  return static_cast<std::uint8_t>(std::ceil(random_.uniform() * count) - 1);
}

// The number of misses before a hit has a geometric distribution.
void RareHits::draw() {
  constexpr double never = 1e18;
  const double misses =
      probability_ > 0 ? std::log(random_.uniform()) / std::log1p(-probability_) : never;
  misses_left_ = static_cast<std::uint64_t>(std::min(misses, never));
}

StreamDamage::StreamDamage(const DamageRates& rates, std::uint64_t seed)
    : flipped_bits_(rates.flip_bits, seed_of(seed, 0)),
      lost_bytes_(rates.lose_bytes, seed_of(seed, 1)),
      inserted_bytes_(rates.insert_bytes, seed_of(seed, 2)),
      removed_bits_(rates.remove_bits, seed_of(seed, 3)),
      inserted_bits_(rates.insert_bits, seed_of(seed, 4)) {}

void StreamDamage::apply(std::span<const std::uint8_t> healthy,
                         std::vector<std::uint8_t>& damaged) {
  for (const std::uint8_t byte : healthy) {
    if (inserted_bytes_.next()) {
      put_byte(inserted_bytes_.below(256), damaged);
    }
    if (!lost_bytes_.next()) {
      put_byte(byte, damaged);
    }
  }
}

void StreamDamage::put_byte(std::uint8_t byte, std::vector<std::uint8_t>& damaged) {
  if (!remove_one_bit_ && !insert_one_bit_ && removed_bits_.misses(byte_bits) &&
      inserted_bits_.misses(byte_bits)) {
    removed_bits_.skip(byte_bits);
    inserted_bits_.skip(byte_bits);
    put_bits(byte, byte_bits, damaged);
    return;
  }
  for (int bit = byte_bits - 1; bit >= 0; --bit) {
    if (inserted_bits_.next() || std::exchange(insert_one_bit_, false)) {
      put_bits(inserted_bits_.below(2), 1, damaged);
    }
    if (!removed_bits_.next() && !std::exchange(remove_one_bit_, false)) {
      put_bits(unsigned{byte} >> bit & 1U, 1, damaged);
    }
  }
}

void StreamDamage::put_bits(unsigned bits, int count, std::vector<std::uint8_t>& damaged) {
  unfilled_ = unfilled_ << count | bits;
  unfilled_bits_ += count;
  if (unfilled_bits_ >= byte_bits) {
    unfilled_bits_ -= byte_bits;
    damaged.push_back(arrived(static_cast<std::uint8_t>(unfilled_ >> unfilled_bits_)));
  }
}

std::uint8_t StreamDamage::arrived(std::uint8_t byte) {
  unsigned flips = 0;
  if (flipped_bits_.misses(byte_bits)) {
    flipped_bits_.skip(byte_bits);
  } else {
    for (int bit = 0; bit < byte_bits; ++bit) {
      flips = flips << 1 | (flipped_bits_.next() ? 1U : 0U);
    }
  }
  return stuck_at_.value_or(static_cast<std::uint8_t>(byte ^ flips));
}

}  // namespace zelk::simulator
