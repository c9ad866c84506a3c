// Finds where the records of a packed_delta stream begin. The stream carries
// no marker, so every start bit within the first bytes is a candidate, scored
// by how well the records behind it behave like a real stream: syncs followed
// by tags on the active channels.
//
// A search belongs to one decoder and its thread. It remembers how far it has
// read, so that a stream arriving in small pieces is scanned once and not once
// per piece.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "timing/detail/bit_reader.hpp"
#include "timing/time_tag.hpp"
#include "timing/wire_format.hpp"

namespace zelk::timing {

struct PackedAlignment {
  std::uint64_t drop_bytes = 0;  // bytes in front of the first record's byte
  std::uint64_t bit_offset = 0;  // the record's first bit in that byte, 0 to 7
  bool found = false;

  friend bool operator==(const PackedAlignment&, const PackedAlignment&) = default;
};

// What the scan of one candidate amounts to.
struct AlignmentScore {
  int synced = 0;         // active channels that had a sync and a tag behind it
  std::uint64_t min = 0;  // fewest, most and all tags counted on these channels
  std::uint64_t max = 0;
  std::uint64_t total = 0;
};

class PackedAlignmentSearch {
 public:
  // Which stream is searched.
  struct Stream {
    int bits = 0;                  // payload width B
    std::uint8_t active_mask = 0;  // bit n: channel n is active
    StreamMode mode = StreamMode::internal;

    friend bool operator==(const Stream&, const Stream&) = default;
  };

  // The best of the candidates that only the balance test kept out.
  struct Rejected {
    PackedAlignment alignment;
    AlignmentScore score;
  };

  struct Result {
    PackedAlignment alignment;
    std::optional<Rejected> rejected;
  };

  // Scores the candidates in `bytes`. The bytes of the previous call must
  // stand unchanged in front of any new ones, unless forget() came between.
  Result search(const Stream& stream, std::span<const std::uint8_t> bytes);

  // To be called whenever bytes were taken from the front.
  void forget() { grids_.clear(); }

  // Channels that must be synced for a candidate to count, and how far the
  // candidates reach.
  struct Requirements {
    int active = 0;
    int need = 0;
    std::size_t last_start_byte = 0;
    bool balanced = false;  // the counts must not differ by more than a factor of 2
  };
  static Requirements requirements(const Stream& stream);

 private:
  // The scan of a record sequence since its last reset.
  struct Scan {
    int chunks_left = 0;       // of the sync being read; 0 outside
    int sync_channel = 0;      // of that sync
    int pending_channel = -1;  // whose sync is complete and waits for a tag
    unsigned seen = 0;         // bit n: channel n had a sync and a tag behind it
    std::array<std::uint64_t, channel_count> counts{};
    std::uint64_t restart = 0;  // record behind the last reset
    std::uint64_t resets = 0;

    [[nodiscard]] std::uint32_t behaviour() const;
    [[nodiscard]] bool learnt_nothing() const;  // but the sync it may be in
    [[nodiscard]] bool idle() const;            // not even in a sync
    void reset(std::uint64_t next_record);
  };

  // One start bit, as a follower of the scan that does its work.
  struct Follower {
    std::size_t scan = 0;
    std::uint64_t resets = 0;                         // the scan's, when the follower joined it
    std::uint64_t restart = 0;                        // own, valid until the scan's next reset
    std::array<std::uint64_t, channel_count> lead{};  // own counts less the scan's; wraps
  };

  // All start bits that lie a whole number of records apart read the same
  // records.
  struct Grid {
    std::uint64_t next_record = 0;
    std::vector<Scan> scans;
    std::vector<Follower> followers;  // of start record 0, 1, 2 ...
  };

  // Consecutive records of a grid.
  struct Stretch {
    [[nodiscard]] std::uint64_t record(int width) const {
      return reader.read(first_bit + static_cast<std::uint64_t>(width) * next, width);
    }

    detail::BitReader reader;
    std::uint64_t first_bit = 0;  // of record 0
    std::uint64_t next = 0;
    std::uint64_t end = 0;
  };

  void begin(const Stream& stream, std::size_t last_start_byte);
  [[nodiscard]] bool is_start(std::uint64_t bit) const;
  void advance(std::size_t grid_index, const detail::BitReader& reader, std::uint64_t end_record);
  void add_follower(Grid& grid, std::uint64_t first_bit) const;
  void pass(Scan& scan, Stretch records) const;
  template <bool all_active>
  void pass_idle(Scan& scan, Stretch& records) const;
  void pass_broken_syncs(Scan& scan, Stretch& records) const;
  void step(Scan& scan, std::uint64_t record, std::uint64_t index) const;
  static void merge_equal_scans(Grid& grid);
  [[nodiscard]] Scan scan_of(const Grid& grid, std::size_t start_record) const;
  [[nodiscard]] AlignmentScore score_of(const Scan& scan) const;

  [[nodiscard]] bool is_active(std::uint64_t record) const;
  [[nodiscard]] std::uint64_t sync_start_bits() const;
  [[nodiscard]] std::uint64_t top_sync_start() const;

  Stream stream_;
  int width_ = 0;
  int sync_chunks_ = 0;
  std::size_t last_start_byte_ = 0;
  std::vector<Grid> grids_;  // by the start bit modulo the record width
};

}  // namespace zelk::timing
