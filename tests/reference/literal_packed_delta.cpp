#include "tests/reference/literal_packed_delta.hpp"

#include <algorithm>
#include <cstdlib>
#include <ios>

namespace zelk::reference {

using timing::StreamMode;
using timing::TimeTag;

namespace {

constexpr std::uint64_t epoch_ps = std::uint64_t{3333} << 32;
constexpr std::uint64_t small_delta_ps = 10'000'000'000;
constexpr std::uint64_t plausible_delta_ps = 1'000'000'000'000;
constexpr std::uint64_t small_backstep_ps = 1'000'000;

std::uint64_t as_unsigned(std::int64_t value) {
  return static_cast<std::uint64_t>(value);
}

std::int64_t as_signed(std::uint64_t value) {
  return static_cast<std::int64_t>(value);
}

std::uint64_t not_negative(std::int64_t value) {
  return value < 0 ? 0 : as_unsigned(value);
}

// The step behind `delta`, which may contain the excess g of a wrapped counter.
std::uint64_t without_excess(std::uint64_t delta, std::uint64_t g, std::uint64_t previous) {
  if (g != 0 && g < delta) {
    const std::uint64_t d2 = delta - g;
    if (d2 <= small_delta_ps) {
      return d2;
    }
    // The sum wraps for deltas next to 2^64; such a delta keeps its value.
    if (previous % epoch_ps + d2 >= epoch_ps) {
      return d2;
    }
  }
  return delta;
}

}  // namespace

LiteralPackedDecoder::LiteralPackedDecoder(const timing::StreamFileHeader& header)
    : mode(header.mode),
      channel_mask(header.channel_mask),
      packed_bits(header.packed_bits),
      packed_quantum_ps(header.packed_quantum_ps) {
  if (packed_bits == 0) {
    packed_bits = 16;
  }
  if (packed_quantum_ps == 0) {
    packed_quantum_ps = 8;
  }
  while ((packed_quantum_ps >> packed_shift & 1) == 0) {
    ++packed_shift;
  }
}

std::vector<TimeTag> LiteralPackedDecoder::feed(const std::uint8_t* data, std::size_t size) {
  if (data != nullptr && size != 0) {
    pending.insert(pending.end(), data, data + size);
  }
  return feed_packed_delta();
}

// A mask with bits but none of the four lowest leaves no channel active: only
// the value 0 as a whole stands for all channels.
int LiteralPackedDecoder::active_mask() const {
  return channel_mask == 0 ? 0xF : channel_mask & 0xF;
}

bool LiteralPackedDecoder::is_active(int channel) const {
  return (active_mask() >> channel & 1) != 0;
}

int LiteralPackedDecoder::active_count() const {
  int count = 0;
  for (int channel = 0; channel < 4; ++channel) {
    count += is_active(channel) ? 1 : 0;
  }
  return count;
}

bool LiteralPackedDecoder::is_internal() const {
  return mode == StreamMode::internal;
}

int LiteralPackedDecoder::bit_at(std::uint64_t index) const {
  return pending[index / 8] >> (7 - index % 8) & 1;
}

std::uint64_t LiteralPackedDecoder::bits_at(std::uint64_t index, int count) const {
  std::uint64_t value = 0;
  for (int i = 0; i < count; ++i) {
    value = value * 2 + static_cast<std::uint64_t>(bit_at(index + static_cast<std::uint64_t>(i)));
  }
  return value;
}

LiteralPackedDecoder::Record LiteralPackedDecoder::record_at(std::uint64_t index, int bits) const {
  return {.channel = static_cast<int>(bits_at(index, 2)),
          .flag = bit_at(index + 2),
          .payload = bits_at(index + 3, bits)};
}

std::uint64_t LiteralPackedDecoder::span_ps() const {
  return std::uint64_t{1} << (41 + std::clamp(packed_shift, 0, 22));
}

std::uint64_t LiteralPackedDecoder::period_ps() const {
  return std::min(span_ps(), epoch_ps);
}

std::uint64_t LiteralPackedDecoder::excess_ps() const {
  std::uint64_t multiple = span_ps();
  while (multiple < epoch_ps) {
    multiple += span_ps();
  }
  return multiple - epoch_ps;
}

// A quantum of 16 bits gives shifts of 0 to 15; the clamp only keeps a shift
// that was set by hand defined.
std::uint64_t LiteralPackedDecoder::shifted(std::uint64_t ticks) const {
  return ticks << std::clamp(packed_shift, 0, 63);
}

void LiteralPackedDecoder::packed_debug_log(const std::string& message) const {
  if (std::getenv("ZELK_PACKED_DEBUG") != nullptr && debug_lines < 200) {
    ++debug_lines;
    written_lines.push_back("packed-decoder: " + message);
  }
}

void LiteralPackedDecoder::consume_packed_records(std::size_t n) {
  bit_offset += (std::uint64_t{packed_bits} + 3) * n;
  const std::size_t used = std::min<std::size_t>(bit_offset / 8, pending.size());
  pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(used));
  bit_offset %= 8;
}

void LiteralPackedDecoder::drop_packed_lock() {
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
}

bool LiteralPackedDecoder::find_lock() {
  const int bits = packed_bits;
  const PackedAlignment alignment = probe_packed_alignment(bits, bits + 3);
  if (alignment.found) {
    pending.erase(pending.begin(),
                  pending.begin() + static_cast<std::ptrdiff_t>(alignment.drop_bytes));
    packed_locked = true;
    bit_offset = alignment.bit_offset;
    log("locked bits=", bits, " drop_bytes=", alignment.drop_bytes, " bit_offset=", bit_offset,
        " raw_bytes=", pending.size());
    return true;
  }
  if (pending.size() > 4095) {
    log("no alignment bits=", bits, " width=", bits + 3, " raw_bytes=", pending.size());
  }
  if (pending.size() > 65536) {
    pending.erase(pending.begin(), pending.end() - 4096);
    bit_offset = 0;
  }
  return false;
}

std::vector<TimeTag> LiteralPackedDecoder::feed_packed_delta() {
  if (packed_bits < 1 || packed_bits > 31) {
    return {};
  }
  if (!packed_locked && !find_lock()) {
    return {};
  }
  const std::uint64_t width = std::uint64_t{packed_bits} + 3;
  const std::uint64_t pending_bits = 8 * std::uint64_t{pending.size()};
  if (pending_bits < bit_offset + width) {
    return {};
  }
  Call call;
  call.records = (pending_bits - bit_offset) / width;
  for (std::size_t r = 0; r < call.records; ++r) {
    if (!take_record(record_at(bit_offset + width * r, packed_bits), r, call)) {
      consume_packed_records(r + 1);
      drop_packed_lock();
      return call.tags;
    }
  }
  consume_packed_records(call.records);
  if (is_imbalanced(call)) {
    drop_packed_lock();
    return {};
  }
  return call.tags;
}

bool LiteralPackedDecoder::take_record(const Record& record, std::size_t r, Call& call) {
  const int ch = record.channel;
  if (!is_active(ch)) {
    log("drop inactive ch=", ch, " active_mask=0x", std::hex, active_mask(), std::dec,
        " record=", r, " records=", call.records);
    return false;
  }
  if (sync_chunks_left >= 1) {
    return take_chunk(record, r);
  }
  if (record.flag == 0) {
    return take_tag(record, r, call);
  }
  if (record.payload == all_ones(packed_bits)) {
    sync_channel = ch;
    sync_value = 0;
    sync_value_bits = 0;
    sync_chunks_left = (packed_bits + 40) / packed_bits;
    packed_overflow[index_of(ch)] = 0;
  } else {
    packed_overflow[index_of(ch)] += record.payload;
  }
  return true;
}

bool LiteralPackedDecoder::take_tag(const Record& record, std::size_t r, Call& call) {
  const auto ch = index_of(record.channel);
  const std::uint64_t delta = shifted((packed_overflow[ch] << packed_bits) + record.payload);
  packed_overflow[ch] = 0;
  if (record.channel == pending_sync_channel) {
    if (!take_sync_tag(record.channel, delta, r)) {
      return false;
    }
  } else if (!packed_has_time[ch]) {
    return true;
  } else if (!take_delta_tag(record.channel, delta, r)) {
    return false;
  }
  ++call.counts[ch];
  packed_last_emitted_ps[ch] = packed_last_ps[ch];
  packed_emitted[ch] = true;
  call.tags.push_back(
      {.channel = static_cast<std::uint8_t>(ch), .timestamp_ps = packed_last_ps[ch]});
  return true;
}

// Which of two times is the later one is a question of signed times. Their
// distance is then never negative and can need all 64 bits, so it is compared
// as an unsigned value; only the printed difference has a sign.
bool LiteralPackedDecoder::take_sync_tag(int channel, std::uint64_t delta, std::size_t r) {
  const auto ch = index_of(channel);
  const std::int64_t next = as_signed(delta + pending_sync_base_ps);
  if (packed_has_time[ch]) {
    const std::int64_t prev = packed_last_ps[ch];
    const std::uint64_t forward = as_unsigned(next) - as_unsigned(prev);
    const std::uint64_t backward = as_unsigned(prev) - as_unsigned(next);
    if (prev > next && backward > small_backstep_ps) {
      log("drop nonmonotonic sync ch=", channel, " next=", next, " prev=", prev, " record=", r);
      return false;
    }
    const bool implausible = prev == next ||
                             (prev < next && is_internal() && forward > plausible_delta_ps) ||
                             (prev > next && is_internal());
    if (implausible) {
      log("drop implausible sync delta ch=", channel, " delta=", as_signed(forward), " next=", next,
          " prev=", prev, " record=", r);
      return false;
    }
    if (prev < next) {
      packed_last_delta[ch] = forward;
    }
  }
  packed_last_ps[ch] = next;
  packed_has_time[ch] = true;
  pending_sync_channel = -1;
  pending_sync_base_ps = 0;
  return true;
}

// A small step back is no implausible step, in either mode; it is kept in
// `packed_last_delta` modulo 2^64. The delta that an implausible step prints is
// the one that was judged, after its excess was removed.
bool LiteralPackedDecoder::take_delta_tag(int channel, std::uint64_t delta, std::size_t r) {
  const auto ch = index_of(channel);
  const std::int64_t prev = packed_last_ps[ch];
  const std::uint64_t span = span_ps();
  std::uint64_t step = 0;
  if (span / 2 < delta && delta <= span && span - delta <= small_backstep_ps) {
    step = 0 - (span - delta);
  } else {
    step = without_excess(delta, excess_ps(), not_negative(prev));
    if (step > small_delta_ps && is_internal() && step > plausible_delta_ps) {
      log("drop implausible delta ch=", channel, " delta=", step, " prev=", prev, " record=", r);
      return false;
    }
  }
  packed_last_delta[ch] = step;
  packed_last_ps[ch] = as_signed(as_unsigned(prev) + step);
  return true;
}

bool LiteralPackedDecoder::take_chunk(const Record& record, std::size_t r) {
  if (record.channel != sync_channel) {
    log("drop sync channel mismatch ch=", record.channel, " expected=", sync_channel, " record=", r,
        " chunks_left=", sync_chunks_left);
    return false;
  }
  if (record.flag == 1) {
    log("drop ovf in sync ch=", record.channel, " record=", r, " chunks_left=", sync_chunks_left);
    return false;
  }
  sync_value |= record.payload << sync_value_bits;
  sync_value_bits += packed_bits;
  --sync_chunks_left;
  if (sync_chunks_left == 0) {
    finish_sync();
  }
  return true;
}

void LiteralPackedDecoder::finish_sync() {
  const auto ch = index_of(sync_channel);
  const std::uint64_t period = period_ps();
  std::uint64_t v = shifted(sync_value & all_ones(41)) % period;
  if (packed_has_time[ch] || packed_emitted[ch]) {
    const std::uint64_t ref =
        not_negative(packed_has_time[ch] ? packed_last_ps[ch] : packed_last_emitted_ps[ch]);
    v += ref - ref % period;
    if (v + period / 2 < ref) {
      v += period;
    }
    if (span_ps() <= epoch_ps && ref < v) {
      v = ref + without_excess(v - ref, excess_ps(), ref);
    }
  }
  pending_sync_channel = sync_channel;
  pending_sync_base_ps = v;
  sync_value = 0;
  sync_value_bits = 0;
}

bool LiteralPackedDecoder::is_imbalanced(const Call& call) const {
  if (!is_internal() || active_count() <= 1 || call.tags.empty()) {
    return false;
  }
  std::uint64_t min = UINT64_MAX;
  std::uint64_t max = 0;
  std::uint64_t total = 0;
  for (int channel = 0; channel < 4; ++channel) {
    if (is_active(channel)) {
      const std::uint64_t count = call.counts[index_of(channel)];
      min = std::min(min, count);
      max = std::max(max, count);
      total += count;
    }
  }
  if (total <= 4095 || (min != 0 && 8 * min >= max)) {
    return false;
  }
  log("drop internal imbalanced lock min=", min, " max=", max, " total=", total,
      " records=", call.records);
  return true;
}

}  // namespace zelk::reference
