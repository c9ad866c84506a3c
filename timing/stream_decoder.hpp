// Turns a device's byte stream, handed over in chunks of any size, into time
// tags.
//
// One decoder serves one stream from start to end and belongs to one thread;
// nothing is ever reset from outside. Bad stream data never throws: it is
// skipped, resynchronised over, or costs the lock. A call that runs out of memory
// throws std::bad_alloc and has decoded nothing: its bytes are either all pending
// or not taken at all, which the size of `pending` tells.
//
// The decoder is put together from what it knows: the description of the stream,
// the bytes waiting, and the state of each format. All of it is public so that
// diagnostics can look at it and tests can set a scene; whoever only wants the
// tags calls feed() and leaves the rest alone.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "timing/packed_alignment.hpp"
#include "timing/stream_header.hpp"
#include "timing/time_tag.hpp"
#include "timing/transport.hpp"

namespace zelk::timing {

// What the stream is like, from its start to its end.
struct StreamDescription {
  // packed_bits 0 becomes 16 and packed_quantum_ps 0 becomes 8.
  explicit StreamDescription(const StreamFileHeader& header);

  // The channels that may occur, bit n for channel n.
  [[nodiscard]] std::uint8_t active_channel_mask() const {
    return channel_mask == 0 ? all_channels_mask : channel_mask & all_channels_mask;
  }

  Format format;
  StreamMode mode;
  Transport transport;
  std::uint8_t channel_mask;        // bit n: channel n is active; 0 means all
  std::uint8_t packed_bits;         // payload width B of packed_delta records
  std::uint16_t packed_quantum_ps;  // tick of packed_delta deltas
  std::string timestamp_layout;     // "ps" or "raw_cf", upper or lower case
  // Picoseconds to subtract per fine code; a code outside gets no correction.
  std::vector<std::int64_t> fine_correction_ps;
};

// Bytes received and not yet consumed.
struct PendingBytes {
  void erase_front(std::size_t bytes) {
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(bytes));
  }

  std::vector<std::uint8_t> pending;
};

// raw64. Counts are in ps within the epoch, or in clock periods in the "raw_cf"
// layout; the offsets are what unwrapping them has added up to.
struct Raw64State {
  struct Raw64Channel {
    std::uint64_t last_raw = 0;
    bool has_last = false;
  };
  std::array<Raw64Channel, channel_count> raw64{};
  std::array<std::int64_t, channel_count> epoch_offset_ps{};
};

// delta32: where the decoder stands in the stream. A lost lock clears all of it.
struct Delta32Lock {
  enum D32State : std::uint32_t { d32_data = 0, d32_expect_base_low = 1, d32_expect_base_high = 2 };
  bool d32_locked = false;  // word alignment known from a sync word
  std::uint32_t d32_state = d32_data;
  std::uint64_t d32_base = 0;      // announced time base, ps
  bool d32_base_valid = false;     // the base waits for the next tag
  std::uint64_t d32_overflow = 0;  // waiting for the next tag, units of 2^25 ps
};

// delta32, with what outlives the lock.
struct Delta32State : Delta32Lock {
  std::uint32_t d32_base_low = 0;  // low 25 bits of the time base being announced
  std::array<std::int64_t, channel_count> last_ps{};  // last emitted time
  std::array<bool, channel_count> has_time{};
};

// packed_delta: the alignment and all that was learnt under it. A lost lock
// clears all of it.
struct PackedLock {
  bool packed_locked = false;    // bit alignment found
  std::uint64_t bit_offset = 0;  // next record's first bit in pending[0], 0 to 7

  // Per channel.
  std::array<std::int64_t, channel_count> packed_last_ps{};
  std::array<bool, channel_count> packed_has_time{};             // only after a sync on the channel
  std::array<std::uint64_t, channel_count> packed_overflow{};    // since the last tag, units of 2^B
  std::array<std::uint64_t, channel_count> packed_last_delta{};  // last accepted step, ps
  std::array<std::int64_t, channel_count> packed_last_emitted_ps{};
  std::array<bool, channel_count> packed_emitted{};  // a tag was emitted since the lock

  std::int32_t sync_chunks_left = 0;       // still expected; 0 outside a sync
  std::int32_t sync_channel = 0;           // of the sync being assembled
  std::uint64_t sync_value = 0;            // chunks assembled so far, ticks
  std::int32_t sync_value_bits = 0;        // bits assembled so far
  std::int32_t pending_sync_channel = -1;  // its next tag takes the sync value; -1: none
  std::uint64_t pending_sync_base_ps = 0;  // the sync value waiting for that tag
};

// packed_delta, with what outlives the lock.
struct PackedState : PackedLock {
  std::int32_t packed_shift = 0;          // left shift that turns ticks into ps
  mutable std::uint64_t debug_lines = 0;  // written so far
};

class StreamDecoder : public StreamDescription,
                      public PendingBytes,
                      public Raw64State,
                      public Delta32State,
                      public PackedState {
 public:
  explicit StreamDecoder(const StreamFileHeader& header);

  // Appends the bytes and returns every tag that they complete, in stream
  // order. feed(nullptr, 0) decodes what is pending without adding anything.
  std::vector<TimeTag> feed(const std::uint8_t* data, std::size_t size);

  // The same into a list of the caller's: it is cleared, then filled. Its memory
  // is used again, so that a list that serves many calls is the fast way.
  void feed(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& tags);

  // The paths behind feed(), one per format; each decodes what is pending.
  std::vector<TimeTag> feed_raw64();
  std::vector<TimeTag> feed_delta32();
  std::vector<TimeTag> feed_packed_delta();

  // The alignment of the packed_delta records in `pending`, for payloads of
  // `bits` in records of `width` = bits + 3. Changes nothing but debug_lines.
  PackedAlignment probe_packed_alignment(int bits, int width) const;

  // Advances over `n` records and erases the whole bytes among them.
  void consume_packed_records(std::size_t n);

  // Gives the alignment up; the bytes in `pending` stay.
  void drop_packed_lock();

  // Writes one line to standard error if ZELK_PACKED_DEBUG is set, for the
  // first 200 lines of a decoder.
  void packed_debug_log(const std::string& message) const;

 private:
  using FreshBytes = std::span<const std::uint8_t>;

  void feed_raw64(FreshBytes fresh, std::vector<TimeTag>& tags);
  void feed_delta32(FreshBytes fresh, std::vector<TimeTag>& tags);
  void feed_packed_delta(FreshBytes fresh, std::vector<TimeTag>& tags);
  PackedAlignment find_packed_alignment(int bits, PackedAlignmentSearch& search) const;
  bool lock_packed_alignment();

  PackedAlignmentSearch packed_search_;  // over `pending`, while unlocked
};

}  // namespace zelk::timing
