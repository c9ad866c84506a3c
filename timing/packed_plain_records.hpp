// The fast path of the packed_delta decoder: the records that nearly all of a
// stream consists of. What they do to the lock is what the general rules would
// have done.
#pragma once

#include <cstdint>
#include <span>

#include "timing/packed_batch.hpp"
#include "timing/stream_decoder.hpp"

namespace zelk::timing::detail {

// Takes tags and overflows outside of syncs, from the record at `bit` on, as long
// as their channels have a time and the deltas need no thought. Returns the bit
// behind the last one taken. It stops at any other record, for want of room for
// tags, and where eight bytes can no longer be loaded.
std::uint64_t take_plain_records(PackedBatch& batch, PackedLock& lock,
                                 std::span<const std::uint8_t> bytes, std::uint64_t bit);

}  // namespace zelk::timing::detail
