// Turns a device's byte stream, handed over in chunks of any size, into time
// tags.
//
// One decoder serves one stream from start to end and belongs to one thread;
// nothing is ever reset from outside. Bytes that do not yet form a whole
// record wait in `pending`. Bad stream data never throws: it is skipped,
// resynchronised over, or costs the lock. The state is public so that tests
// and diagnostics can look at it; only the decoder's own functions change it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "timing/packed_alignment.hpp"
#include "timing/stream_header.hpp"
#include "timing/time_tag.hpp"
#include "timing/transport.hpp"

namespace zelk::timing {

class StreamDecoder {
 public:
  // Takes the stream's description; packed_bits 0 becomes 16 and
  // packed_quantum_ps 0 becomes 8.
  explicit StreamDecoder(const StreamFileHeader& header);

  // Appends the bytes and returns every tag that they complete, in stream
  // order. feed(nullptr, 0) decodes what is pending without adding anything.
  std::vector<TimeTag> feed(const std::uint8_t* data, std::size_t size);

  // The paths behind feed(), one per format; each decodes what is pending.
  std::vector<TimeTag> feed_raw64();
  std::vector<TimeTag> feed_delta32();
  std::vector<TimeTag> feed_packed_delta();

  // Stream description.
  Format format;
  StreamMode mode;
  Transport transport;
  std::uint8_t channel_mask;        // bit n: channel n is active; 0 means all
  std::uint8_t packed_bits;         // payload width B of packed_delta records
  std::uint16_t packed_quantum_ps;  // tick of packed_delta deltas
  std::string timestamp_layout;     // "ps" or "raw_cf", upper or lower case
  // Picoseconds to subtract per fine code; a code outside gets no correction.
  std::vector<std::int64_t> fine_correction_ps;

  // Bytes received and not yet consumed.
  std::vector<std::uint8_t> pending;
  std::uint64_t bit_offset = 0;  // packed_delta: next record's bit in pending[0]

  // raw64, per channel.
  struct Raw64Channel {
    std::uint64_t last_raw = 0;  // ps within the epoch, or clock periods
    bool has_last = false;
  };
  std::array<Raw64Channel, channel_count> raw64{};
  // Accumulated unwrapping: ps, or clock periods in the "raw_cf" layout.
  std::array<std::int64_t, channel_count> epoch_offset_ps{};

  // delta32, per channel.
  std::array<std::int64_t, channel_count> last_ps{};  // last emitted time
  std::array<bool, channel_count> has_time{};

  // delta32, per stream.
  enum D32State : std::uint32_t { d32_data = 0, d32_expect_base_low = 1, d32_expect_base_high = 2 };
  bool d32_locked = false;  // word alignment known from a sync word
  std::uint32_t d32_state = d32_data;
  std::uint32_t d32_base_low = 0;  // low 25 bits of the announced time base
  std::uint64_t d32_base = 0;      // announced time base, ps
  bool d32_base_valid = false;     // the base waits for the next tag
  std::uint64_t d32_overflow = 0;  // waiting for the next tag, units of 2^25 ps

  // packed_delta, per channel. Everything from here on is cleared with the
  // lock, but for `packed_shift` and `debug_lines`.
  std::array<std::int64_t, channel_count> packed_last_ps{};
  std::array<bool, channel_count> packed_has_time{};             // only after a sync on the channel
  std::array<std::uint64_t, channel_count> packed_overflow{};    // since the last tag, units of 2^B
  std::array<std::uint64_t, channel_count> packed_last_delta{};  // last accepted step, ps
  std::array<std::int64_t, channel_count> packed_last_emitted_ps{};
  std::array<bool, channel_count> packed_emitted{};  // a tag was emitted since the lock

  // packed_delta, per stream.
  std::int32_t packed_shift = 0;           // left shift that turns ticks into ps
  std::int32_t sync_chunks_left = 0;       // still expected; 0 outside a sync
  std::int32_t sync_channel = 0;           // of the sync being assembled
  std::uint64_t sync_value = 0;            // chunks assembled so far, ticks
  std::int32_t sync_value_bits = 0;        // bits assembled so far
  std::int32_t pending_sync_channel = -1;  // its next tag takes the sync value; -1: none
  std::uint64_t pending_sync_base_ps = 0;  // the sync value waiting for that tag
  bool packed_locked = false;              // bit alignment found
  mutable std::uint64_t debug_lines = 0;   // written so far

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
  // What one call of feed_packed_delta() works with.
  struct PackedBatch;
  enum class RecordResult { accepted, lock_dropped };
  void decode_delta32_word(std::uint32_t bits, std::vector<TimeTag>& tags);
  void decode_delta32_tag(std::uint8_t channel, std::uint32_t payload, std::vector<TimeTag>& tags);
  void expect_delta32_base();
  void lose_delta32_lock();

  PackedAlignment find_packed_alignment(int bits, PackedAlignmentSearch& search) const;
  bool lock_packed_alignment();
  RecordResult decode_packed_record(PackedBatch& batch, std::uint64_t record, std::uint64_t index);
  RecordResult decode_packed_tag(PackedBatch& batch, std::size_t channel, std::uint64_t payload,
                                 std::uint64_t index);
  RecordResult decode_packed_sync_chunk(const PackedBatch& batch, std::size_t channel, bool flag,
                                        std::uint64_t payload, std::uint64_t index);
  bool apply_packed_sync(std::size_t channel, std::uint64_t delta, std::uint64_t index);
  bool apply_packed_delta(const PackedBatch& batch, std::size_t channel, std::uint64_t delta,
                          std::uint64_t index);
  std::uint64_t lift_packed_sync(const PackedBatch& batch, std::size_t channel) const;
  bool is_imbalanced(const PackedBatch& batch) const;
  std::uint8_t active_channel_mask() const;

  PackedAlignmentSearch packed_search_;  // over `pending`, while unlocked
};

}  // namespace zelk::timing
