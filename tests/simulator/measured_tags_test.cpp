// Plays measured tags and expects the host to see every one of them. The file
// is not part of this repository: ZELK_MEASURED_TAGS names it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>

#include "simulator/failure.hpp"
#include "tests/simulator/device_client.hpp"
#include "tests/support/npy_bytes.hpp"
#include "tests/support/temporary_directory.hpp"
#include "timing/stream_decoder.hpp"

namespace zelk::simulator {
namespace {

using namespace std::chrono_literals;
using timing::Format;
using timing::TimeTag;

std::vector<TimeTag> listed_tags(const std::string& path) {
  std::ifstream file(path);
  std::string header;
  std::getline(file, header);
  std::vector<TimeTag> tags;
  int channel = 0;
  char comma = 0;
  std::int64_t time_ps = 0;
  while (file >> channel >> comma >> time_ps) {
    tags.push_back({static_cast<std::uint8_t>(channel), time_ps});
  }
  return tags;
}

constexpr std::uint8_t both_channels = 0x03;
constexpr std::uint8_t packed_bits = 16;
constexpr std::uint16_t packed_quantum_ps = 8;

std::string port_of(const std::string& path) {
  std::string port = "sim://tags?pace=max&file=";
  for (const char c : path) {
    port += c == '%' ? "%25" : c == '&' ? "%26" : std::string(1, c);
  }
  return port;
}

std::vector<TimeTag> seen_tags(UnitClient& unit, Format format) {
  timing::StreamFileHeader header;
  header.format = format;
  header.mode = timing::StreamMode::external;
  header.channel_mask = both_channels;
  header.packed_bits = packed_bits;
  header.packed_quantum_ps = packed_quantum_ps;
  timing::StreamDecoder decoder(header);
  unit.set_stream_interface(1, static_cast<std::uint32_t>(format));
  unit.set_packed_delta(packed_bits, packed_quantum_ps);
  unit.set_channel_mask(both_channels);
  unit.start_stream(1, 0);
  std::vector<TimeTag> tags;
  std::vector<std::uint8_t> buffer(262144);
  try {
    for (;;) {
      const std::size_t got = unit.read_stream(buffer, 20ms);
      const std::vector<TimeTag> part = decoder.feed(buffer.data(), got);
      tags.insert(tags.end(), part.begin(), part.end());
    }
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), Status::timed_out);
  }
  unit.stop_stream(true);
  return tags;
}

class MeasuredTags : public testing::Test {
 protected:
  void SetUp() override {
    const char* const path = std::getenv("ZELK_MEASURED_TAGS");
    if (path == nullptr) {
      GTEST_SKIP() << "ZELK_MEASURED_TAGS names no file";
    }
    port_ = port_of(path);
    tags_ = listed_tags(path);
    ASSERT_FALSE(tags_.empty());
  }

  // The tags in ticks; no two of a channel lie in the same one.
  [[nodiscard]] std::vector<TimeTag> tags_in_ticks() const {
    std::vector<TimeTag> tags = tags_;
    for (TimeTag& tag : tags) {
      tag.timestamp_ps -= tag.timestamp_ps % packed_quantum_ps;
    }
    return tags;
  }

  std::string port_;
  std::vector<TimeTag> tags_;
};

TEST_F(MeasuredTags, AreSeenAsTheyWereRecorded) {
  UnitClient unit(parse_device_port(port_));
  EXPECT_TRUE(seen_tags(unit, Format::raw64) == tags_);
  EXPECT_TRUE(seen_tags(unit, Format::delta32) == tags_);
}

TEST_F(MeasuredTags, AreSeenTheSameFromANumPyArray) {
  const test_support::TemporaryDirectory directory;
  const std::string path = directory.path() / "tags.npy";
  std::string array = test_support::npy_beginning_for(tags_.size());
  for (const TimeTag& tag : tags_) {
    array += test_support::npy_row(tag.channel, tag.timestamp_ps);
  }
  std::ofstream(path, std::ios::binary) << array;
  UnitClient unit(parse_device_port(port_of(path)));
  EXPECT_TRUE(seen_tags(unit, Format::raw64) == tags_);
  EXPECT_TRUE(seen_tags(unit, Format::packed_delta) == tags_in_ticks());
}

TEST_F(MeasuredTags, AreSeenInTicksInPackedDelta) {
  UnitClient unit(parse_device_port(port_));
  EXPECT_TRUE(seen_tags(unit, Format::packed_delta) == tags_in_ticks());
}

// Syncs come with each channel's first tag in every 10 ms. The host may pass
// over those in the first bytes while it looks for the alignment, so only from
// the second ones on is every tag sure to be seen.
TEST_F(MeasuredTags, JoinedMidwayAreSeenFromTheNextSyncsOn) {
  const auto in_first_slot = [](const TimeTag& tag) { return tag.timestamp_ps < 10'000'000'000; };
  UnitClient unit(parse_device_port(port_ + "&start_bits=7"));
  std::vector<TimeTag> seen = seen_tags(unit, Format::packed_delta);
  std::vector<TimeTag> expected = tags_in_ticks();
  for (const TimeTag& tag : seen) {
    if (in_first_slot(tag)) {
      EXPECT_NE(std::ranges::find(expected, tag), expected.end());
    }
  }
  std::erase_if(seen, in_first_slot);
  std::erase_if(expected, in_first_slot);
  EXPECT_TRUE(seen == expected);
}

}  // namespace
}  // namespace zelk::simulator
