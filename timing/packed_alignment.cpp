// How the search avoids scanning every candidate on its own.
//
// Candidates whose start bits lie a whole number of records apart read the same
// records, only from another one on. What a scan does with the records to come
// depends on little: the sync it is in, the channel waiting for a tag, and the
// channels seen. Two scans that agree in these behave alike for ever, so one of
// them does the work, and the other is kept as a follower with the difference
// of the counts, which the next reset wipes out. Scans fall together quickly:
// most of the time there is one per grid, and the whole search reads each bit
// position of the stream about once.
#include "timing/packed_alignment.hpp"

#include <algorithm>
#include <bit>

namespace zelk::timing {
namespace {

using detail::BitReader;

// How many bytes a candidate's scan covers.
constexpr std::size_t scan_range_bytes = 65536;

// How many records a scan passes by itself before it is compared with others.
constexpr std::uint64_t stretch_records = 256;

// From here on every start bit has at least one record behind it, so no new
// candidate can turn up among the records that were read before.
constexpr std::size_t settled_bytes = 128;

// Whether `score` beats `best`, which came earlier; equals do not.
bool is_better(const AlignmentScore& score, const AlignmentScore& best, bool single_channel) {
  if (score.synced != best.synced) {
    return score.synced > best.synced;
  }
  if (!single_channel && score.min != best.min) {
    return score.min > best.min;
  }
  return score.total > best.total;
}

bool is_better_rejected(const AlignmentScore& score, const AlignmentScore& best) {
  return score.synced != best.synced ? score.synced > best.synced : score.total > best.total;
}

}  // namespace

std::uint32_t PackedAlignmentSearch::Scan::behaviour() const {
  const auto sync = static_cast<std::uint32_t>(chunks_left > 0 ? sync_channel : 0);
  return static_cast<std::uint32_t>(chunks_left) | sync << 8 |
         static_cast<std::uint32_t>(pending_channel + 1) << 16 | seen << 24;
}

bool PackedAlignmentSearch::Scan::learnt_nothing() const {
  return pending_channel < 0 && seen == 0;
}

bool PackedAlignmentSearch::Scan::idle() const {
  return chunks_left == 0 && learnt_nothing();
}

void PackedAlignmentSearch::Scan::reset(std::uint64_t next_record) {
  chunks_left = 0;
  pending_channel = -1;
  seen = 0;
  counts = {};
  restart = next_record;
  ++resets;
}

PackedAlignmentSearch::Requirements PackedAlignmentSearch::requirements(const Stream& stream) {
  Requirements required;
  required.active = std::popcount(stream.active_mask);
  const bool internal = stream.mode == StreamMode::internal;
  if (required.active <= 1) {
    required.need = 1;
    required.last_start_byte = 16;
  } else {
    required.need = internal ? required.active : 2;
    required.last_start_byte = 64;
    required.balanced = internal;
  }
  return required;
}

void PackedAlignmentSearch::begin(const Stream& stream, std::size_t last_start_byte) {
  stream_ = stream;
  width_ = stream.bits + wire::packed_delta::header_bits;
  sync_chunks_ = wire::packed_delta::sync_chunks(stream.bits);
  last_start_byte_ = last_start_byte;
  grids_.assign(static_cast<std::size_t>(width_), Grid{});
}

// Whether some start byte and bit phase make a candidate of this bit. Records
// narrower than a byte leave gaps between the phases of consecutive bytes.
bool PackedAlignmentSearch::is_start(std::uint64_t bit) const {
  const std::uint64_t byte = std::min<std::uint64_t>(bit / 8, last_start_byte_);
  return bit - 8 * byte < static_cast<std::uint64_t>(width_);
}

bool PackedAlignmentSearch::is_active(std::uint64_t record) const {
  const auto channel = static_cast<unsigned>(record >> (stream_.bits + 1));
  return (static_cast<unsigned>(stream_.active_mask) >> channel & 1U) != 0;
}

// The flag and an all-ones payload, as they stand in a record of any channel.
std::uint64_t PackedAlignmentSearch::sync_start_bits() const {
  return (std::uint64_t{1} << (stream_.bits + 1)) - 1;
}

// The same at the top of a word. No flag and payload exceed it.
std::uint64_t PackedAlignmentSearch::top_sync_start() const {
  return sync_start_bits() << (63 - stream_.bits);
}

void PackedAlignmentSearch::step(Scan& scan, std::uint64_t record, std::uint64_t index) const {
  const auto channel = static_cast<int>(record >> (stream_.bits + 1));
  const bool flag = (record >> stream_.bits & 1U) != 0;
  if (!is_active(record)) {
    scan.reset(index + 1);
  } else if (scan.chunks_left > 0) {
    if (channel != scan.sync_channel || flag) {
      scan.reset(index + 1);
    } else if (--scan.chunks_left == 0) {
      scan.pending_channel = channel;
    }
  } else if (!flag) {
    const unsigned channel_bit = 1U << channel;
    if (channel == scan.pending_channel) {
      scan.pending_channel = -1;
      scan.seen |= channel_bit;
    }
    if ((scan.seen & channel_bit) != 0) {
      ++scan.counts[static_cast<std::size_t>(channel)];
    }
  } else if ((record & sync_start_bits()) == sync_start_bits()) {
    scan.sync_channel = channel;
    scan.chunks_left = sync_chunks_;
  }
}

// Lets the grid's next record be a start of its own.
void PackedAlignmentSearch::add_follower(Grid& grid, std::uint64_t first_bit) const {
  const std::uint64_t bit = first_bit + static_cast<std::uint64_t>(width_) * grid.next_record;
  Follower follower;
  if (is_start(bit)) {
    Scan fresh;
    fresh.restart = grid.next_record;
    const auto same = std::ranges::find(grid.scans, fresh.behaviour(), &Scan::behaviour);
    follower.scan = static_cast<std::size_t>(same - grid.scans.begin());
    follower.restart = grid.next_record;
    if (same == grid.scans.end()) {
      grid.scans.push_back(fresh);
    } else {
      follower.resets = same->resets;
    }
  }
  grid.followers.push_back(follower);
}

// Scans that behave alike from here on become one.
void PackedAlignmentSearch::merge_equal_scans(Grid& grid) {
  for (std::size_t kept = 0; kept < grid.scans.size(); ++kept) {
    for (std::size_t gone = grid.scans.size() - 1; gone > kept; --gone) {
      const Scan& into = grid.scans[kept];
      const Scan& from = grid.scans[gone];
      if (into.behaviour() != from.behaviour()) {
        continue;
      }
      for (Follower& follower : grid.followers) {
        if (follower.scan == gone) {
          const bool own = follower.resets == from.resets;
          for (std::size_t channel = 0; channel < channel_count; ++channel) {
            follower.lead[channel] =
                from.counts[channel] + (own ? follower.lead[channel] : 0) - into.counts[channel];
          }
          follower.restart = own ? follower.restart : from.restart;
          follower.resets = into.resets;
          follower.scan = kept;
        } else if (follower.scan > gone) {
          --follower.scan;
        }
      }
      grid.scans.erase(grid.scans.begin() + static_cast<std::ptrdiff_t>(gone));
    }
  }
}

void PackedAlignmentSearch::advance(std::size_t grid_index, const BitReader& reader,
                                    std::uint64_t end_record) {
  Grid& grid = grids_[grid_index];
  const auto first_bit = static_cast<std::uint64_t>(grid_index);
  const auto width = static_cast<std::uint64_t>(width_);
  const std::uint64_t last_start_bit = 8 * std::uint64_t{last_start_byte_} + width - 1;
  const std::uint64_t starts = (last_start_bit - first_bit) / width + 1;

  for (; grid.next_record < std::min(starts, end_record); ++grid.next_record) {
    add_follower(grid, first_bit);
    const std::uint64_t record = reader.read(first_bit + width * grid.next_record, width_);
    for (Scan& scan : grid.scans) {
      step(scan, record, grid.next_record);
    }
    merge_equal_scans(grid);
  }
  // No start is left to come. Scans that behave alike may as well become one a
  // little later, so that each can pass a stretch of records by itself.
  while (grid.next_record < end_record) {
    const std::uint64_t end = grid.scans.size() <= 1
                                  ? end_record
                                  : std::min(end_record, grid.next_record + stretch_records);
    for (Scan& scan : grid.scans) {
      pass(scan, Stretch{reader, first_bit, grid.next_record, end});
    }
    grid.next_record = end;
    merge_equal_scans(grid);
  }
}

// The bulk of the work.
void PackedAlignmentSearch::pass(Scan& scan, Stretch records) const {
  const bool all_active = stream_.active_mask == all_channels_mask;
  while (records.next < records.end) {
    if (scan.idle()) {
      all_active ? pass_idle<true>(scan, records) : pass_idle<false>(scan, records);
    }
    if (scan.learnt_nothing()) {
      pass_broken_syncs(scan, records);
    }
    if (records.next < records.end) {
      step(scan, records.record(width_), records.next);
      ++records.next;
    }
  }
}

// Passes an idle scan over records up to the next sync start, of any channel, or
// the end. Inactive channels, which come and go at random while the alignment is
// wrong, only move the restart; they are followed without a branch and without a
// reset each.
template <bool all_active>
void PackedAlignmentSearch::pass_idle(Scan& scan, Stretch& records) const {
  const std::uint64_t sync_start = top_sync_start();
  const auto width = static_cast<std::uint64_t>(width_);
  const BitReader reader = records.reader;
  const std::uint64_t active_mask = stream_.active_mask;
  const std::uint64_t end_bit = records.first_bit + width * records.end;
  std::uint64_t bit = records.first_bit + width * records.next;
  std::uint64_t restart_bit = 0;
  for (; bit < end_bit; bit += width) {
    const std::uint64_t word = reader.peek(bit);
    if (word << 2 >= sync_start) {
      break;
    }
    const bool active = all_active || (active_mask >> (word >> 62) & 1U) != 0;
    restart_bit = active ? restart_bit : bit + width;
  }
  records.next = (bit - records.first_bit) / width;
  if (restart_bit != 0) {
    scan.reset((restart_bit - records.first_bit) / width);
  }
}

// Passes a scan that knows nothing but the sync it may be in, up to the record
// that completes a sync. Where syncs break off all the time, as in noise of few
// bits, nobody can predict what comes next; so the sync is followed with
// masks in the place of branches. It gives up after some records, because where sync
// starts are rare the idle scan is passed faster.
void PackedAlignmentSearch::pass_broken_syncs(Scan& scan, Stretch& records) const {
  constexpr std::uint64_t none = ~std::uint64_t{0};
  const std::uint64_t sync_start = top_sync_start();
  const auto width = static_cast<std::uint64_t>(width_);
  const BitReader reader = records.reader;
  const std::uint64_t active_mask = stream_.active_mask;
  const std::uint64_t end = std::min(records.end, records.next + stretch_records);
  const auto all_chunks = static_cast<std::uint64_t>(sync_chunks_);
  // Channel and flag of the chunks to come, or none outside of a sync, where
  // chunks_left means nothing.
  std::uint64_t chunk_slot =
      scan.chunks_left != 0 ? 2 * static_cast<std::uint64_t>(scan.sync_channel) : none;
  auto chunks_left = static_cast<std::uint64_t>(scan.chunks_left);
  std::uint64_t restart = 0;
  std::uint64_t index = records.next;
  for (std::uint64_t bit = records.first_bit + width * index; index < end; ++index, bit += width) {
    const std::uint64_t word = reader.peek(bit);
    const std::uint64_t slot = word >> 61;
    const std::uint64_t active = active_mask >> (slot / 2) & 1;
    const std::uint64_t is_start = (word << 2 >= sync_start ? 1 : 0) & active;
    const std::uint64_t is_chunk = chunk_slot == slot ? 1 : 0;
    const std::uint64_t is_outside = chunk_slot == none ? 1 : 0;
    if (is_chunk != 0 && chunks_left == 1) {
      break;
    }
    restart = (is_chunk | (is_outside & active)) != 0 ? restart : index + 1;
    // Less 1, a condition is the mask of what holds without it.
    const std::uint64_t begun = (slot & 6) | (is_start - 1);
    chunk_slot = (chunk_slot | (is_chunk - 1)) & (begun | (is_outside - 1));
    chunks_left = ((chunks_left - 1) & (is_outside - 1)) | (all_chunks & ~(is_outside - 1));
  }
  records.next = index;
  if (restart != 0) {
    scan.reset(restart);
  }
  scan.chunks_left = chunk_slot != none ? static_cast<int>(chunks_left) : 0;
  scan.sync_channel = chunk_slot != none ? static_cast<int>(chunk_slot / 2) : 0;
}

// The scan of the candidate that starts at this record, with its own counts.
PackedAlignmentSearch::Scan PackedAlignmentSearch::scan_of(const Grid& grid,
                                                           std::size_t start_record) const {
  const Follower& follower = grid.followers[start_record];
  Scan scan = grid.scans[follower.scan];
  if (follower.resets == scan.resets) {
    scan.restart = follower.restart;
    for (std::size_t channel = 0; channel < channel_count; ++channel) {
      scan.counts[channel] += follower.lead[channel];
    }
  }
  return scan;
}

AlignmentScore PackedAlignmentSearch::score_of(const Scan& scan) const {
  AlignmentScore score;
  score.synced = std::popcount(scan.seen);
  bool first = true;
  for (std::size_t channel = 0; channel < channel_count; ++channel) {
    if ((scan.seen >> channel & 1U) == 0) {
      continue;
    }
    const std::uint64_t count = scan.counts[channel];
    score.min = first ? count : std::min(score.min, count);
    score.max = std::max(score.max, count);
    score.total += count;
    first = false;
  }
  return score;
}

PackedAlignmentSearch::Result PackedAlignmentSearch::search(const Stream& stream,
                                                            std::span<const std::uint8_t> bytes) {
  Result result;
  if (bytes.empty() || stream.bits < wire::packed_delta::min_payload_bits ||
      stream.bits > wire::packed_delta::max_payload_bits) {
    return result;
  }
  const Requirements required = requirements(stream);
  const std::size_t last_start_byte = std::min(required.last_start_byte, bytes.size() - 1);
  if (grids_.empty() || stream != stream_ || last_start_byte != last_start_byte_) {
    begin(stream, last_start_byte);
  }

  const BitReader reader(bytes);
  const auto width = static_cast<std::uint64_t>(width_);
  const bool same_end = bytes.size() <= scan_range_bytes;
  std::optional<AlignmentScore> best;
  for (std::size_t byte = 0; byte <= last_start_byte; ++byte) {
    const std::uint64_t end_bit =
        8 * std::uint64_t{std::min(bytes.size(), byte + scan_range_bytes)};
    for (std::uint64_t phase = 0; phase < width; ++phase) {
      if (same_end && byte > 0 && phase + 8 < width) {
        continue;  // the previous byte had this very start bit
      }
      const std::uint64_t start_bit = 8 * std::uint64_t{byte} + phase;
      if (start_bit + width > end_bit) {
        continue;
      }
      const std::uint64_t first_bit = start_bit % width;
      const auto grid_index = static_cast<std::size_t>(first_bit);
      advance(grid_index, reader, (end_bit - first_bit) / width);

      const Scan scan = scan_of(grids_[grid_index], static_cast<std::size_t>(start_bit / width));
      const AlignmentScore score = score_of(scan);
      if (score.synced < required.need || score.total == 0) {
        continue;
      }
      const std::uint64_t position = first_bit + width * scan.restart;
      const PackedAlignment alignment{
          .drop_bytes = position / 8, .bit_offset = position % 8, .found = true};
      if (required.balanced && (score.min == 0 || 2 * score.min < score.max)) {
        if (!result.rejected || is_better_rejected(score, result.rejected->score)) {
          result.rejected = {alignment, score};
        }
      } else if (!best || is_better(score, *best, required.active == 1)) {
        best = score;
        result.alignment = alignment;
      }
    }
  }
  if (bytes.size() < settled_bytes) {
    forget();
  }
  return result;
}

}  // namespace zelk::timing
