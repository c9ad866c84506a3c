// Lists of times for tests that hold a routine against its plain twin: in
// order and out of it, crowded and sparse, and at the ends of the 64-bit
// range. The same seed gives the same lists.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace zelk::reference {

class RandomTimes {
 public:
  explicit RandomTimes(std::uint64_t seed) : engine_(seed) {}

  // Uniform enough in 0 .. bound - 1.
  std::uint64_t below(std::uint64_t bound) { return engine_() % bound; }

  // In low .. high, at most 2^63 apart.
  std::int64_t between(std::int64_t low, std::int64_t high) {
    return low + static_cast<std::int64_t>(below(static_cast<std::uint64_t>(high - low) + 1));
  }

  // Any 64-bit value, those near the ends of the range and near 0 more often.
  std::int64_t extreme() {
    constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    switch (below(5)) {
      case 0:
        return smallest + between(0, 2000);
      case 1:
        return largest - between(0, 2000);
      case 2:
        return between(-2000, 2000);
      case 3:
        return between(0, 1) == 0 ? smallest : largest;
      default:
        return static_cast<std::int64_t>(engine_());
    }
  }

  std::vector<std::int64_t> list(std::size_t size) {
    std::vector<std::int64_t> times(size);
    switch (below(5)) {
      case 0:  // ascending
        fill_ascending(times);
        break;
      case 1:  // ascending but for a few neighbours
        fill_ascending(times);
        for (std::size_t i = 1; i < size; i += 1 + below(40)) {
          std::swap(times[i - 1], times[i]);
        }
        break;
      case 2:  // in no order
        fill_ascending(times);
        std::shuffle(times.begin(), times.end(), engine_);
        break;
      case 3:  // many duplicates
        for (std::int64_t& time : times) {
          time = between(-3, 3) * 1000;
        }
        break;
      default:  // out of range for signed arithmetic
        for (std::int64_t& time : times) {
          time = extreme();
        }
        if (below(2) == 0) {
          std::sort(times.begin(), times.end());
        }
        break;
    }
    return times;
  }

  // A second list, either unrelated or mostly near the first one's times.
  std::vector<std::int64_t> partner_of(const std::vector<std::int64_t>& times,
                                       std::size_t unrelated_size) {
    if (below(2) == 0) {
      return list(unrelated_size);
    }
    const std::int64_t jitter = between(0, 3000);
    std::vector<std::int64_t> partners;
    for (const std::int64_t time : times) {
      if (below(5) != 0) {
        partners.push_back(
            static_cast<std::int64_t>(static_cast<std::uint64_t>(time) +
                                      static_cast<std::uint64_t>(between(-jitter, jitter))));
      }
    }
    return partners;
  }

 private:
  void fill_ascending(std::vector<std::int64_t>& times) {
    constexpr std::array<std::int64_t, 4> steps_ps{4, 60, 3000, 1'000'000};
    const std::int64_t step_ps = steps_ps[below(steps_ps.size())];
    std::int64_t time = between(-100'000, 100'000);
    for (std::int64_t& entry : times) {
      time += between(0, step_ps);
      entry = time;
    }
  }

  std::mt19937_64 engine_;
};

}  // namespace zelk::reference
