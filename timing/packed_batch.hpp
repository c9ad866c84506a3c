// What the records of one packed_delta call are decoded by, and what comes of
// them. One batch belongs to one call.
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include "timing/detail/tag_writer.hpp"
#include "timing/time_tag.hpp"
#include "timing/wire_format.hpp"

namespace zelk::timing::detail {

// With the internal source every channel ticks regularly, so a longer step
// than this means a wrong alignment.
inline constexpr std::uint64_t max_internal_step_ps = 1'000'000'000'000;

// The counter behind deltas and sync values: 41 bits of ticks of 2^shift ps.
struct PackedCounter {
  static constexpr auto epoch = static_cast<std::uint64_t>(coarse_epoch_ps);
  static constexpr int max_shift = 22;  // beyond it the span would leave 64 bits

  explicit PackedCounter(int ticks_to_ps)
      : shift(ticks_to_ps),
        span(std::uint64_t{1} << (wire::packed_delta::sync_value_bits +
                                  std::clamp(shift, 0, max_shift))),
        period(std::min(span, epoch)),
        excess((epoch + span - 1) / span * span - epoch) {}

  int shift;
  std::uint64_t span;    // ps after which the counter wraps
  std::uint64_t period;  // ps after which sync values repeat
  std::uint64_t excess;  // what a delta across a wrap of the coarse epoch shows too much
};

struct PackedBatch {
  // Joins the parts into the debug line. Cold, which keeps the making of lines
  // out of the loop: it costs a fifth of the speed there.
  template <typename... Parts>
  [[gnu::cold]] bool refuse(const Parts&... parts) {
    (add(parts), ...);
    return false;
  }
  void add(std::string_view text) { refusal += text; }
  void add(std::integral auto number) { refusal += std::to_string(number); }

  int bits;
  std::uint8_t mask;
  bool internal;
  PackedCounter counter;
  std::uint64_t records;  // whole ones at hand
  TagWriter& tags;
  std::uint64_t taken = 0;  // of the records
  std::array<std::uint64_t, channel_count> emitted{};
  std::string refusal{};  // why the lock is lost, as its debug line says it
};

}  // namespace zelk::timing::detail
