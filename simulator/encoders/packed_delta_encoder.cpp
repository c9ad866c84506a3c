#include "simulator/encoders/packed_delta_encoder.hpp"

#include <bit>

#include "timing/wire_format.hpp"

namespace zelk::simulator {
namespace {

namespace packed = timing::wire::packed_delta;

// A delta at most this far below the counter's span is a step back.
constexpr std::int64_t small_back_ps = 1'000'000;

constexpr std::int64_t counter_span = std::int64_t{1} << packed::sync_value_bits;  // ticks

}  // namespace

PackedReading::PackedReading(int shift)
    : epoch_(timing::coarse_epoch_ps >> shift),
      period_(std::min(counter_span, epoch_)),
      excess_((epoch_ + counter_span - 1) / counter_span * counter_span - epoch_),
      small_step_(timing::small_delta_bound_ps >> shift),
      small_back_(small_back_ps >> shift),
      sync_has_excess_(counter_span <= epoch_) {}

PackedReading::Ticks PackedReading::without_excess(Ticks last, Ticks step) const {
  const Ticks less = step - excess_;
  if (less <= 0) {
    return step;
  }
  return less <= small_step_ || last % epoch_ + less >= epoch_ ? less : step;
}

PackedReading::Ticks PackedReading::after_sync(Ticks last, Ticks time) const {
  Ticks lifted = last - last % period_ + time % period_;
  if (lifted + period_ / 2 < last) {
    lifted += period_;
  }
  return sync_has_excess_ ? last + without_excess(last, lifted - last) : lifted;
}

PackedReading::Ticks PackedReading::after_delta(Ticks last, Ticks delta) const {
  const Ticks short_of_span = counter_span - delta;
  if (short_of_span >= 0 && short_of_span <= small_back_) {
    return last - short_of_span;
  }
  return last + without_excess(last, delta);
}

PackedDeltaEncoder::PackedDeltaEncoder(int payload_bits, int quantum_ps, std::uint32_t start_bits)
    : payload_bits_(payload_bits),
      width_(payload_bits + packed::header_bits),
      shift_(std::countr_zero(static_cast<unsigned>(quantum_ps))),
      max_payload_((Ticks{1} << payload_bits) - 1),
      reading_(shift_),
      writer_(start_bits) {}

// Nearly all tags of a busy stream leave by the short way: a step that fits
// into one record, with no sync due and no end of an epoch between.
void PackedDeltaEncoder::append(const timing::TimeTag& tag, std::vector<std::uint8_t>& bytes) {
  Channel& channel = channels_[tag.channel];
  const Ticks time = (tag.timestamp_ps >> shift_) - channel.origin;
  const Ticks step = time - channel.last;
  if (step <= 0) {
    return;
  }
  if (step <= max_payload_ && time < channel.epoch_end && tag.timestamp_ps < channel.slot_end_ps) {
    put_record(tag.channel, false, static_cast<std::uint64_t>(step), bytes);
    channel.last = time;
    return;
  }
  append_far(tag, time, bytes);
}

// Appends tags that leave by the short way, up to the first that does not and of
// one block at most. Returns their number.
std::size_t PackedDeltaEncoder::append_near(std::span<const timing::TimeTag> tags,
                                            std::vector<std::uint8_t>& bytes) {
  if (!writer_.is_under_way()) {
    return 0;
  }
  constexpr std::size_t max_record_bytes = 5;  // 31 bits of payload and the header
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): written before it is read
  std::array<std::uint8_t, tags_per_block * max_record_bytes + 8> memory;
  BitWriter::Block block(writer_, memory.data());
  std::size_t done = 0;
  for (const timing::TimeTag& tag : tags.first(std::min(tags.size(), tags_per_block))) {
    Channel& channel = channels_[tag.channel];
    const Ticks time = (tag.timestamp_ps >> shift_) - channel.origin;
    const Ticks step = time - channel.last;
    if (step <= 0 || step > max_payload_ || time >= channel.epoch_end ||
        tag.timestamp_ps >= channel.slot_end_ps) {
      break;
    }
    block.put(std::uint64_t{tag.channel} << (payload_bits_ + 1) | static_cast<std::uint64_t>(step),
              width_);
    channel.last = time;
    ++done;
  }
  bytes.insert(bytes.end(), memory.data(), block.finish());
  if (done != 0) {
    last_channel_ = tags[done - 1].channel;
  }
  return done;
}

// Records of an even width cannot complete every byte of a stream that began
// in the middle of one.
void PackedDeltaEncoder::flush(std::vector<std::uint8_t>& bytes) {
  int fillers = 0;
  while (fillers < 8 && (writer_.waiting_bits() + fillers * width_) % 8 != 0) {
    ++fillers;
  }
  for (; fillers % 8 != 0; --fillers) {
    put_record(last_channel_, true, 0, bytes);
  }
}

void PackedDeltaEncoder::append_far(const timing::TimeTag& tag, Ticks time,
                                    std::vector<std::uint8_t>& bytes) {
  Channel& channel = channels_[tag.channel];
  if (!channel.started) {
    channel.started = true;
    channel.origin = time - time % reading_.period();
    put_tag_with_base(tag, time - channel.origin, time - channel.origin, bytes);
    return;
  }

  const std::optional<Ticks> base = base_for(channel.last, time);
  const std::optional<Ticks> delta = delta_for(channel.last, time);
  const bool sync_is_due = tag.timestamp_ps >= channel.slot_end_ps;
  if (delta && (!base || (!sync_is_due && !sync_is_shorter(*delta)))) {
    put_tag_with_overflows(tag, *delta, bytes);
    channel.move_to(time, reading_.epoch());
  } else if (base) {
    put_tag_with_base(tag, *base, time, bytes);
  } else if (const Ticks seen = reading_.after_sync(channel.last, time);
             seen > channel.last && (time - seen) % reading_.period() == 0) {
    channel.origin += time - seen;
    put_tag_with_base(tag, seen, seen, bytes);
  }
}

// The time that a sync right in front of a tag at `time` can say: the tag's
// own, or else the last one that needs no excess or the last one of the period,
// when the tag's payload has room for the rest. None when a host would misread
// them all.
std::optional<PackedDeltaEncoder::Ticks> PackedDeltaEncoder::base_for(Ticks last,
                                                                      Ticks time) const {
  const Ticks period_end = last - last % reading_.period() + reading_.period();
  for (const Ticks base : {time, last + reading_.excess(), period_end - 1}) {
    if (base <= time && time - base <= max_payload_ && reading_.after_sync(last, base) == base) {
      return base;
    }
  }
  return std::nullopt;
}

// The delta of a tag at `time`: with the excess across the end of an epoch, or
// without it where only that is read right. None when a host would misread
// both, and when it would take too many overflow records.
std::optional<PackedDeltaEncoder::Ticks> PackedDeltaEncoder::delta_for(Ticks last,
                                                                       Ticks time) const {
  const bool crosses = last / reading_.epoch() != time / reading_.epoch();
  const Ticks step = time - last;
  for (const Ticks delta : {crosses ? step + reading_.excess() : step, step}) {
    if (reading_.after_delta(last, delta) == time) {
      return overflow_records(delta) <= max_overflow_records ? std::optional(delta) : std::nullopt;
    }
  }
  return std::nullopt;
}

// An overflow record that says 2^B - 1 would be a sync start.
std::int64_t PackedDeltaEncoder::overflow_records(Ticks delta) const {
  const Ticks units = delta >> payload_bits_;
  const Ticks largest = max_payload_ - 1;
  if (largest == 0) {
    return units == 0 ? 0 : max_overflow_records + 1;
  }
  return (units + largest - 1) / largest;
}

bool PackedDeltaEncoder::sync_is_shorter(Ticks delta) const {
  const std::int64_t sync_records = 1 + packed::sync_chunks(payload_bits_);
  return sync_records < overflow_records(delta);
}

void PackedDeltaEncoder::put_tag_with_base(const timing::TimeTag& tag, Ticks base, Ticks time,
                                           std::vector<std::uint8_t>& bytes) {
  const auto ones = static_cast<std::uint64_t>(max_payload_);
  put_record(tag.channel, true, ones, bytes);
  auto value = static_cast<std::uint64_t>(base % reading_.period());
  for (int chunk = packed::sync_chunks(payload_bits_); chunk > 0; --chunk) {
    put_record(tag.channel, false, value & ones, bytes);
    value >>= payload_bits_;
  }
  put_record(tag.channel, false, static_cast<std::uint64_t>(time - base), bytes);

  Channel& channel = channels_[tag.channel];
  channel.move_to(time, reading_.epoch());
  channel.slot_end_ps = (tag.timestamp_ps / sync_interval_ps + 1) * sync_interval_ps;
}

void PackedDeltaEncoder::put_tag_with_overflows(const timing::TimeTag& tag, Ticks delta,
                                                std::vector<std::uint8_t>& bytes) {
  for (Ticks units = delta >> payload_bits_; units != 0;) {
    const Ticks now = std::min(units, max_payload_ - 1);
    put_record(tag.channel, true, static_cast<std::uint64_t>(now), bytes);
    units -= now;
  }
  put_record(tag.channel, false, static_cast<std::uint64_t>(delta & max_payload_), bytes);
}

}  // namespace zelk::simulator
