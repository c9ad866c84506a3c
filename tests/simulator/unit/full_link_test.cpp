#include "simulator/unit/full_link.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "simulator/encoders/encoder_for.hpp"

namespace zelk::simulator {
namespace {

struct Stream {
  timing::Format format;
  PackedDeltaSettings packed_delta;
};

constexpr Stream streams[] = {
    {timing::Format::raw64, {}},
    {timing::Format::delta32, {}},
    {timing::Format::packed_delta, {.bits = 16, .quantum_ps = 8}},
    {timing::Format::packed_delta, {.bits = 24, .quantum_ps = 1}},
    {timing::Format::packed_delta, {.bits = 8, .quantum_ps = 8}},
    {timing::Format::packed_delta, {.bits = 4, .quantum_ps = 1}},
};

// Bytes per second of tags on `channels` channels in turn, over 0.1 s.
double bytes_per_s(const Stream& stream, int channels, double step_ps) {
  const auto encoder =
      encoder_for(stream.format, timing::StreamMode::external, stream.packed_delta);
  std::vector<std::uint8_t> bytes;
  for (int tag = 0; tag * step_ps < 100e9; ++tag) {
    encoder->append({static_cast<std::uint8_t>(tag % channels), std::llround(tag * step_ps)},
                    bytes);
  }
  return static_cast<double>(bytes.size()) * 10;
}

TEST(FullLink, IsFilledAndNotOverfilledByEveryStream) {
  for (const double rate : {1e6, 1e7}) {
    for (const auto& [mask, channels] : {std::pair{0xF, 4}, std::pair{0x5, 2}, std::pair{0x8, 1}}) {
      for (const Stream& stream : streams) {
        SCOPED_TRACE(testing::Message()
                     << rate << " B/s, " << channels << " channels, "
                     << bits_per_tag(stream.format, stream.packed_delta) << " bits");
        const double step_ps = shortest_step_ps(stream.format, stream.packed_delta,
                                                static_cast<std::uint8_t>(mask), rate);
        // The beginning and the ends of bytes make up to 1 % in 100 kB.
        EXPECT_LE(bytes_per_s(stream, channels, step_ps), rate * 1.01);
        EXPECT_GE(bytes_per_s(stream, channels, step_ps * 0.98), rate);
      }
    }
  }
}

// 64 bits, or four words of 32 where every tag has its base.
TEST(FullLink, CountsTheWordsThatSlowTagsNeed) {
  EXPECT_NEAR(shortest_step_ps(timing::Format::raw64, {}, 0xF, 1000), 8e9, 8e6);
  EXPECT_NEAR(shortest_step_ps(timing::Format::delta32, {}, 0xF, 1000), 16e9, 16e6);
}

TEST(FullLink, WithoutChannelsIsNoReasonToFail) {
  EXPECT_EQ(shortest_step_ps(timing::Format::raw64, {}, 0, 1e6), 8e6);
  EXPECT_EQ(shortest_step_ps(timing::Format::raw64, {}, 0xF0, 1e6), 8e6);
}

}  // namespace
}  // namespace zelk::simulator
