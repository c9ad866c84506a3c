// The raw64 path: absolute 8-byte records, found again byte by byte after
// anything that is not a record.
#include <cctype>

#include "timing/detail/byte_order.hpp"
#include "timing/detail/wrapping.hpp"
#include "timing/stream_decoder.hpp"
#include "timing/wire_format.hpp"

namespace zelk::timing {
namespace {

using detail::load_be64;
using detail::wrap_add;
using detail::wrap_mul;
using detail::wrap_sub;

namespace raw64 = wire::raw64;

bool selects_coarse_fine(std::string layout) {
  for (char& c : layout) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return layout == "raw_cf";
}

std::uint8_t channel_of(std::uint64_t word) {
  return static_cast<std::uint8_t>(word >> raw64::channel_shift & raw64::channel_mask);
}

// Takes a wrapping count of period `period` into the channel's state and
// returns the channel's unwrapping offset. Only a fall by more than half a
// period is a wrap; a smaller one is a late tag.
std::int64_t unwrap(StreamDecoder::Raw64Channel& channel, std::int64_t& offset, std::uint64_t raw,
                    std::uint64_t period) {
  if (channel.has_last && raw < channel.last_raw && channel.last_raw - raw > period / 2) {
    offset = wrap_add(offset, static_cast<std::int64_t>(period));
  }
  channel.last_raw = raw;
  channel.has_last = true;
  return offset;
}

// The layout with the time in ps.
struct PicosecondLayout {
  StreamDecoder& decoder;

  static bool matches(std::uint64_t word) {
    return (word & raw64::ps_fixed_mask) == raw64::ps_fixed_value;
  }

  std::int64_t time_ps(std::uint64_t word, std::uint8_t channel) const {
    constexpr auto epoch = static_cast<std::uint64_t>(coarse_epoch_ps);
    const std::uint64_t raw = (word & raw64::ps_timestamp_mask) % epoch;
    const std::int64_t offset =
        unwrap(decoder.raw64[channel], decoder.epoch_offset_ps[channel], raw, epoch);
    return wrap_add(static_cast<std::int64_t>(raw), offset);
  }
};

// The layout with a coarse count and a fine code.
struct CoarseFineLayout {
  StreamDecoder& decoder;

  static bool matches(std::uint64_t word) {
    return (word & raw64::cf_fixed_mask) == raw64::cf_fixed_value;
  }

  std::int64_t time_ps(std::uint64_t word, std::uint8_t channel) const {
    const std::uint64_t coarse = word >> raw64::cf_coarse_shift & raw64::cf_coarse_mask;
    const std::uint64_t fine = word & raw64::cf_fine_mask;
    const std::int64_t periods =
        wrap_add(static_cast<std::int64_t>(coarse),
                 unwrap(decoder.raw64[channel], decoder.epoch_offset_ps[channel], coarse,
                        raw64::cf_coarse_mask + 1));
    const std::int64_t coarse_time = wrap_mul(periods, clock_period_ps);
    return fine < decoder.fine_correction_ps.size()
               ? wrap_sub(coarse_time, decoder.fine_correction_ps[fine])
               : coarse_time;
  }
};

template <typename Layout>
std::vector<TimeTag> decode_records(StreamDecoder& decoder) {
  const Layout layout{decoder};
  const std::vector<std::uint8_t>& bytes = decoder.pending;
  std::vector<TimeTag> tags;
  std::size_t offset = 0;
  while (bytes.size() - offset >= raw64::record_bytes) {
    const std::uint64_t word = load_be64(bytes.data() + offset);
    if (!Layout::matches(word)) {
      ++offset;
      continue;
    }
    const std::uint8_t channel = channel_of(word);
    tags.push_back({channel, layout.time_ps(word, channel)});
    offset += raw64::record_bytes;
  }
  decoder.pending.erase(decoder.pending.begin(),
                        decoder.pending.begin() + static_cast<std::ptrdiff_t>(offset));
  return tags;
}

}  // namespace

std::vector<TimeTag> StreamDecoder::feed_raw64() {
  return selects_coarse_fine(timestamp_layout) ? decode_records<CoarseFineLayout>(*this)
                                               : decode_records<PicosecondLayout>(*this);
}

}  // namespace zelk::timing
