// The alignment search of the literal packed_delta decoder.
#include <algorithm>

#include "tests/reference/literal_packed_delta.hpp"

namespace zelk::reference {

void LiteralPackedDecoder::scan_record(Scan& scan, const Record& record, std::uint64_t index,
                                       int bits) const {
  const auto channel = index_of(record.channel);
  if (scan.chunks_left > 0) {
    if (!is_active(record.channel) || record.channel != scan.sync_channel || record.flag == 1) {
      scan = Scan{};
      scan.restart = index + 1;
      return;
    }
    --scan.chunks_left;
    if (scan.chunks_left == 0) {
      scan.pending_channel = scan.sync_channel;
    }
    return;
  }
  if (!is_active(record.channel)) {
    scan = Scan{};
    scan.restart = index + 1;
  } else if (record.flag == 0 && record.channel == scan.pending_channel) {
    ++scan.counts[channel];
    scan.seen[channel] = true;
    scan.pending_channel = -1;
  } else if (record.flag == 0 && scan.seen[channel]) {
    ++scan.counts[channel];
  } else if (record.flag == 1 && record.payload == all_ones(bits)) {
    scan.sync_channel = record.channel;
    scan.chunks_left = (bits + 40) / bits;
  }
}

// The minimum and maximum are over the channels that were seen: an active
// channel without a sync shows in `synced` already.
LiteralPackedDecoder::Candidate LiteralPackedDecoder::scan_candidate(std::uint64_t byte,
                                                                     std::uint64_t phase,
                                                                     std::uint64_t records,
                                                                     int bits) const {
  const std::uint64_t width = static_cast<std::uint64_t>(bits) + 3;
  Scan scan;
  for (std::uint64_t i = 0; i < records; ++i) {
    scan_record(scan, record_at(8 * byte + phase + width * i, bits), i, bits);
  }
  Candidate candidate;
  for (std::size_t channel = 0; channel < 4; ++channel) {
    if (scan.seen[channel]) {
      const std::uint64_t count = scan.counts[channel];
      candidate.min = candidate.synced == 0 ? count : std::min(candidate.min, count);
      candidate.max = std::max(candidate.max, count);
      candidate.total += count;
      ++candidate.synced;
    }
  }
  const std::uint64_t position = phase + width * scan.restart;
  candidate.alignment = {.drop_bytes = byte + position / 8,
                         .bit_offset = position % 8,
                         .found = candidate.synced > 0 && candidate.total != 0};
  return candidate;
}

bool LiteralPackedDecoder::is_better(const Candidate& candidate, const Candidate& best) const {
  if (!best.alignment.found) {
    return true;
  }
  if (candidate.synced != best.synced) {
    return candidate.synced > best.synced;
  }
  if (active_count() > 1 && candidate.min != best.min) {
    return candidate.min > best.min;
  }
  return candidate.total > best.total;
}

// Widths without a record format (above 31 payload bits) have no alignment.
PackedAlignment LiteralPackedDecoder::probe_packed_alignment(int bits, int width) const {
  const std::uint64_t size = pending.size();
  if (size == 0 || bits < 1 || width < 1 || bits > 31 || width != bits + 3) {
    return {};
  }
  const int active = active_count();
  const bool strict = is_internal() && active > 1;
  const int need = active <= 1 ? 1 : is_internal() ? active : 2;
  const std::uint64_t last = std::min<std::uint64_t>(active <= 1 ? 16 : 64, size - 1);
  const auto record_bits = static_cast<std::uint64_t>(width);

  Candidate best;
  Candidate rejected;
  for (std::uint64_t b = 0; b <= last; ++b) {
    const std::uint64_t range_bits = 8 * std::min<std::uint64_t>(size - b, 65536);
    for (std::uint64_t p = 0; p < std::min(record_bits, range_bits); ++p) {
      if (p + record_bits > range_bits) {
        continue;
      }
      const Candidate candidate = scan_candidate(b, p, (range_bits - p) / record_bits, bits);
      if (!candidate.alignment.found || candidate.synced < need) {
        continue;
      }
      if (strict && (candidate.min == 0 || 2 * candidate.min < candidate.max)) {
        if (candidate.synced > rejected.synced ||
            (candidate.synced == rejected.synced && candidate.total > rejected.total)) {
          rejected = candidate;
        }
      } else if (is_better(candidate, best)) {
        best = candidate;
      }
    }
  }
  if (!best.alignment.found && strict && rejected.synced > 0) {
    log("reject internal alignment drop_bytes=", rejected.alignment.drop_bytes,
        " bit_offset=", rejected.alignment.bit_offset, " synced=", rejected.synced, "/", active,
        " min=", rejected.min, " max=", rejected.max, " total=", rejected.total);
  }
  return best.alignment;
}

}  // namespace zelk::reference
