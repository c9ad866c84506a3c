#include "simulator/encoder_for.hpp"

#include <gtest/gtest.h>

#include "simulator/delta32_encoder.hpp"
#include "simulator/raw64_encoder.hpp"

namespace zelk::simulator {
namespace {

using timing::Format;
using timing::StreamMode;

template <typename Encoder>
bool makes(Format format, StreamMode mode) {
  const auto encoder = encoder_for(format, mode);
  return dynamic_cast<Encoder*>(encoder.get()) != nullptr;
}

TEST(EncoderFor, Raw64HasItsCoarseFineLayoutInTheInternalMode) {
  EXPECT_TRUE(makes<CoarseFineEncoder>(Format::raw64, StreamMode::internal));
  EXPECT_TRUE(makes<Raw64Encoder>(Format::raw64, StreamMode::external));
}

TEST(EncoderFor, Delta32IsTheSameInBothModes) {
  EXPECT_TRUE(makes<Delta32Encoder>(Format::delta32, StreamMode::internal));
  EXPECT_TRUE(makes<Delta32Encoder>(Format::delta32, StreamMode::external));
}

}  // namespace
}  // namespace zelk::simulator
