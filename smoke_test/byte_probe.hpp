// What a byte probe brings: whether the device sends anything at all, and
// whether that decodes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "timing/time_tag.hpp"

struct ByteProbe {
  static constexpr std::size_t first_bytes_kept = 128;

  std::vector<std::uint8_t> first_bytes;   // the stream's first, at most first_bytes_kept
  std::uint64_t payload_bytes = 0;         // received in total
  std::uint64_t nonzero_bytes = 0;         // of them, those that are not 0x00
  std::int64_t first_nonzero_offset = -1;  // in the stream; -1: none
  std::uint64_t decoded_total = 0;         // tags
  std::array<std::uint64_t, zelk::timing::channel_count> decoded{};  // tags per channel
  int interrupting_signal = 0;  // that ended the probe early, or 0

  // Counts one read's bytes.
  void add_bytes(std::span<const std::uint8_t> bytes);

  // Counts the tags that they completed. A channel above 3 counts in the total
  // only.
  void add_tags(std::span<const zelk::timing::TimeTag> tags);
};
