// The raw64 format in its two layouts. Times wrap at the coarse epoch, and a
// decoder unwraps them per channel: it sees them all as they are as long as a
// channel's first tag comes within the first epoch (14.3 s) and no channel is
// silent for half an epoch (7.1 s).
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "simulator/encoders/stream_encoder.hpp"

namespace zelk::simulator {

// Layout "ps": the time in picoseconds.
class Raw64Encoder final : public StreamEncoder {
 public:
  void append(const timing::TimeTag& tag, std::vector<std::uint8_t>& bytes) override;

 private:
  std::size_t append_near(std::span<const timing::TimeTag> tags,
                          std::vector<std::uint8_t>& bytes) override;
};

// Layout "raw_cf": the count of the first clock edge not before the event, and
// the fine code of the delay-line tap that comes nearest to the time from the
// event to that edge. Taps are 18.5 ps apart, so the time that a decoder sees
// differs from the tag's by 9 ps at most.
class CoarseFineEncoder final : public StreamEncoder {
 public:
  CoarseFineEncoder();

  void append(const timing::TimeTag& tag, std::vector<std::uint8_t>& bytes) override;

 private:
  // The fine code for each time from event to edge, 0 to 3332 ps.
  std::array<std::uint16_t, timing::clock_period_ps> code_of_remainder_{};
};

}  // namespace zelk::simulator
