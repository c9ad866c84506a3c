// The delta32 path: 4-byte words whose alignment a sync word gives. Anything
// that cannot stand where it stands costs the lock, and decoding resumes at
// the next sync word.
#include <algorithm>
#include <array>

#include "timing/detail/byte_order.hpp"
#include "timing/detail/epoch_excess.hpp"
#include "timing/detail/wrapping.hpp"
#include "timing/stream_decoder.hpp"
#include "timing/wire_format.hpp"

namespace zelk::timing {
namespace {

using detail::accepts_corrected_step;
using detail::correct_epoch_excess;
using detail::load_be32;
using detail::wrap_add;

namespace delta32 = wire::delta32;

constexpr std::array<std::uint8_t, delta32::word_bytes> sync_bytes{0xEB, 0x5A, 0x55, 0xAA};

// The fields of one word. `channel` is the sub-type of a control word.
struct Word {
  explicit Word(std::uint32_t bits)
      : control((bits & delta32::control_bit) != 0),
        channel(static_cast<std::uint8_t>(bits >> delta32::channel_shift & delta32::channel_mask)),
        kind(bits >> delta32::kind_shift & delta32::kind_mask),
        payload(bits & delta32::payload_mask) {}

  [[nodiscard]] bool is_tag() const { return !control && kind == delta32::tag_kind; }
  [[nodiscard]] bool is_control(std::uint32_t subtype) const {
    return control && kind == delta32::control_kind && channel == subtype;
  }
  [[nodiscard]] bool is_sync() const {
    return is_control(delta32::sync_subtype) && payload == delta32::sync_payload;
  }
  [[nodiscard]] bool has_short_payload() const {
    return (payload & ~delta32::short_payload_mask) == 0;
  }

  bool control;
  std::uint8_t channel;
  std::uint32_t kind;
  std::uint32_t payload;
};

// The announced 41-bit `base` as a time of the channel whose last time is
// `last_ps`: placed in the counter span of that time, or in the next one when
// that leaves it more than half a span behind, and freed of the wrap excess.
std::uint64_t lift_base(std::uint64_t base, std::int64_t last_ps) {
  constexpr auto span = static_cast<std::uint64_t>(counter_span_ps);
  constexpr auto excess = static_cast<std::uint64_t>(wrap_excess_ps);
  const auto previous = static_cast<std::uint64_t>(std::max<std::int64_t>(last_ps, 0));
  base += previous & ~delta32::base_mask;
  if (base + span / 2 < previous) {
    base += span;
  }
  if (previous < base && base - previous > excess) {
    const std::uint64_t step = base - previous - excess;
    if (accepts_corrected_step(last_ps, step)) {
      base = previous + step;
    }
  }
  return base;
}

}  // namespace

void StreamDecoder::expect_delta32_base() {
  d32_state = d32_expect_base_low;
  d32_base = 0;
  d32_base_valid = false;
  d32_overflow = 0;
}

void StreamDecoder::lose_delta32_lock() {
  d32_locked = false;
  d32_state = d32_data;
  d32_base = 0;
  d32_base_valid = false;
  d32_overflow = 0;
}

void StreamDecoder::decode_delta32_tag(std::uint8_t channel, std::uint32_t payload,
                                       std::vector<TimeTag>& tags) {
  const std::uint64_t delta = (d32_overflow << delta32::payload_bits) + payload;
  d32_overflow = 0;
  std::int64_t& last = last_ps[channel];

  if (!d32_base_valid) {
    if (!has_time[channel]) {
      return;
    }
    constexpr auto excess = static_cast<std::uint64_t>(wrap_excess_ps);
    const std::uint64_t step = correct_epoch_excess(delta, excess, last);
    last = wrap_add(last, static_cast<std::int64_t>(step));
    tags.push_back({channel, last});
    return;
  }

  std::uint64_t base = d32_base & delta32::base_mask;
  if (has_time[channel]) {
    base = lift_base(base, last);
    if (static_cast<std::int64_t>(delta + base) <= last) {
      lose_delta32_lock();
      return;
    }
  }
  last = static_cast<std::int64_t>(delta + base);
  has_time[channel] = true;
  d32_base_valid = false;
  d32_base = 0;
  tags.push_back({channel, last});
}

void StreamDecoder::decode_delta32_word(std::uint32_t bits, std::vector<TimeTag>& tags) {
  const Word word(bits);
  switch (d32_state) {
    case d32_expect_base_low:
      if (word.is_control(delta32::base_low_subtype)) {
        d32_base_low = word.payload;
        d32_state = d32_expect_base_high;
      } else if (word.is_sync()) {
        expect_delta32_base();
      } else {
        lose_delta32_lock();
      }
      return;

    case d32_expect_base_high:
      if (word.is_control(delta32::base_high_subtype) && word.has_short_payload()) {
        d32_base = (std::uint64_t{word.payload} << delta32::payload_bits) + d32_base_low;
        d32_base_valid = true;
        d32_overflow = 0;
        d32_state = d32_data;
      } else if (word.is_sync()) {
        expect_delta32_base();
      } else {
        lose_delta32_lock();
      }
      return;

    default:
      if (word.is_tag()) {
        decode_delta32_tag(word.channel, word.payload, tags);
      } else if (word.is_control(delta32::sync_subtype)) {
        // Any other payload of this sub-type is skipped and keeps the lock.
        if (word.is_sync()) {
          expect_delta32_base();
        }
      } else if (word.is_control(delta32::overflow_subtype) && word.has_short_payload() &&
                 !d32_base_valid) {
        d32_overflow += word.payload;
      } else {
        lose_delta32_lock();
      }
  }
}

// `start` stands for the front of `pending`, which is erased once at the end:
// everything before it is consumed, whatever happens next.
std::vector<TimeTag> StreamDecoder::feed_delta32() {
  std::vector<TimeTag> tags;
  std::size_t start = 0;
  std::size_t next = 0;
  for (;;) {
    if (!d32_locked) {
      const auto found = std::search(pending.begin() + static_cast<std::ptrdiff_t>(next),
                                     pending.end(), sync_bytes.begin(), sync_bytes.end());
      if (found == pending.end()) {
        // A sync word may have begun in the last bytes.
        start = std::max(start, pending.size() - std::min(pending.size(), sync_bytes.size() - 1));
        break;
      }
      start = static_cast<std::size_t>(found - pending.begin()) + sync_bytes.size();
      next = start;
      d32_locked = true;
      expect_delta32_base();
    }
    while (d32_locked && pending.size() - next >= delta32::word_bytes) {
      decode_delta32_word(load_be32(pending.data() + next), tags);
      next += delta32::word_bytes;
    }
    if (d32_locked) {
      start = next;
      break;
    }
  }
  pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(start));
  return tags;
}

}  // namespace zelk::timing
