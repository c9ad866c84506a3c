// Repeatable random numbers. The standard library's distributions differ from
// one implementation to the next; these do not, so a seed names one signal.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>

namespace zelk::simulator {

class RandomNumbers {
 public:
  explicit RandomNumbers(std::uint64_t seed) : engine_(seed) {}

  // Uniform in (0, 1].
  double uniform() { return static_cast<double>((engine_() >> 11) + 1) * 0x1p-53; }

  // Waiting time, in the unit of `mean`, of a process without memory.
  double exponential(double mean) { return -std::log(uniform()) * mean; }

  // Bell-shaped with mean 0 and standard deviation `rms_ps`, never further out
  // than 3.5 of these: the sum of four uniform 16-bit numbers.
  std::int64_t jitter_ps(double rms_ps) {
    const std::uint64_t bits = engine_();
    double sum = -2.0;
    for (int part = 0; part < 4; ++part) {
      sum += (static_cast<double>(bits >> (16 * part) & 0xFFFF) + 0.5) * 0x1p-16;
    }
    return std::llround(sum * rms_ps * std::sqrt(3.0));
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace zelk::simulator
