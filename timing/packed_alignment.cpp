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
#include <utility>

namespace zelk::timing {
namespace {

using detail::BitReader;

// How many bytes a candidate's scan covers.
constexpr std::size_t scan_range_bytes = 65536;

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

bool PackedAlignmentSearch::Scan::idle() const {
  return chunks_left == 0 && pending_channel < 0 && seen == 0;
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

  while (grid.next_record < end_record) {
    if (grid.next_record < starts) {
      add_follower(grid, first_bit);
    } else if (grid.scans.size() <= 1) {
      advance_alone(grid, first_bit, reader, end_record);
      return;
    }
    const std::uint64_t record = reader.read(first_bit + width * grid.next_record, width_);
    for (Scan& scan : grid.scans) {
      step(scan, record, grid.next_record);
    }
    ++grid.next_record;
    merge_equal_scans(grid);
  }
}

// Passes an idle scan over records up to the next sync start or the end, and
// returns where that is. Inactive channels, which come and go at random while
// the alignment is wrong, only move the restart; they are followed without a
// branch and without a reset each.
template <bool all_active>
std::uint64_t PackedAlignmentSearch::skip_idle(Scan& scan, std::uint64_t index,
                                               std::uint64_t first_bit, const BitReader& reader,
                                               std::uint64_t end_record) const {
  const int width = width_;
  const std::uint64_t sync_start = sync_start_bits();
  std::uint64_t restart = 0;
  std::uint64_t bit = first_bit + static_cast<std::uint64_t>(width) * index;
  for (; index < end_record; ++index, bit += static_cast<std::uint64_t>(width)) {
    const std::uint64_t record = reader.read(bit, width);
    const bool active = all_active || is_active(record);
    restart = active ? restart : index + 1;
    if (((record & sync_start) == sync_start) & active) {
      break;
    }
  }
  if (restart != 0) {
    scan.reset(restart);
  }
  return index;
}

// The bulk of the work: one scan, and no start left to come.
void PackedAlignmentSearch::advance_alone(Grid& grid, std::uint64_t first_bit,
                                          const BitReader& reader, std::uint64_t end_record) const {
  std::uint64_t index = std::exchange(grid.next_record, end_record);
  if (grid.scans.empty()) {
    return;
  }
  Scan& scan = grid.scans.front();
  const bool all_active = stream_.active_mask == all_channels_mask;
  while (index < end_record) {
    if (scan.idle()) {
      index = all_active ? skip_idle<true>(scan, index, first_bit, reader, end_record)
                         : skip_idle<false>(scan, index, first_bit, reader, end_record);
      if (index == end_record) {
        break;
      }
    }
    step(scan, reader.read(first_bit + static_cast<std::uint64_t>(width_) * index, width_), index);
    ++index;
  }
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
