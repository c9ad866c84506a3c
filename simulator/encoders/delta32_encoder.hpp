// The delta32 format: the time since the channel's previous tag, and now and
// then a base, which carries the time itself.
//
// The deltas come from a counter of 41 bits that follows the unit's wrapping
// timestamps. Read across the end of a coarse epoch it shows wrap_excess_ps
// more than has passed, and the decoder takes that off again. The bases come
// from a free-running 41-bit counter. Every channel gets a base (sync word,
// low part, high part) right before its first tag and before the first tag
// that it has in each 10 ms of stream time.
//
// The rules by which the decoder reads steps set the format's limits; with g
// for wrap_excess_ps (1.078 s) and s for the step between two tags of one
// channel:
//
// - s <= g: a base says it, because it is lifted into the right one of the
//   counter's spans (g is less than half a span) and shows no excess. Steps
//   that stay inside one 10 ms slot go as deltas; one that crosses an epoch is
//   s + g on the wire, and its excess is always found because s <= 10 ms.
// - g < s < g + 2^25 ps: a base so much earlier than the tag that it lies
//   exactly g after the previous tag, and the rest in the tag's payload.
// - s >= g + 2^25 ps across the end of an epoch: the delta s + g, corrected
//   because it crosses.
// - s > g + 10 ms inside an epoch: the plain delta s, not corrected because
//   s - g is neither small nor crosses.
// - g + 2^25 ps <= s <= g + 10 ms inside an epoch: no words say this. The
//   decoder takes delta and base alike for s - g, which would put this channel
//   1.078 s early for good. Such a tag is left out; the channel's next tag
//   past that range (at most 10 ms of tags) goes out at its right time.
//
// A first base has only 41 bits: a channel whose first tag comes later than
// 2.199 s is seen a whole number of counter spans early, and its epochs then
// count from there. The unit's own epochs go on as well: a step of at most
// 10 ms across the end of one shows the excess, which is always found.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "simulator/encoders/stream_encoder.hpp"

namespace zelk::simulator {

class Delta32Encoder final : public StreamEncoder {
 public:
  static constexpr std::int64_t base_interval_ps = 10'000'000'000;

  void append(const timing::TimeTag& tag, std::vector<std::uint8_t>& bytes) override;

 private:
  // Nearly all tags of a busy stream are near: one word says the step, with no
  // base due and no end of an epoch between. With a near_end_ps of 0 the first
  // tag never is.
  struct Channel {
    [[nodiscard]] bool is_near(const timing::TimeTag& tag) const;
    void find_near_end();

    bool started = false;
    std::int64_t origin_ps = 0;    // lost by the first base: whole counter spans
    std::int64_t last_ps = 0;      // time of the last tag sent, since origin_ps
    std::int64_t base_slot = 0;    // the 10 ms of stream time with the last base
    std::int64_t near_end_ps = 0;  // stream time of the next slot or end of an epoch
  };

  std::size_t append_near(std::span<const timing::TimeTag> tags,
                          std::vector<std::uint8_t>& bytes) override;

  std::array<Channel, timing::channel_count> channels_{};
};

}  // namespace zelk::simulator
