// The packed_delta decoder written down as plainly as possible: one bit is read
// at a time, every alignment candidate is scanned from its own start, and
// nothing is kept between steps that could be worked out again. It is slow and
// serves as the measure for the product's decoder.
//
// One object decodes one stream on one thread. All state is public and has the
// names of the product's decoder, so that a test can set it and compare it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "timing/stream_header.hpp"
#include "timing/time_tag.hpp"

namespace zelk::reference {

struct PackedAlignment {
  std::uint64_t drop_bytes = 0;  // to erase from the front of `pending`
  std::uint64_t bit_offset = 0;  // of the first record in the byte after those
  bool found = false;

  friend bool operator==(const PackedAlignment&, const PackedAlignment&) = default;
};

class LiteralPackedDecoder {
 public:
  explicit LiteralPackedDecoder(const timing::StreamFileHeader& header);

  // Appends the bytes and decodes what is pending; every stream is taken as a
  // packed_delta stream.
  std::vector<timing::TimeTag> feed(const std::uint8_t* data, std::size_t size);
  std::vector<timing::TimeTag> feed_packed_delta();

  // The best start of a record in `pending` for payloads of `bits` bits.
  [[nodiscard]] PackedAlignment probe_packed_alignment(int bits, int width) const;

  // Advances over n records and erases the bytes that are used up.
  void consume_packed_records(std::size_t n);

  // Forgets the alignment and everything learnt under it; keeps `pending`.
  void drop_packed_lock();

  // Keeps the line in `written_lines` instead of writing it.
  void packed_debug_log(const std::string& message) const;

  timing::StreamMode mode;
  std::uint8_t channel_mask;
  std::uint8_t packed_bits;
  std::uint16_t packed_quantum_ps;

  std::vector<std::uint8_t> pending;
  std::uint64_t bit_offset = 0;

  std::array<std::int64_t, 4> packed_last_ps{};
  std::array<bool, 4> packed_has_time{};
  std::array<std::uint64_t, 4> packed_overflow{};
  std::array<std::uint64_t, 4> packed_last_delta{};
  std::array<std::int64_t, 4> packed_last_emitted_ps{};
  std::array<bool, 4> packed_emitted{};
  std::int32_t packed_shift = 0;
  std::int32_t sync_chunks_left = 0;
  std::int32_t sync_channel = 0;
  std::uint64_t sync_value = 0;
  std::int32_t sync_value_bits = 0;
  std::int32_t pending_sync_channel = -1;
  std::uint64_t pending_sync_base_ps = 0;
  bool packed_locked = false;

  mutable std::uint64_t debug_lines = 0;
  mutable std::vector<std::string> written_lines;  // without the line feed

 private:
  struct Record {
    int channel;
    int flag;
    std::uint64_t payload;
  };

  // What one feed_packed_delta() has done so far.
  struct Call {
    std::size_t records = 0;
    std::array<std::uint64_t, 4> counts{};
    std::vector<timing::TimeTag> tags;
  };

  // What one alignment candidate has shown so far.
  struct Scan {
    int sync_channel = -1;
    int chunks_left = 0;
    int pending_channel = -1;
    std::array<std::uint64_t, 4> counts{};
    std::array<bool, 4> seen{};
    std::uint64_t restart = 0;
  };

  // A candidate that showed at least one synced channel.
  struct Candidate {
    PackedAlignment alignment;
    int synced = 0;
    std::uint64_t min = 0;
    std::uint64_t max = 0;
    std::uint64_t total = 0;
  };

  // Joins the parts into one message.
  template <typename... Parts>
  void log(const Parts&... parts) const {
    std::ostringstream message;
    (message << ... << parts);
    packed_debug_log(message.str());
  }

  static std::size_t index_of(int channel) { return static_cast<std::size_t>(channel); }
  static std::uint64_t all_ones(int bits) { return (std::uint64_t{1} << bits) - 1; }

  [[nodiscard]] int active_mask() const;
  [[nodiscard]] int active_count() const;
  [[nodiscard]] bool is_active(int channel) const;
  [[nodiscard]] bool is_internal() const;

  [[nodiscard]] int bit_at(std::uint64_t index) const;
  [[nodiscard]] std::uint64_t bits_at(std::uint64_t index, int count) const;
  [[nodiscard]] Record record_at(std::uint64_t index, int bits) const;

  [[nodiscard]] std::uint64_t span_ps() const;
  [[nodiscard]] std::uint64_t period_ps() const;
  [[nodiscard]] std::uint64_t excess_ps() const;
  [[nodiscard]] std::uint64_t shifted(std::uint64_t ticks) const;

  [[nodiscard]] Candidate scan_candidate(std::uint64_t byte, std::uint64_t phase,
                                         std::uint64_t records, int bits) const;
  void scan_record(Scan& scan, const Record& record, std::uint64_t index, int bits) const;
  [[nodiscard]] bool is_better(const Candidate& candidate, const Candidate& best) const;

  [[nodiscard]] bool find_lock();
  // Each returns false when the record costs the lock; the reason is logged.
  [[nodiscard]] bool take_record(const Record& record, std::size_t r, Call& call);
  [[nodiscard]] bool take_tag(const Record& record, std::size_t r, Call& call);
  [[nodiscard]] bool take_sync_tag(int channel, std::uint64_t delta, std::size_t r);
  [[nodiscard]] bool take_delta_tag(int channel, std::uint64_t delta, std::size_t r);
  [[nodiscard]] bool take_chunk(const Record& record, std::size_t r);
  void finish_sync();
  [[nodiscard]] bool is_imbalanced(const Call& call) const;
};

}  // namespace zelk::reference
