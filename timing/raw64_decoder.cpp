// The raw64 path: absolute 8-byte records, found again byte by byte after
// anything that is not a record.
#include <algorithm>
#include <cctype>
#include <span>

#include "timing/detail/byte_order.hpp"
#include "timing/detail/call_bytes.hpp"
#include "timing/detail/tag_writer.hpp"
#include "timing/detail/wrapping.hpp"
#include "timing/stream_decoder.hpp"
#include "timing/wire_format.hpp"

namespace zelk::timing {
namespace {

using detail::CallBytes;
using detail::load_be64;
using detail::TagWriter;
using detail::wrap_add;
using detail::wrap_mul;
using detail::wrap_sub;

namespace raw64 = wire::raw64;

using Bytes = std::span<const std::uint8_t>;
using FineCorrections = std::span<const std::int64_t>;

std::uint8_t channel_of(std::uint64_t word) {
  return static_cast<std::uint8_t>(word >> raw64::channel_shift & raw64::channel_mask);
}

// A record of the layout with the time in ps, which is its count.
struct PicosecondRecord {
  static constexpr auto period = static_cast<std::uint64_t>(coarse_epoch_ps);
  static constexpr auto half_period = static_cast<std::uint64_t>(half_epoch_ps);

  static bool matches(std::uint64_t word) {
    return (word & raw64::ps_fixed_mask) == raw64::ps_fixed_value;
  }
  explicit PicosecondRecord(std::uint64_t word)
      : channel(channel_of(word)), count(word & raw64::ps_timestamp_mask) {
    static_assert(raw64::ps_timestamp_mask < 2 * period, "one subtraction is a modulo");
    count -= count < period ? 0 : period;
  }

  [[nodiscard]] std::int64_t time_ps(std::int64_t unwrapped, FineCorrections) const {
    return unwrapped;
  }

  std::uint8_t channel;
  std::uint64_t count;
};

// A record of the layout with a count of clock periods and a fine code.
struct CoarseFineRecord {
  static constexpr std::uint64_t period = raw64::cf_coarse_mask + 1;
  static constexpr std::uint64_t half_period = period / 2;

  static bool matches(std::uint64_t word) {
    return (word & raw64::cf_fixed_mask) == raw64::cf_fixed_value;
  }
  explicit CoarseFineRecord(std::uint64_t word)
      : channel(channel_of(word)),
        count(word >> raw64::cf_coarse_shift & raw64::cf_coarse_mask),
        fine(word & raw64::cf_fine_mask) {}

  [[nodiscard]] std::int64_t time_ps(std::int64_t unwrapped, FineCorrections corrections) const {
    const std::int64_t coarse_time = wrap_mul(unwrapped, clock_period_ps);
    return fine < corrections.size() ? wrap_sub(coarse_time, corrections[fine]) : coarse_time;
  }

  std::uint8_t channel;
  std::uint64_t count;
  std::uint64_t fine;
};

bool selects_coarse_fine(std::string layout) {
  for (char& c : layout) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return layout == "raw_cf";
}

// The record's count with the channel's wraps. Only a fall by more than half a
// period is a wrap; a smaller one is a late tag.
template <typename Record>
std::int64_t unwrap(Raw64State& state, const Record& record) {
  Raw64State::Raw64Channel& channel = state.raw64[record.channel];
  std::int64_t& offset = state.epoch_offset_ps[record.channel];
  if (record.count + Record::half_period < channel.last_raw && channel.has_last) {
    offset = wrap_add(offset, static_cast<std::int64_t>(Record::period));
  }
  channel.last_raw = record.count;
  channel.has_last = true;
  return wrap_add(static_cast<std::int64_t>(record.count), offset);
}

// Decodes from `next` on and returns where less than a record is left.
//
// The inner loop ends at the first word that is no record, and has no other
// test per record than that: room for the tags is made beforehand. Together with
// reading the caller's bytes in place this takes half the time of a push_back
// per record.
template <typename Record>
std::size_t decode_records(Bytes bytes, std::size_t next, Raw64State& state,
                           FineCorrections corrections, TagWriter& tags) {
  while (bytes.size() - next >= raw64::record_bytes) {
    if (!Record::matches(load_be64(&bytes[next]))) {
      ++next;
      continue;
    }
    tags.make_room();
    TimeTag* tag = tags.next();
    std::size_t left = std::min(tags.room(), (bytes.size() - next) / raw64::record_bytes);
    const std::uint8_t* position = &bytes[next];
    for (; left != 0; --left) {
      const std::uint64_t word = load_be64(position);
      if (!Record::matches(word)) {
        break;
      }
      const Record record(word);
      *tag++ = {record.channel, record.time_ps(unwrap(state, record), corrections)};
      position += raw64::record_bytes;
    }
    next = static_cast<std::size_t>(position - bytes.data());
    tags.written_to(tag);
  }
  return next;
}

template <typename Record>
void decode_call(CallBytes& bytes, Raw64State& kept, FineCorrections corrections, TagWriter& tags) {
  Raw64State state = kept;
  std::size_t next = decode_records<Record>(bytes.seam(), 0, state, corrections, tags);
  next = decode_records<Record>(bytes.body(), next - bytes.overlap(), state, corrections, tags);
  bytes.keep_from(next);
  kept = state;
  tags.commit();
}

}  // namespace

void StreamDecoder::feed_raw64(FreshBytes fresh, std::vector<TimeTag>& list) {
  TagWriter tags(list);
  CallBytes bytes(pending, fresh, pending.size() < raw64::record_bytes);
  if (selects_coarse_fine(timestamp_layout)) {
    decode_call<CoarseFineRecord>(bytes, *this, fine_correction_ps, tags);
  } else {
    decode_call<PicosecondRecord>(bytes, *this, fine_correction_ps, tags);
  }
}

}  // namespace zelk::timing
