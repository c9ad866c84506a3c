// Repeatable random numbers. The standard library's distributions differ from
// one implementation to the next; these do not, so a seed names one signal.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>

namespace zelk::simulator {

// What random numbers are for. Every purpose draws from a stream of its own,
// so that a change of one leaves the others as they were.
enum class RandomPurpose : std::uint8_t {
  pulses,
  random,
  pairs,
  background,
  detector,
  delay_line,
  read_sizes,
  calibration,
};

// The seed of the random numbers for one purpose and one channel (or other
// number) of a unit that was opened with `seed`.
constexpr std::uint64_t stream_seed(std::uint32_t seed, RandomPurpose purpose,
                                    std::size_t channel = 0) {
  // Neighbouring numbers are mixed far apart.
  std::uint64_t mixed = std::uint64_t{seed} << 16 | static_cast<std::uint64_t>(purpose) << 8 |
                        static_cast<std::uint64_t>(channel);
  for (int round = 0; round < 2; ++round) {
    mixed = (mixed + 0x9E3779B97F4A7C15) * 0xBF58476D1CE4E5B9;
    mixed ^= mixed >> 29;
  }
  return mixed;
}

class RandomNumbers {
 public:
  explicit RandomNumbers(std::uint64_t seed) : engine_(seed) {}

  // Uniform in (0, 1].
  double uniform() { return static_cast<double>((engine_() >> 11) + 1) * 0x1p-53; }

  // Waiting time, in the unit of `mean`, of a process without memory. `mean`
  // is finite.
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

// The mean waiting time between events at `rate_hz`, above 0. Rates so low that
// nothing ever happens share one long time, so that sums stay finite.
inline double mean_wait_ps(double rate_hz) {
  return std::fmin(1e12 / rate_hz, 1e30);
}

}  // namespace zelk::simulator
