// The packed_delta path: records without markers, decoded one by one from a
// known bit alignment. The first record that cannot belong to a correctly
// aligned stream costs the lock, and the next call searches again.
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string>

#include "timing/detail/bit_reader.hpp"
#include "timing/detail/epoch_excess.hpp"
#include "timing/detail/wrapping.hpp"
#include "timing/stream_decoder.hpp"
#include "timing/wire_format.hpp"

namespace zelk::timing {
namespace {

using detail::accepts_corrected_step;
using detail::BitReader;
using detail::correct_epoch_excess;
using detail::wrap_add;
using detail::wrap_sub;

namespace packed = wire::packed_delta;

constexpr std::uint64_t max_debug_lines = 200;

// While unlocked: what is kept of a stream in which no alignment was found,
// and from how many bytes on that is worth a line.
constexpr std::size_t max_unaligned_bytes = 65536;
constexpr std::size_t kept_unaligned_bytes = 4096;
constexpr std::size_t quiet_unaligned_bytes = 4095;

// With the internal source every channel ticks regularly, so a longer step
// than this means a wrong alignment.
constexpr std::uint64_t max_internal_step_ps = 1'000'000'000'000;

// How far a channel may step back without proving the alignment wrong.
constexpr std::uint64_t max_backstep_ps = 1'000'000;

// More tags than this in one call tell whether the channels are balanced.
constexpr std::uint64_t min_judged_tags = 4096;
constexpr std::uint64_t max_imbalance = 8;

constexpr auto coarse_epoch = static_cast<std::uint64_t>(coarse_epoch_ps);

std::string hex(unsigned value) {
  constexpr const char* digits = "0123456789abcdef";
  std::string text;
  do {
    text.insert(text.begin(), digits[value & 0xF]);
    value >>= 4;
  } while (value != 0);
  return text;
}

// Joins texts and numbers into one message.
template <typename... Parts>
std::string message(const Parts&... parts) {
  const auto text = [](const auto& part) {
    if constexpr (std::is_arithmetic_v<std::decay_t<decltype(part)>>) {
      return std::to_string(part);
    } else {
      return std::string(part);
    }
  };
  return (text(parts) + ...);
}

// The counter behind deltas and sync values: 41 bits of ticks.
struct Counter {
  explicit Counter(int shift)
      : span(std::uint64_t{1} << (packed::sync_value_bits + std::clamp(shift, 0, 22))),
        period(std::min(span, coarse_epoch)),
        excess((coarse_epoch + span - 1) / span * span - coarse_epoch) {}

  std::uint64_t span;    // ps after which the counter wraps
  std::uint64_t period;  // ps after which sync values repeat
  std::uint64_t excess;  // what a delta across a wrap of the coarse epoch shows too much
};

}  // namespace

struct StreamDecoder::PackedBatch {
  int bits;
  std::uint8_t mask;
  std::uint64_t records;
  Counter counter;
  std::array<std::uint64_t, channel_count> emitted{};
  std::vector<TimeTag> tags{};
};

std::uint8_t StreamDecoder::active_channel_mask() const {
  return channel_mask == 0 ? 0xF : channel_mask & 0xF;
}

void StreamDecoder::packed_debug_log(const std::string& text) const {
  if (std::getenv("ZELK_PACKED_DEBUG") != nullptr && debug_lines < max_debug_lines) {
    ++debug_lines;
    std::cerr << "packed-decoder: " + text + "\n";
  }
}

void StreamDecoder::consume_packed_records(std::size_t n) {
  bit_offset += (std::uint64_t{packed_bits} + packed::header_bits) * n;
  const std::uint64_t bytes = std::min<std::uint64_t>(bit_offset / 8, pending.size());
  pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(bytes));
  bit_offset %= 8;
  packed_search_.forget();
}

void StreamDecoder::drop_packed_lock() {
  packed_locked = false;
  bit_offset = 0;
  packed_last_ps = {};
  packed_has_time = {};
  packed_overflow = {};
  packed_last_delta = {};
  packed_last_emitted_ps = {};
  packed_emitted = {};
  sync_chunks_left = 0;
  sync_channel = 0;
  sync_value = 0;
  sync_value_bits = 0;
  pending_sync_channel = -1;
  pending_sync_base_ps = 0;
  packed_search_.forget();
}

PackedAlignment StreamDecoder::probe_packed_alignment(int bits, int width) const {
  if (width < 1) {
    return {};
  }
  PackedAlignmentSearch search;
  return find_packed_alignment(bits, search);
}

PackedAlignment StreamDecoder::find_packed_alignment(int bits,
                                                     PackedAlignmentSearch& search) const {
  const PackedAlignmentSearch::Stream stream{
      .bits = bits, .active_mask = active_channel_mask(), .mode = mode};
  const PackedAlignmentSearch::Result result = search.search(stream, pending);
  if (!result.alignment.found && result.rejected) {
    const auto& [alignment, score] = *result.rejected;
    packed_debug_log(message("reject internal alignment drop_bytes=", alignment.drop_bytes,
                             " bit_offset=", alignment.bit_offset, " synced=", score.synced, "/",
                             PackedAlignmentSearch::requirements(stream).active, " min=", score.min,
                             " max=", score.max, " total=", score.total));
  }
  return result.alignment;
}

// Tries to find the alignment in what is pending. Without one, only the last
// bytes of a long stretch are kept.
bool StreamDecoder::lock_packed_alignment() {
  const int bits = packed_bits;
  const PackedAlignment alignment = find_packed_alignment(bits, packed_search_);
  if (!alignment.found) {
    if (pending.size() > quiet_unaligned_bytes) {
      packed_debug_log(message("no alignment bits=", bits, " width=", bits + packed::header_bits,
                               " raw_bytes=", pending.size()));
    }
    if (pending.size() > max_unaligned_bytes) {
      pending.erase(pending.begin(), pending.end() - kept_unaligned_bytes);
      bit_offset = 0;
      packed_search_.forget();
    }
    return false;
  }
  packed_search_.forget();
  pending.erase(pending.begin(),
                pending.begin() + static_cast<std::ptrdiff_t>(alignment.drop_bytes));
  packed_locked = true;
  bit_offset = alignment.bit_offset;
  packed_debug_log(message("locked bits=", bits, " drop_bytes=", alignment.drop_bytes,
                           " bit_offset=", alignment.bit_offset, " raw_bytes=", pending.size()));
  return true;
}

std::vector<TimeTag> StreamDecoder::feed_packed_delta() {
  if (packed_bits < packed::min_payload_bits || packed_bits > packed::max_payload_bits) {
    return {};
  }
  if (!packed_locked && !lock_packed_alignment()) {
    return {};
  }
  const int width = packed_bits + packed::header_bits;
  const BitReader reader(pending);
  PackedBatch batch{.bits = packed_bits,
                    .mask = active_channel_mask(),
                    .records = (reader.size_bits() - bit_offset) / static_cast<unsigned>(width),
                    .counter = Counter(packed_shift)};
  std::uint64_t bit = bit_offset;
  for (std::uint64_t index = 0; index < batch.records; ++index) {
    if (decode_packed_record(batch, reader.read(bit, width), index) == RecordResult::lock_dropped) {
      consume_packed_records(index + 1);
      drop_packed_lock();
      return std::move(batch.tags);
    }
    bit += static_cast<unsigned>(width);
  }
  consume_packed_records(batch.records);
  if (is_imbalanced(batch)) {
    drop_packed_lock();
    return {};
  }
  return std::move(batch.tags);
}

StreamDecoder::RecordResult StreamDecoder::decode_packed_record(PackedBatch& batch,
                                                                std::uint64_t record,
                                                                std::uint64_t index) {
  const std::uint64_t payload_mask = (std::uint64_t{1} << batch.bits) - 1;
  const std::uint64_t payload = record & payload_mask;
  const bool flag = (record >> batch.bits & 1) != 0;
  const auto channel = static_cast<std::size_t>(record >> (batch.bits + 1));

  if ((static_cast<unsigned>(batch.mask) >> channel & 1U) == 0) {
    packed_debug_log(message("drop inactive ch=", channel, " active_mask=0x", hex(batch.mask),
                             " record=", index, " records=", batch.records));
    return RecordResult::lock_dropped;
  }
  if (sync_chunks_left >= 1) {
    return decode_packed_sync_chunk(batch, channel, flag, payload, index);
  }
  if (!flag) {
    return decode_packed_tag(batch, channel, payload, index);
  }
  if (payload == payload_mask) {
    sync_channel = static_cast<std::int32_t>(channel);
    sync_value = 0;
    sync_value_bits = 0;
    sync_chunks_left = packed::sync_chunks(batch.bits);
    packed_overflow[channel] = 0;
  } else {
    packed_overflow[channel] += payload;
  }
  return RecordResult::accepted;
}

StreamDecoder::RecordResult StreamDecoder::decode_packed_tag(PackedBatch& batch,
                                                             std::size_t channel,
                                                             std::uint64_t payload,
                                                             std::uint64_t index) {
  const std::uint64_t delta = ((packed_overflow[channel] << batch.bits) + payload) << packed_shift;
  packed_overflow[channel] = 0;
  if (static_cast<std::int32_t>(channel) == pending_sync_channel) {
    if (!apply_packed_sync(channel, delta, index)) {
      return RecordResult::lock_dropped;
    }
  } else if (!packed_has_time[channel]) {
    return RecordResult::accepted;  // no sync yet, so no time
  } else if (!apply_packed_delta(batch, channel, delta, index)) {
    return RecordResult::lock_dropped;
  }
  ++batch.emitted[channel];
  packed_last_emitted_ps[channel] = packed_last_ps[channel];
  packed_emitted[channel] = true;
  batch.tags.push_back({static_cast<std::uint8_t>(channel), packed_last_ps[channel]});
  return RecordResult::accepted;
}

// Gives the channel the absolute time that its sync announced. The external
// mode lets a channel step back by up to 1 us; the internal source never does.
bool StreamDecoder::apply_packed_sync(std::size_t channel, std::uint64_t delta,
                                      std::uint64_t index) {
  const auto next = static_cast<std::int64_t>(delta + pending_sync_base_ps);
  if (packed_has_time[channel]) {
    const std::int64_t previous = packed_last_ps[channel];
    const std::int64_t step = wrap_sub(next, previous);
    const auto magnitude = static_cast<std::uint64_t>(previous < next ? step : wrap_sub(0, step));
    const bool internal = mode == StreamMode::internal;
    if (previous > next && magnitude > max_backstep_ps) {
      packed_debug_log(message("drop nonmonotonic sync ch=", channel, " next=", next,
                               " prev=", previous, " record=", index));
      return false;
    }
    if (previous == next || (internal && (previous > next || magnitude > max_internal_step_ps))) {
      packed_debug_log(message("drop implausible sync delta ch=", channel, " delta=", step,
                               " next=", next, " prev=", previous, " record=", index));
      return false;
    }
    if (previous < next) {
      packed_last_delta[channel] = magnitude;
    }
  }
  packed_last_ps[channel] = next;
  packed_has_time[channel] = true;
  pending_sync_channel = -1;
  pending_sync_base_ps = 0;
  return true;
}

// Advances the channel by a delta. A delta just short of the counter's span is
// a small step back; one that contains the wrap excess is freed of it.
bool StreamDecoder::apply_packed_delta(const PackedBatch& batch, std::size_t channel,
                                       std::uint64_t delta, std::uint64_t index) {
  const std::int64_t previous = packed_last_ps[channel];
  const std::uint64_t span = batch.counter.span;
  const std::uint64_t excess = batch.counter.excess;
  if (span / 2 < delta && delta <= span && span - delta <= max_backstep_ps) {
    delta -= span;
  } else {
    const std::uint64_t raw = delta;
    delta = correct_epoch_excess(delta, excess, previous);
    const bool surely_corrected =
        delta != raw && delta <= static_cast<std::uint64_t>(small_delta_bound_ps);
    if (!surely_corrected && mode == StreamMode::internal && delta > max_internal_step_ps) {
      packed_debug_log(message("drop implausible delta ch=", channel, " delta=", delta,
                               " prev=", previous, " record=", index));
      return false;
    }
  }
  packed_last_delta[channel] = delta;
  packed_last_ps[channel] = wrap_add(previous, static_cast<std::int64_t>(delta));
  return true;
}

StreamDecoder::RecordResult StreamDecoder::decode_packed_sync_chunk(const PackedBatch& batch,
                                                                    std::size_t channel, bool flag,
                                                                    std::uint64_t payload,
                                                                    std::uint64_t index) {
  if (static_cast<std::int32_t>(channel) != sync_channel) {
    packed_debug_log(message("drop sync channel mismatch ch=", channel, " expected=", sync_channel,
                             " record=", index, " chunks_left=", sync_chunks_left));
    return RecordResult::lock_dropped;
  }
  if (flag) {
    packed_debug_log(message("drop ovf in sync ch=", channel, " record=", index,
                             " chunks_left=", sync_chunks_left));
    return RecordResult::lock_dropped;
  }
  sync_value |= payload << sync_value_bits;
  sync_value_bits += batch.bits;
  --sync_chunks_left;
  if (sync_chunks_left == 0) {
    pending_sync_channel = sync_channel;
    pending_sync_base_ps = lift_packed_sync(batch, channel);
    sync_value = 0;
    sync_value_bits = 0;
  }
  return RecordResult::accepted;
}

// The sync value as a time: near the channel's last one if it has any.
std::uint64_t StreamDecoder::lift_packed_sync(const PackedBatch& batch, std::size_t channel) const {
  const auto [span, period, excess] = batch.counter;
  std::uint64_t value = ((sync_value & packed::sync_value_mask) << packed_shift) % period;
  if (!packed_has_time[channel] && !packed_emitted[channel]) {
    return value;
  }
  const std::int64_t last =
      packed_has_time[channel] ? packed_last_ps[channel] : packed_last_emitted_ps[channel];
  const auto reference = static_cast<std::uint64_t>(std::max<std::int64_t>(last, 0));
  value += reference - reference % period;
  if (value + period / 2 < reference) {
    value += period;
  }
  if (span <= coarse_epoch && reference < value && excess != 0 && excess < value - reference) {
    const std::uint64_t step = value - reference - excess;
    if (accepts_corrected_step(last, step)) {
      value = reference + step;
    }
  }
  return value;
}

// With the internal source all channels tick alike: counts that differ widely
// mean that the alignment only looked right.
bool StreamDecoder::is_imbalanced(const PackedBatch& batch) const {
  if (mode != StreamMode::internal || std::popcount(batch.mask) < 2 || batch.tags.empty()) {
    return false;
  }
  std::uint64_t min = UINT64_MAX;
  std::uint64_t max = 0;
  std::uint64_t total = 0;
  for (std::size_t channel = 0; channel < channel_count; ++channel) {
    if ((static_cast<unsigned>(batch.mask) >> channel & 1U) != 0) {
      min = std::min(min, batch.emitted[channel]);
      max = std::max(max, batch.emitted[channel]);
      total += batch.emitted[channel];
    }
  }
  if (total < min_judged_tags || (min != 0 && max_imbalance * min >= max)) {
    return false;
  }
  packed_debug_log(message("drop internal imbalanced lock min=", min, " max=", max,
                           " total=", total, " records=", batch.records));
  return true;
}

}  // namespace zelk::timing
