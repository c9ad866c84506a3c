// Random tag lists for the encoders' laws: each channel makes steps of every
// size, and dense runs across the ends of the coarse epochs.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "timing/time_tag.hpp"

namespace zelk::simulator {

// Draws the next step of a channel from the generator.
template <typename DrawStep>
void append_channel(std::uint8_t channel, std::int64_t first_ps, std::int64_t end_ps,
                    std::mt19937_64& random, DrawStep&& draw_step,
                    std::vector<timing::TimeTag>& tags) {
  constexpr std::int64_t epoch_ps = 3333LL << 32;
  constexpr std::int64_t dense_step_ps = 50'000'000;
  constexpr int dense_tags = 60;
  int dense = 0;
  for (std::int64_t time_ps = first_ps; time_ps < end_ps;) {
    tags.push_back({channel, time_ps});
    const std::int64_t to_epoch_ps = epoch_ps - time_ps % epoch_ps;
    std::int64_t step_ps = draw_step();
    if (dense > 0) {
      --dense;
      step_ps = 1 + static_cast<std::int64_t>(random() % dense_step_ps);
    } else if (to_epoch_ps > dense_tags * dense_step_ps && step_ps >= to_epoch_ps / 2 &&
               to_epoch_ps < 1'000'000'000'000) {
      // Close to the end of an epoch: go right before it, then over it.
      dense = dense_tags;
      step_ps = to_epoch_ps - 20 * dense_step_ps;
    }
    time_ps += step_ps;
  }
}

// A step of random size: every order of magnitude up to `largest_ps` is alike.
inline std::int64_t log_uniform_ps(std::mt19937_64& random, std::int64_t largest_ps) {
  const double exponent =
      std::uniform_real_distribution<>(0, std::log(static_cast<double>(largest_ps)))(random);
  return std::clamp<std::int64_t>(std::llround(std::exp(exponent)), 1, largest_ps);
}

inline void sort_by_time(std::vector<timing::TimeTag>& tags) {
  std::stable_sort(tags.begin(), tags.end(),
                   [](const timing::TimeTag& a, const timing::TimeTag& b) {
                     return a.timestamp_ps < b.timestamp_ps;
                   });
}

}  // namespace zelk::simulator
