// The figures of a channel pair's histogram for windows of any width, in 128-bit
// arithmetic: every time is held against every other, their bins are listed and
// sorted, and empty ones are counted up from the first. It shares no constant and no code
// with the real routines. Pure functions of their arguments.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/reference/literal_analysis.hpp"

namespace zelk::reference {

struct WidePairs {
  Peak peak;
  double rms_ps = 0.0;
  std::uint64_t minus_window = 0;  // 40 ps around -3333 ps
  std::uint64_t plus_window = 0;   // 40 ps around 3333 ps
  Pairs top;                       // ten (centre, count) at most
};

// Bins of 8 ps. The bounds of windows up to 2^62 wrap around at 64 bits, those of
// wider ones are exact. A centre beyond the largest time is given as that.
WidePairs wide_pairs(const Times& a, const Times& b, std::int64_t range_ps, std::int64_t offset_ps);

}  // namespace zelk::reference
