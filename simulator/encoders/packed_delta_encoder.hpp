// The packed_delta format: records of B + 3 bits without padding, most
// significant bit first. Bits that do not fill a byte wait for the next record.
//
// Times are rounded down to ticks of the quantum: the tick at or before the
// event. A tag that does not advance its channel's tick is left out, because a
// host takes a step of zero for a sign of broken data. An epoch is a whole
// number of ticks for every quantum, and so is everything else here.
//
// A delta counts the ticks since the channel's previous tag. It comes from a
// 41-bit counter of ticks that follows the unit's wrapping timestamps: across
// the end of a coarse epoch it shows the excess g more than has passed, and the
// host takes that off again. Round an epoch up to whole spans of the counter: g
// is what that adds. A sync carries the time itself, modulo the period. The period
// is the shorter of span and epoch: the span with quanta of 1, 2 and 4 ps, as from
// a free-running counter, and the epoch with larger ones.
//
// Every channel gets a sync right before its first tag and before its first
// tag in each 10 ms of stream time, and also where a sync takes fewer records
// than the overflows of a delta. What could be sent is first read as a host
// would read it (PackedReading), and only what comes out right is sent. With s
// for the step between two tags of one channel:
//
// - s < period / 2, with quanta of 1, 2 and 4 ps also s <= g: a sync always
//   says it. All steps inside one 10 ms slot are of this kind.
// - s that goes beyond g, or beyond the end of a period, by less than a tag's
//   payload: a sync of an earlier time, and the rest in the tag behind it.
// - Other long steps: a sync when no end of a period lies between; otherwise a
//   delta, which across the end of an epoch carries g.
// - g + payload < s <= g + 10 ms inside an epoch, with quanta of 1, 2 and 4 ps:
//   nothing says this, because delta and sync alike are taken for s - g. Such a
//   tag is left out; the channel's next tag past that range goes out right.
// - Deltas that end up to 1 us below the counter's span are taken for steps
//   back. Where nothing else says the step, its tag is left out as well.
// - A delta that would take more than max_overflow_records (with B = 1: any
//   overflow) is not sent. Where no sync says the step either, tags are left
//   out until a sync is taken for a step forward; from there on the channel is
//   seen whole periods early.
//
// A first sync has no past: a channel whose first tag comes later than one
// period is seen whole periods early, and its epochs then count from there.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "simulator/encoders/stream_encoder.hpp"

namespace zelk::simulator {

// Writes fields of a bit string, most significant bit first, as whole bytes.
class BitWriter {
 public:
  // The first `discarded_bits` bits of the string are never written.
  explicit BitWriter(std::uint64_t discarded_bits) : to_discard_(discarded_bits) {}

  // Appends `value`, which fits into `width` bits; width is at most 56.
  void put(std::uint64_t value, int width, std::vector<std::uint8_t>& bytes) {
    if (to_discard_ != 0) {
      const auto gone = std::min(to_discard_, static_cast<std::uint64_t>(width));
      to_discard_ -= gone;
      width -= static_cast<int>(gone);
    }
    waiting_ = waiting_ << width | value;
    waiting_bits_ += width;
    while (waiting_bits_ >= 8) {
      waiting_bits_ -= 8;
      bytes.push_back(static_cast<std::uint8_t>(waiting_ >> waiting_bits_));
    }
  }

  // Whether all that is put from now on is written.
  [[nodiscard]] bool is_under_way() const { return to_discard_ == 0; }

  // Puts fields into memory of their own instead of a vector. It works on a copy
  // of the writer's state, which finish() writes back. The writer is under way
  // and not used before that.
  class Block {
   public:
    // `bytes` has room for all that is put, and seven bytes more.
    Block(BitWriter& writer, std::uint8_t* bytes)
        : writer_(writer),
          waiting_(writer.waiting_),
          waiting_bits_(writer.waiting_bits_),
          end_(bytes) {}

    // Eight bytes are always written, and those count that are complete: so
    // nothing has to be decided.
    void put(std::uint64_t value, int width) {
      waiting_ = waiting_ << width | value;
      waiting_bits_ += width;
      put_big_endian(waiting_ << (64 - waiting_bits_), end_);
      end_ += waiting_bits_ >> 3;
      waiting_bits_ &= 7;
    }

    // The end of the bytes that are complete.
    std::uint8_t* finish() {
      writer_.waiting_ = waiting_;
      writer_.waiting_bits_ = waiting_bits_;
      return end_;
    }

   private:
    BitWriter& writer_;
    std::uint64_t waiting_;
    int waiting_bits_;
    std::uint8_t* end_;
  };

  // Bits that wait for the rest of their byte.
  [[nodiscard]] int waiting_bits() const { return waiting_bits_; }

 private:
  std::uint64_t to_discard_;
  std::uint64_t waiting_ = 0;  // the low waiting_bits_ bits count
  int waiting_bits_ = 0;       // 0 to 7 between calls
};

// Tells which time a host reads from a sync or a delta. All times are in ticks, as
// the host sees them, and not below zero.
class PackedReading {
 public:
  using Ticks = std::int64_t;

  // For ticks of 2^shift ps.
  explicit PackedReading(int shift);

  // The time of a channel after a sync that says `time`; before it was `last`.
  [[nodiscard]] Ticks after_sync(Ticks last, Ticks time) const;

  // The time of a channel after a tag of `delta`, overflows included; before it
  // was `last`.
  [[nodiscard]] Ticks after_delta(Ticks last, Ticks delta) const;

  [[nodiscard]] Ticks epoch() const { return epoch_; }
  [[nodiscard]] Ticks period() const { return period_; }
  [[nodiscard]] Ticks excess() const { return excess_; }

 private:
  [[nodiscard]] Ticks without_excess(Ticks last, Ticks step) const;

  Ticks epoch_;
  Ticks period_;          // of sync values
  Ticks excess_;          // of deltas across the end of an epoch
  Ticks small_step_;      // a step at most this far above g loses g even inside an epoch
  Ticks small_back_;      // a delta at most this far below the span is a step back
  bool sync_has_excess_;  // the host looks for g in syncs too
};

class PackedDeltaEncoder final : public StreamEncoder {
 public:
  static constexpr std::int64_t sync_interval_ps = 10'000'000'000;

  // No delta takes more overflow records than this, so that a silence cannot
  // swell to gigabytes where the payload has few bits.
  static constexpr std::int64_t max_overflow_records = 8192;

  // `payload_bits` from 1 to 31; `quantum_ps` a power of two from 1 to 1024.
  // The stream begins `start_bits` bits late, as one that was joined midway.
  PackedDeltaEncoder(int payload_bits, int quantum_ps, std::uint32_t start_bits = 0);

  void append(const timing::TimeTag& tag, std::vector<std::uint8_t>& bytes) override;

  // Overflow records that say 0 fill the last byte, at most seven of them. A
  // host adds nothing for them.
  void flush(std::vector<std::uint8_t>& bytes) override;

 private:
  using Ticks = PackedReading::Ticks;

  // Times in ticks as the host sees them. With an epoch_end of 0 the first tag
  // never is a near one.
  struct Channel {
    bool started = false;
    Ticks origin = 0;              // the unit's time less the host's: whole periods
    Ticks last = -1;               // time of the last tag sent
    Ticks epoch_end = 0;           // of the epoch that `last` lies in
    std::int64_t slot_end_ps = 0;  // of the 10 ms of stream time with the last sync

    void move_to(Ticks time, Ticks epoch) {
      last = time;
      epoch_end = (time / epoch + 1) * epoch;
    }
  };

  std::size_t append_near(std::span<const timing::TimeTag> tags,
                          std::vector<std::uint8_t>& bytes) override;
  void append_far(const timing::TimeTag& tag, Ticks time, std::vector<std::uint8_t>& bytes);
  [[nodiscard]] std::optional<Ticks> base_for(Ticks last, Ticks time) const;
  [[nodiscard]] std::optional<Ticks> delta_for(Ticks last, Ticks time) const;
  [[nodiscard]] std::int64_t overflow_records(Ticks delta) const;
  [[nodiscard]] bool sync_is_shorter(Ticks delta) const;

  void put_record(std::size_t channel, bool flag, std::uint64_t payload,
                  std::vector<std::uint8_t>& bytes) {
    last_channel_ = channel;
    const std::uint64_t head = channel << 1 | static_cast<std::uint64_t>(flag);
    writer_.put(head << payload_bits_ | payload, width_, bytes);
  }
  void put_tag_with_base(const timing::TimeTag& tag, Ticks base, Ticks time,
                         std::vector<std::uint8_t>& bytes);
  void put_tag_with_overflows(const timing::TimeTag& tag, Ticks delta,
                              std::vector<std::uint8_t>& bytes);

  int payload_bits_;
  int width_;  // of a record
  int shift_;  // from ticks to ps
  Ticks max_payload_;
  PackedReading reading_;
  BitWriter writer_;
  std::size_t last_channel_ = 0;  // of the last record
  std::array<Channel, timing::channel_count> channels_{};
};

}  // namespace zelk::simulator
