#include "simulator/encoders/encoder_for.hpp"

#include <gtest/gtest.h>

#include "simulator/encoders/delta32_encoder.hpp"
#include "simulator/encoders/packed_delta_encoder.hpp"
#include "simulator/encoders/raw64_encoder.hpp"
#include "tests/simulator/expect_failure.hpp"
#include "tests/simulator/packed_streams.hpp"

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

TEST(EncoderFor, PackedDeltaIsTheSameInBothModes) {
  EXPECT_TRUE(makes<PackedDeltaEncoder>(Format::packed_delta, StreamMode::internal));
  EXPECT_TRUE(makes<PackedDeltaEncoder>(Format::packed_delta, StreamMode::external));
}

TEST(EncoderFor, PackedDeltaGetsItsParameters) {
  const TagList tags{{0, 1'000'000}, {0, 1'000'640}, {0, 1'001'600}};
  ByteList bytes;
  const auto encoder =
      encoder_for(Format::packed_delta, StreamMode::external, {.bits = 5, .quantum_ps = 32}, 3);
  for (const timing::TimeTag& tag : tags) {
    encoder->append(tag, bytes);
  }
  EXPECT_EQ(bytes, packed_bytes({.bits = 5, .quantum_ps = 32}, tags, 3));
  EXPECT_NE(bytes, packed_bytes({}, tags));
}

TEST(EncoderFor, AFormatThatDoesNotExistHasNone) {
  EXPECT_EQ(encoder_for(static_cast<Format>(3), StreamMode::external), nullptr);
}

TEST(FormatNumbered, IsRefusedBeyondTheLast) {
  EXPECT_EQ(format_numbered(0), Format::raw64);
  EXPECT_EQ(format_numbered(2), Format::packed_delta);
  EXPECT_EQ(failure_text(Status::out_of_range, [] { format_numbered(3); }),
            "format 3: 0 raw64, 1 delta32 or 2 packed_delta");
}

TEST(BitsPerTag, AreThoseOfAPlainRecord) {
  EXPECT_EQ(bits_per_tag(timing::Format::raw64, {}), 64);
  EXPECT_EQ(bits_per_tag(timing::Format::delta32, {}), 32);
  EXPECT_EQ(bits_per_tag(timing::Format::packed_delta, {.bits = 24}), 27);
}

}  // namespace
}  // namespace zelk::simulator
