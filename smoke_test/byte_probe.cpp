#include "smoke_test/byte_probe.hpp"

#include <algorithm>

void ByteProbe::add_bytes(std::span<const std::uint8_t> bytes) {
  const auto is_nonzero = [](std::uint8_t byte) { return byte != 0; };
  if (first_nonzero_offset < 0) {
    const auto first = std::ranges::find_if(bytes, is_nonzero);
    if (first != bytes.end()) {
      first_nonzero_offset = static_cast<std::int64_t>(payload_bytes) + (first - bytes.begin());
    }
  }
  nonzero_bytes += static_cast<std::uint64_t>(std::ranges::count_if(bytes, is_nonzero));
  payload_bytes += bytes.size();
  const auto kept = bytes.first(std::min(bytes.size(), first_bytes_kept - first_bytes.size()));
  first_bytes.insert(first_bytes.end(), kept.begin(), kept.end());
}

void ByteProbe::add_tags(std::span<const zelk::timing::TimeTag> tags) {
  decoded_total += tags.size();
  for (const zelk::timing::TimeTag& tag : tags) {
    if (tag.channel < decoded.size()) {
      ++decoded[tag.channel];
    }
  }
}
