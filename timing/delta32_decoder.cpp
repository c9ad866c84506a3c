// The delta32 path: 4-byte words whose alignment a sync word gives. Anything
// that cannot stand where it stands costs the lock, and decoding resumes at
// the next sync word. Each rule returns false when the word costs the lock.
#include <algorithm>
#include <array>
#include <span>

#include "timing/detail/byte_order.hpp"
#include "timing/detail/call_bytes.hpp"
#include "timing/detail/epoch_excess.hpp"
#include "timing/detail/tag_writer.hpp"
#include "timing/detail/wrapping.hpp"
#include "timing/stream_decoder.hpp"
#include "timing/wire_format.hpp"

namespace zelk::timing {
namespace {

using detail::accepts_corrected_step;
using detail::CallBytes;
using detail::correct_epoch_excess;
using detail::load_be32;
using detail::TagWriter;
using detail::wrap_add;

namespace delta32 = wire::delta32;

using Bytes = std::span<const std::uint8_t>;

constexpr std::array<std::uint8_t, delta32::word_bytes> sync_bytes{0xEB, 0x5A, 0x55, 0xAA};
static_assert(load_be32(sync_bytes.data()) == delta32::sync_word);
constexpr auto wrap_excess = static_cast<std::uint64_t>(wrap_excess_ps);

// The fields of one word. `channel` is the sub-type of a control word.
struct Word {
  explicit Word(std::uint32_t word)
      : bits(word),
        control((bits & delta32::control_bit) != 0),
        channel(static_cast<std::uint8_t>(bits >> delta32::channel_shift & delta32::channel_mask)),
        kind(bits >> delta32::kind_shift & delta32::kind_mask),
        payload(bits & delta32::payload_mask) {}

  [[nodiscard]] bool is_sync() const { return bits == delta32::sync_word; }
  [[nodiscard]] bool is_tag() const { return !control && kind == delta32::tag_kind; }
  [[nodiscard]] bool is_control(std::uint32_t subtype) const {
    return control && kind == delta32::control_kind && channel == subtype;
  }
  [[nodiscard]] bool is_short_control(std::uint32_t subtype) const {
    return is_control(subtype) && (payload & ~delta32::short_payload_mask) == 0;
  }

  std::uint32_t bits;
  bool control;
  std::uint8_t channel;
  std::uint32_t kind;
  std::uint32_t payload;
};

// Where the last bytes begin in which a sync word may have begun.
std::size_t begun_sync_word(Bytes bytes) {
  return bytes.size() - std::min(bytes.size(), sync_bytes.size() - 1);
}

// What a sync word does, wherever it stands.
void expect_base(Delta32Lock& lock) {
  lock = {.d32_locked = true, .d32_state = Delta32Lock::d32_expect_base_low};
}

// The announced 41-bit `base` as a time of the channel whose last time is
// `last_ps`: placed in the counter span of that time, or in the next one when
// that leaves it more than half a span behind, and freed of the wrap excess.
std::uint64_t lift_base(std::uint64_t base, std::int64_t last_ps) {
  constexpr auto span = static_cast<std::uint64_t>(counter_span_ps);
  const auto previous = static_cast<std::uint64_t>(std::max<std::int64_t>(last_ps, 0));
  base += previous & ~delta32::base_mask;
  if (base + span / 2 < previous) {
    base += span;
  }
  if (previous < base && base - previous > wrap_excess) {
    const std::uint64_t step = base - previous - wrap_excess;
    if (accepts_corrected_step(last_ps, step)) {
      base = previous + step;
    }
  }
  return base;
}

// The first tag behind a base. It must be later than the channel's last one.
bool take_absolute_tag(Delta32State& state, std::uint8_t channel, std::uint64_t delta,
                       TagWriter& tags) {
  std::uint64_t base = state.d32_base & delta32::base_mask;
  std::int64_t& last = state.last_ps[channel];
  if (state.has_time[channel]) {
    base = lift_base(base, last);
    if (static_cast<std::int64_t>(delta + base) <= last) {
      return false;
    }
  }
  last = static_cast<std::int64_t>(delta + base);
  state.has_time[channel] = true;
  state.d32_base_valid = false;
  state.d32_base = 0;
  tags.push({channel, last});
  return true;
}

bool take_tag(Delta32State& state, const Word& word, TagWriter& tags) {
  const std::uint64_t delta = (state.d32_overflow << delta32::payload_bits) + word.payload;
  state.d32_overflow = 0;
  if (state.d32_base_valid) {
    return take_absolute_tag(state, word.channel, delta, tags);
  }
  if (state.has_time[word.channel]) {
    std::int64_t& last = state.last_ps[word.channel];
    const std::uint64_t step = correct_epoch_excess(delta, wrap_excess, last);
    last = wrap_add(last, static_cast<std::int64_t>(step));
    tags.push({word.channel, last});
  }
  return true;
}

bool take_base_low(Delta32State& state, const Word& word) {
  if (!word.is_control(delta32::base_low_subtype)) {
    return false;
  }
  state.d32_base_low = word.payload;
  state.d32_state = Delta32Lock::d32_expect_base_high;
  return true;
}

bool take_base_high(Delta32State& state, const Word& word) {
  if (!word.is_short_control(delta32::base_high_subtype)) {
    return false;
  }
  state.d32_base = (std::uint64_t{word.payload} << delta32::payload_bits) + state.d32_base_low;
  state.d32_base_valid = true;
  state.d32_overflow = 0;
  state.d32_state = Delta32Lock::d32_data;
  return true;
}

bool take_data(Delta32State& state, const Word& word, TagWriter& tags) {
  if (word.is_tag()) {
    return take_tag(state, word, tags);
  }
  if (word.is_short_control(delta32::overflow_subtype) && !state.d32_base_valid) {
    state.d32_overflow += word.payload;
    return true;
  }
  // Of this sub-type any other payload than the sync word's is skipped.
  return word.is_control(delta32::sync_subtype);
}

bool take_word(Delta32State& state, const Word& word, TagWriter& tags) {
  if (word.is_sync()) {
    expect_base(state);
    return true;
  }
  switch (state.d32_state) {
    case Delta32Lock::d32_expect_base_low:
      return take_base_low(state, word);
    case Delta32Lock::d32_expect_base_high:
      return take_base_high(state, word);
    default:
      return take_data(state, word, tags);
  }
}

// The common words: tags of channels that have a time, while nothing waits for
// the next tag. Takes them from `next` on and returns where it stopped: at any
// other word, at the end, or for want of room.
//
// Such a word adds its payload to the channel's time, which is all that this
// loop touches. A payload of 25 bits is below the wrap excess, so that nothing
// is to be corrected. Measured, a word takes half as long as by the rules above.
std::size_t take_plain_tags(Bytes bytes, std::size_t next, Delta32State& state, TagWriter& tags) {
  constexpr std::uint32_t fixed_bits = delta32::control_bit | delta32::kind_mask
                                                                  << delta32::kind_shift;
  constexpr std::uint32_t tag_bits = delta32::tag_kind << delta32::kind_shift;
  static_assert(delta32::payload_mask < wrap_excess);
  if (state.d32_state != Delta32Lock::d32_data || state.d32_base_valid || state.d32_overflow != 0) {
    return next;
  }
  tags.make_room();
  TimeTag* tag = tags.next();
  std::size_t left = std::min(tags.room(), (bytes.size() - next) / delta32::word_bytes);
  for (; left != 0; --left) {
    const std::uint32_t word = load_be32(&bytes[next]);
    const std::size_t channel = word >> delta32::channel_shift & delta32::channel_mask;
    if ((word & fixed_bits) != tag_bits || !state.has_time[channel]) {
      break;
    }
    std::int64_t& last = state.last_ps[channel];
    last = wrap_add(last, word & delta32::payload_mask);
    *tag++ = {static_cast<std::uint8_t>(channel), last};
    next += delta32::word_bytes;
  }
  tags.written_to(tag);
  return next;
}

// Decodes from `next` on and returns where it stands: locked, less than a word
// in front of the end, and otherwise where the search for a sync word goes on.
std::size_t decode_words(Bytes bytes, std::size_t next, Delta32State& state, TagWriter& tags) {
  Delta32Lock& lock = state;
  for (;;) {
    while (lock.d32_locked && bytes.size() - next >= delta32::word_bytes) {
      const std::size_t plain_end = take_plain_tags(bytes, next, state, tags);
      if (plain_end != next) {
        next = plain_end;
        continue;
      }
      if (!take_word(state, Word(load_be32(&bytes[next])), tags)) {
        lock = {};
      }
      next += delta32::word_bytes;
    }
    if (lock.d32_locked) {
      return next;
    }
    const auto found = std::search(bytes.begin() + static_cast<std::ptrdiff_t>(next), bytes.end(),
                                   sync_bytes.begin(), sync_bytes.end());
    if (found == bytes.end()) {
      return std::max(next, begun_sync_word(bytes));
    }
    next = static_cast<std::size_t>(found - bytes.begin()) + sync_bytes.size();
    expect_base(lock);
  }
}

}  // namespace

// Without a lock the last bytes stay, in which a sync word may have begun, even
// if they were part of the word that cost the lock.
void StreamDecoder::feed_delta32(FreshBytes fresh, std::vector<TimeTag>& list) {
  TagWriter tags(list);
  CallBytes bytes(pending, fresh, pending.size() < delta32::word_bytes);
  Delta32State& kept = *this;
  Delta32State state = kept;
  std::size_t next = decode_words(bytes.seam(), 0, state, tags);
  next = decode_words(bytes.body(), next - bytes.overlap(), state, tags);
  bytes.keep_from(state.d32_locked ? next : begun_sync_word(bytes.body()));
  kept = state;
  tags.commit();
}

}  // namespace zelk::timing
