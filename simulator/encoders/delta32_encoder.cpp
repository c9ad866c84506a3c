#include "simulator/encoders/delta32_encoder.hpp"

#include <algorithm>

#include "timing/wire_format.hpp"

namespace zelk::simulator {
namespace {

namespace delta32 = timing::wire::delta32;

// The unit of an overflow word, and the shortest time that is too long for the
// payload of a tag word.
constexpr std::int64_t payload_span_ps = std::int64_t{1} << delta32::payload_bits;

void append_control(std::uint32_t subtype, std::uint64_t payload,
                    std::vector<std::uint8_t>& bytes) {
  append_big_endian(delta32::control_bit | subtype << delta32::channel_shift |
                        delta32::control_kind << delta32::kind_shift |
                        static_cast<std::uint32_t>(payload),
                    bytes);
}

std::uint32_t tag_word(std::uint8_t channel, std::uint64_t payload) {
  return std::uint32_t{channel} << delta32::channel_shift |
         delta32::tag_kind << delta32::kind_shift | static_cast<std::uint32_t>(payload);
}

void append_tag(std::uint8_t channel, std::uint64_t payload, std::vector<std::uint8_t>& bytes) {
  append_big_endian(tag_word(channel, payload), bytes);
}

void append_delta(std::uint8_t channel, std::uint64_t delta_ps, std::vector<std::uint8_t>& bytes) {
  for (std::uint64_t units = delta_ps >> delta32::payload_bits; units != 0;) {
    const auto now = std::min<std::uint64_t>(units, delta32::short_payload_mask);
    append_control(delta32::overflow_subtype, now, bytes);
    units -= now;
  }
  append_tag(channel, delta_ps & delta32::payload_mask, bytes);
}

// No overflow word may stand between base and tag, so the two are less than
// payload_span_ps apart.
void append_with_base(const timing::TimeTag& tag, std::int64_t base_ps,
                      std::vector<std::uint8_t>& bytes) {
  const std::uint64_t base = static_cast<std::uint64_t>(base_ps) & delta32::base_mask;
  append_control(delta32::sync_subtype, delta32::sync_payload, bytes);
  append_control(delta32::base_low_subtype, base & delta32::payload_mask, bytes);
  append_control(delta32::base_high_subtype, base >> delta32::payload_bits, bytes);
  append_tag(tag.channel, static_cast<std::uint64_t>(tag.timestamp_ps - base_ps), bytes);
}

std::int64_t epoch_end_ps(std::int64_t time_ps) {
  return (time_ps / timing::coarse_epoch_ps + 1) * timing::coarse_epoch_ps;
}

bool crosses_epoch(std::int64_t from_ps, std::int64_t to_ps) {
  return from_ps / timing::coarse_epoch_ps != to_ps / timing::coarse_epoch_ps;
}

}  // namespace

bool Delta32Encoder::Channel::is_near(const timing::TimeTag& tag) const {
  return tag.timestamp_ps < near_end_ps && tag.timestamp_ps - origin_ps - last_ps < payload_span_ps;
}

// Epochs count from the channel's origin and from the unit's own.
void Delta32Encoder::Channel::find_near_end() {
  near_end_ps = std::min({(base_slot + 1) * base_interval_ps, origin_ps + epoch_end_ps(last_ps),
                          epoch_end_ps(origin_ps + last_ps)});
}

// Appends tags up to the first that is not near, of one block at most. Returns
// their number.
std::size_t Delta32Encoder::append_near(std::span<const timing::TimeTag> tags,
                                        std::vector<std::uint8_t>& bytes) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): written before it is read
  std::array<std::uint8_t, tags_per_block * delta32::word_bytes> block;
  std::uint8_t* end = block.data();
  std::size_t done = 0;
  for (const timing::TimeTag& tag : tags.first(std::min(tags.size(), tags_per_block))) {
    Channel& channel = channels_[tag.channel];
    if (!channel.is_near(tag)) {
      break;
    }
    const std::int64_t time_ps = tag.timestamp_ps - channel.origin_ps;
    put_big_endian(tag_word(tag.channel, static_cast<std::uint64_t>(time_ps - channel.last_ps)),
                   end);
    channel.last_ps = time_ps;
    end += delta32::word_bytes;
    ++done;
  }
  bytes.insert(bytes.end(), block.data(), end);
  return done;
}

void Delta32Encoder::append(const timing::TimeTag& tag, std::vector<std::uint8_t>& bytes) {
  Channel& channel = channels_[tag.channel];
  if (!channel.started) {
    channel.started = true;
    channel.origin_ps = tag.timestamp_ps / timing::counter_span_ps * timing::counter_span_ps;
    channel.last_ps = tag.timestamp_ps - channel.origin_ps;
    channel.base_slot = tag.timestamp_ps / base_interval_ps;
    channel.find_near_end();
    append_with_base(tag, tag.timestamp_ps, bytes);
    return;
  }

  const std::int64_t time_ps = tag.timestamp_ps - channel.origin_ps;
  const std::int64_t step_ps = time_ps - channel.last_ps;
  const std::int64_t beyond_excess_ps = step_ps - timing::wrap_excess_ps;
  const std::int64_t slot = tag.timestamp_ps / base_interval_ps;
  const bool crosses = crosses_epoch(channel.last_ps, time_ps) ||
                       (step_ps <= timing::small_delta_bound_ps &&
                        crosses_epoch(tag.timestamp_ps - step_ps, tag.timestamp_ps));

  if (slot == channel.base_slot || beyond_excess_ps >= payload_span_ps) {
    // No words say such a step: the tag is left out.
    if (!crosses && beyond_excess_ps > 0 && beyond_excess_ps <= timing::small_delta_bound_ps) {
      return;
    }
    append_delta(tag.channel,
                 static_cast<std::uint64_t>(crosses ? step_ps + timing::wrap_excess_ps : step_ps),
                 bytes);
  } else {
    append_with_base(tag, tag.timestamp_ps - std::max<std::int64_t>(beyond_excess_ps, 0), bytes);
    channel.base_slot = slot;
  }
  channel.last_ps = time_ps;
  if (tag.timestamp_ps >= channel.near_end_ps) {
    channel.find_near_end();
  }
}

}  // namespace zelk::simulator
