// The packed_delta path: records without markers, decoded one by one from a
// known bit alignment. The first record that cannot belong to a correctly
// aligned stream costs the lock, and the next call searches again.
//
// Each rule returns false, with the reason in the batch, when the record costs
// the lock.
#include <algorithm>
#include <array>
#include <bit>
#include <span>
#include <string>
#include <string_view>

#include "timing/detail/bit_reader.hpp"
#include "timing/detail/call_bytes.hpp"
#include "timing/detail/epoch_excess.hpp"
#include "timing/detail/tag_writer.hpp"
#include "timing/detail/wrapping.hpp"
#include "timing/packed_batch.hpp"
#include "timing/packed_plain_records.hpp"
#include "timing/stream_decoder.hpp"
#include "timing/wire_format.hpp"

namespace zelk::timing {
namespace {

using detail::accepts_corrected_step;
using detail::BitReader;
using detail::CallBytes;
using detail::correct_epoch_excess;
using detail::max_internal_step_ps;
using detail::PackedBatch;
using detail::PackedCounter;
using detail::TagWriter;
using detail::take_plain_records;
using detail::wrap_add;
using detail::wrap_sub;

namespace packed = wire::packed_delta;

using Bytes = std::span<const std::uint8_t>;

// How far a channel may step back without proving the alignment wrong.
constexpr std::uint64_t max_backstep_ps = 1'000'000;

// At least this many tags in one call tell whether the channels are balanced.
constexpr std::uint64_t min_judged_tags = 4096;
constexpr std::uint64_t max_imbalance = 8;

// The fields of one record. `index` is its place in the call.
struct Record {
  Record(std::uint64_t record, int payload_bits, std::uint64_t place)
      : channel(static_cast<std::size_t>(record >> (payload_bits + 1))),
        flag((record >> payload_bits & 1) != 0),
        payload(record & ((std::uint64_t{1} << payload_bits) - 1)),
        index(place) {}

  std::size_t channel;
  bool flag;
  std::uint64_t payload;
  std::uint64_t index;
};

// Gives the channel the absolute time `next`, which its sync announced. The
// external mode lets a channel step back by up to 1 us; the internal source
// never does.
bool take_absolute_time(PackedBatch& batch, PackedLock& lock, const Record& record,
                        std::int64_t next) {
  const std::size_t channel = record.channel;
  if (lock.packed_has_time[channel]) {
    const std::int64_t previous = lock.packed_last_ps[channel];
    const std::int64_t step = wrap_sub(next, previous);
    const auto size = static_cast<std::uint64_t>(previous < next ? step : wrap_sub(0, step));
    if (previous > next && size > max_backstep_ps) {
      return batch.refuse("drop nonmonotonic sync ch=", channel, " next=", next, " prev=", previous,
                          " record=", record.index);
    }
    if (previous == next || (batch.internal && (previous > next || size > max_internal_step_ps))) {
      return batch.refuse("drop implausible sync delta ch=", channel, " delta=", step,
                          " next=", next, " prev=", previous, " record=", record.index);
    }
    if (previous < next) {
      lock.packed_last_delta[channel] = size;
    }
  }
  lock.packed_last_ps[channel] = next;
  lock.packed_has_time[channel] = true;
  lock.pending_sync_channel = -1;
  lock.pending_sync_base_ps = 0;
  return true;
}

// Advances the channel by `delta` ps. A delta just short of the counter's span
// is a small step back; one that contains the wrap excess is freed of it.
bool take_delta(PackedBatch& batch, PackedLock& lock, const Record& record, std::uint64_t delta) {
  const std::int64_t previous = lock.packed_last_ps[record.channel];
  const std::uint64_t span = batch.counter.span;
  if (span / 2 < delta && delta <= span && span - delta <= max_backstep_ps) {
    delta -= span;
  } else {
    const std::uint64_t raw = delta;
    delta = correct_epoch_excess(delta, batch.counter.excess, previous);
    const bool surely_corrected =
        delta != raw && delta <= static_cast<std::uint64_t>(small_delta_bound_ps);
    if (!surely_corrected && batch.internal && delta > max_internal_step_ps) {
      return batch.refuse("drop implausible delta ch=", record.channel, " delta=", delta,
                          " prev=", previous, " record=", record.index);
    }
  }
  lock.packed_last_delta[record.channel] = delta;
  lock.packed_last_ps[record.channel] = wrap_add(previous, static_cast<std::int64_t>(delta));
  return true;
}

bool take_tag(PackedBatch& batch, PackedLock& lock, const Record& record) {
  const std::size_t channel = record.channel;
  const std::uint64_t ticks = (lock.packed_overflow[channel] << batch.bits) + record.payload;
  const std::uint64_t delta = ticks << batch.counter.shift;
  lock.packed_overflow[channel] = 0;
  if (static_cast<std::int32_t>(channel) == lock.pending_sync_channel) {
    const auto next = static_cast<std::int64_t>(delta + lock.pending_sync_base_ps);
    if (!take_absolute_time(batch, lock, record, next)) {
      return false;
    }
  } else if (!lock.packed_has_time[channel]) {
    return true;  // no sync yet, so no time
  } else if (!take_delta(batch, lock, record, delta)) {
    return false;
  }
  ++batch.emitted[channel];
  lock.packed_last_emitted_ps[channel] = lock.packed_last_ps[channel];
  lock.packed_emitted[channel] = true;
  batch.tags.push({static_cast<std::uint8_t>(channel), lock.packed_last_ps[channel]});
  return true;
}

void start_sync(const PackedBatch& batch, PackedLock& lock, const Record& record) {
  lock.sync_channel = static_cast<std::int32_t>(record.channel);
  lock.sync_value = 0;
  lock.sync_value_bits = 0;
  lock.sync_chunks_left = packed::sync_chunks(batch.bits);
  lock.packed_overflow[record.channel] = 0;
}

// The assembled sync value as a time: near the channel's last one if it has any.
std::uint64_t lift_sync_value(const PackedBatch& batch, const PackedLock& lock,
                              std::size_t channel) {
  const auto [shift, span, period, excess] = batch.counter;
  std::uint64_t value = ((lock.sync_value & packed::sync_value_mask) << shift) % period;
  if (!lock.packed_has_time[channel] && !lock.packed_emitted[channel]) {
    return value;
  }
  const std::int64_t last = lock.packed_has_time[channel] ? lock.packed_last_ps[channel]
                                                          : lock.packed_last_emitted_ps[channel];
  const auto reference = static_cast<std::uint64_t>(std::max<std::int64_t>(last, 0));
  value += reference - reference % period;
  if (value + period / 2 < reference) {
    value += period;
  }
  if (span <= PackedCounter::epoch && reference < value && excess != 0 &&
      excess < value - reference) {
    const std::uint64_t step = value - reference - excess;
    if (accepts_corrected_step(last, step)) {
      value = reference + step;
    }
  }
  return value;
}

bool take_sync_chunk(PackedBatch& batch, PackedLock& lock, const Record& record) {
  if (static_cast<std::int32_t>(record.channel) != lock.sync_channel) {
    return batch.refuse("drop sync channel mismatch ch=", record.channel,
                        " expected=", lock.sync_channel, " record=", record.index,
                        " chunks_left=", lock.sync_chunks_left);
  }
  if (record.flag) {
    return batch.refuse("drop ovf in sync ch=", record.channel, " record=", record.index,
                        " chunks_left=", lock.sync_chunks_left);
  }
  lock.sync_value |= record.payload << lock.sync_value_bits;
  lock.sync_value_bits += batch.bits;
  --lock.sync_chunks_left;
  if (lock.sync_chunks_left == 0) {
    lock.pending_sync_channel = lock.sync_channel;
    lock.pending_sync_base_ps = lift_sync_value(batch, lock, record.channel);
    lock.sync_value = 0;
    lock.sync_value_bits = 0;
  }
  return true;
}

bool take_record(PackedBatch& batch, PackedLock& lock, const Record& record) {
  if ((static_cast<unsigned>(batch.mask) >> record.channel & 1U) == 0) {
    constexpr std::string_view hex_digits = "0123456789abcdef";
    return batch.refuse("drop inactive ch=", record.channel, " active_mask=0x",
                        hex_digits.substr(batch.mask, 1), " record=", record.index,
                        " records=", batch.records);
  }
  if (lock.sync_chunks_left >= 1) {
    return take_sync_chunk(batch, lock, record);
  }
  if (!record.flag) {
    return take_tag(batch, lock, record);
  }
  if (record.payload == (std::uint64_t{1} << batch.bits) - 1) {
    start_sync(batch, lock, record);
  } else {
    lock.packed_overflow[record.channel] += record.payload;
  }
  return true;
}

// Decodes the records that lie whole in `bytes`, from `bit` on, which moves
// behind the last one.
bool take_records(PackedBatch& batch, PackedLock& lock, Bytes bytes, std::uint64_t& bit) {
  const BitReader reader(bytes);
  const int width = batch.bits + packed::header_bits;
  bool accepted = true;
  while (accepted && bit + static_cast<unsigned>(width) <= reader.size_bits()) {
    const std::uint64_t plain_end = take_plain_records(batch, lock, bytes, bit);
    if (plain_end != bit) {
      bit = plain_end;
      continue;
    }
    accepted = take_record(batch, lock, Record(reader.read(bit, width), batch.bits, batch.taken));
    bit += static_cast<unsigned>(width);
    ++batch.taken;
  }
  return accepted;
}

// With the internal source all channels tick alike: counts that differ widely
// mean that the alignment only looked right, and the tags are worth nothing.
bool judge_balance(PackedBatch& batch) {
  if (!batch.internal || std::popcount(batch.mask) < 2 || batch.tags.size() == 0) {
    return true;
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
    return true;
  }
  return batch.refuse("drop internal imbalanced lock min=", min, " max=", max, " total=", total,
                      " records=", batch.records);
}

}  // namespace

void StreamDecoder::feed_packed_delta(FreshBytes fresh, std::vector<TimeTag>& list) {
  TagWriter tags(list);
  const bool is_known =
      packed_bits >= packed::min_payload_bits && packed_bits <= packed::max_payload_bits;
  if (!is_known || !packed_locked) {
    pending.insert(pending.end(), fresh.begin(), fresh.end());
    fresh = {};
  }
  if (!is_known || (!packed_locked && !lock_packed_alignment())) {
    return;
  }
  const auto width = static_cast<unsigned>(packed_bits + packed::header_bits);
  CallBytes bytes(pending, fresh, bit_offset < 8 && 8 * pending.size() < bit_offset + width);
  const std::uint64_t size_bits = 8 * std::uint64_t{bytes.size()};
  PackedLock& kept = *this;
  PackedLock lock = kept;
  PackedBatch batch{.bits = packed_bits,
                    .mask = active_channel_mask(),
                    .internal = mode == StreamMode::internal,
                    .counter = PackedCounter(packed_shift),
                    .records = (size_bits - std::min(size_bits, bit_offset)) / width,
                    .tags = tags};
  if (batch.records == 0) {
    return;
  }
  std::uint64_t bit = bit_offset;
  bool is_kept = take_records(batch, lock, bytes.seam(), bit);
  bit -= 8 * bytes.overlap();
  is_kept = is_kept && take_records(batch, lock, bytes.body(), bit);
  const bool is_balanced = !is_kept || judge_balance(batch);

  // Nothing throws any more once the line is written.
  bytes.reserve_from(bit / 8);
  if (!is_kept || !is_balanced) {
    packed_debug_log(batch.refusal);
    lock = {};
  } else {
    lock.bit_offset = bit % 8;
  }
  bytes.keep_from(bit / 8);
  packed_search_.forget();
  kept = lock;
  if (is_balanced) {
    tags.commit();
  }
}

}  // namespace zelk::timing
