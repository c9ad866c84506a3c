// From what a capture brought to everything that the report says about it. The
// figures of a channel and of the pair are computed in files of their own.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "smoke_test/capture_statistics.hpp"
#include "smoke_test/channel_analysis.hpp"
#include "smoke_test/pair_analysis.hpp"
#include "timing/time_tag.hpp"

struct Analysis {
  std::uint64_t tags_total = 0;
  std::array<ChannelAnalysis, zelk::timing::channel_count> channels;
  PairAnalysis pair;
  std::uint64_t reader_dropped = 0;  // tags discarded by the reader's queue limit
  TimeBins bins{TimeBins::min_width_s};
  // By the host's clock, as in Capture.
  double elapsed_s = 0.0;
  double host_pause_ms = 0.0;
  std::array<std::optional<double>, zelk::timing::channel_count> silent_tail_s{};
};

// Compares two channels, 0 to 3, as analyse_pair() does, and throws what it
// throws.
Analysis analyse(const Capture& capture, std::int32_t channel_a, std::int32_t channel_b,
                 std::int64_t window_ps);
