// Plays measured tags and expects the host to see every one of them. The file
// is not part of this repository: ZELK_MEASURED_TAGS names it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "simulator/failure.hpp"
#include "simulator/unit.hpp"
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

std::vector<TimeTag> seen_tags(Unit& unit, Format format) {
  timing::StreamFileHeader header;
  header.format = format;
  header.mode = timing::StreamMode::external;
  timing::StreamDecoder decoder(header);
  unit.set_stream_interface(1, static_cast<std::uint32_t>(format));
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

TEST(MeasuredTags, AreSeenAsTheyWereRecorded) {
  const char* const path = std::getenv("ZELK_MEASURED_TAGS");
  if (path == nullptr) {
    GTEST_SKIP() << "ZELK_MEASURED_TAGS names no file";
  }
  const std::vector<TimeTag> expected = listed_tags(path);
  ASSERT_FALSE(expected.empty());
  std::string escaped;
  for (const char c : std::string(path)) {
    escaped += c == '%' ? "%25" : c == '&' ? "%26" : std::string(1, c);
  }
  Unit unit("sim://tags?file=" + escaped + "&pace=max");
  EXPECT_TRUE(seen_tags(unit, Format::raw64) == expected);
  EXPECT_TRUE(seen_tags(unit, Format::delta32) == expected);
}

}  // namespace
}  // namespace zelk::simulator
