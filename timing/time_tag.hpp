// The vocabulary of a tag stream: the decoded event, the stream's format and
// mode, and the clock constants that every format shares. Plain values, no
// owner, usable from any thread.
#pragma once

#include <cstdint>

namespace zelk::timing {

// One detected input event.
struct TimeTag {
  std::uint8_t channel = 0;       // input channel, 0 to 3
  std::int64_t timestamp_ps = 0;  // time since the stream's origin

  friend bool operator==(const TimeTag&, const TimeTag&) = default;
};

// How records are laid out in the stream. Any other value decodes to nothing.
enum class Format : std::uint32_t {
  raw64 = 0,         // 8-byte records with absolute timestamps
  delta32 = 1,       // 4-byte words: deltas, time bases and sync words
  packed_delta = 2,  // (packed_bits + 3)-bit records without padding
};

// What drives the inputs while the stream runs.
enum class StreamMode : std::uint32_t {
  internal = 0,  // the device's own calibration source
  external = 1,  // real input signals
};

inline constexpr int channel_count = 4;

// Bit n stands for channel n.
inline constexpr std::uint8_t all_channels_mask = (1U << channel_count) - 1;

// One period of the device's coarse counter.
inline constexpr std::int64_t clock_period_ps = 3333;

// The coarse counter has 32 bits: the device's timestamps wrap after this time.
inline constexpr std::int64_t coarse_epoch_ps = clock_period_ps << 32;

// A backwards step larger than this is a wrap, not a late tag.
inline constexpr std::int64_t half_epoch_ps = coarse_epoch_ps / 2;

// Span of the 41-bit picosecond counter behind time bases and deltas.
inline constexpr std::int64_t counter_span_ps = std::int64_t{1} << 41;

// A counter of that span, read across a wrap of the coarse epoch, shows this
// much more than the time that has passed: seven spans overshoot one epoch.
inline constexpr std::int64_t wrap_excess_ps = 7 * counter_span_ps - coarse_epoch_ps;

// A delta that is this small after removing the wrap excess is always taken.
inline constexpr std::int64_t small_delta_bound_ps = 10'000'000'000;

static_assert(coarse_epoch_ps == 0xD0500000000);
static_assert(wrap_excess_ps == 0xFB00000000);

}  // namespace zelk::timing
