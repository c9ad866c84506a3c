// The lock of the packed_delta path: how the alignment is found, moved on and
// given up, and the debug lines that tell of it.
#include <algorithm>
#include <bit>
#include <cstdlib>
#include <iostream>
#include <string>

#include "timing/detail/standard_error.hpp"
#include "timing/stream_decoder.hpp"
#include "timing/wire_format.hpp"

namespace zelk::timing {
namespace {

using std::to_string;

namespace packed = wire::packed_delta;

constexpr std::uint64_t max_debug_lines = 200;

// While unlocked: what is kept of a stream in which no alignment was found,
// and from how many bytes on that is worth a line.
constexpr std::size_t max_unaligned_bytes = 65536;
constexpr std::size_t kept_unaligned_bytes = 4096;
constexpr std::size_t reported_unaligned_bytes = 4096;

}  // namespace

void StreamDecoder::packed_debug_log(const std::string& text) const {
  if (std::getenv("ZELK_PACKED_DEBUG") != nullptr && debug_lines < max_debug_lines) {
    ++debug_lines;
    if (detail::standard_error_is_ready()) {
      std::cerr << "packed-decoder: " + text + "\n";
    }
  }
}

void StreamDecoder::consume_packed_records(std::size_t n) {
  bit_offset += (std::uint64_t{packed_bits} + packed::header_bits) * n;
  erase_front(std::min<std::uint64_t>(bit_offset / 8, pending.size()));
  bit_offset %= 8;
  packed_search_.forget();
}

void StreamDecoder::drop_packed_lock() {
  PackedLock& lock = *this;
  lock = {};
  packed_search_.forget();
}

PackedAlignment StreamDecoder::probe_packed_alignment(int bits, int width) const {
  PackedAlignmentSearch search;
  return width < 1 ? PackedAlignment{} : find_packed_alignment(bits, search);
}

PackedAlignment StreamDecoder::find_packed_alignment(int bits,
                                                     PackedAlignmentSearch& search) const {
  const std::uint8_t active_mask = active_channel_mask();
  const PackedAlignmentSearch::Result result =
      search.search({.bits = bits, .active_mask = active_mask, .mode = mode}, pending);
  if (!result.alignment.found && result.rejected) {
    const auto& [alignment, score] = *result.rejected;
    packed_debug_log("reject internal alignment drop_bytes=" + to_string(alignment.drop_bytes) +
                     " bit_offset=" + to_string(alignment.bit_offset) +
                     " synced=" + to_string(score.synced) + "/" +
                     to_string(std::popcount(active_mask)) + " min=" + to_string(score.min) +
                     " max=" + to_string(score.max) + " total=" + to_string(score.total));
  }
  return result.alignment;
}

// Tries to find the alignment in what is pending. Without one, only the last
// bytes of a long stretch are kept.
bool StreamDecoder::lock_packed_alignment() {
  const int bits = packed_bits;
  const PackedAlignment alignment = find_packed_alignment(bits, packed_search_);
  if (!alignment.found) {
    if (pending.size() >= reported_unaligned_bytes) {
      packed_debug_log("no alignment bits=" + to_string(bits) +
                       " width=" + to_string(bits + packed::header_bits) +
                       " raw_bytes=" + to_string(pending.size()));
    }
    if (pending.size() > max_unaligned_bytes) {
      erase_front(pending.size() - kept_unaligned_bytes);
      bit_offset = 0;
      packed_search_.forget();
    }
    return false;
  }
  erase_front(alignment.drop_bytes);
  packed_search_.forget();
  packed_locked = true;
  bit_offset = alignment.bit_offset;
  packed_debug_log(
      "locked bits=" + to_string(bits) + " drop_bytes=" + to_string(alignment.drop_bytes) +
      " bit_offset=" + to_string(alignment.bit_offset) + " raw_bytes=" + to_string(pending.size()));
  return true;
}

}  // namespace zelk::timing
