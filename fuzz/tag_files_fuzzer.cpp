// Tag files against a literal parser: what is refused, for which line and why,
// and the tags, as they are read and as the unit that plays them streams them.
//
// The input is the file.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/input.hpp"
#include "fuzz/scratch_file.hpp"
#include "simulator/failure.hpp"
#include "simulator/open_backend.hpp"
#include "simulator/signals/tag_file.hpp"

namespace zelk::fuzz {
namespace {

using simulator::CallKind;
using simulator::DeviceBackend;
using simulator::DeviceCall;
using simulator::Failure;

constexpr std::int32_t malformed = -32;
constexpr std::int32_t out_of_order = -33;
constexpr std::int32_t channel_out_of_range = -34;
constexpr std::int32_t timed_out = -3;

struct Tag {
  std::uint64_t channel = 0;
  std::uint64_t time_ps = 0;
};

// What a file says, or what is wrong with its first bad line; of several things
// any may be told.
struct Contents {
  std::vector<Tag> tags;
  std::size_t bad_line = 0;  // from 1; 0: none
  std::set<std::int32_t> statuses;
};

// Digits and nothing else. A number too large for a time stays that.
std::optional<std::uint64_t> whole_number(std::string_view text) {
  constexpr std::uint64_t large = std::uint64_t{1} << 63;
  std::uint64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') {
      return std::nullopt;
    }
    value = value >= large / 16 ? large : 10 * value + static_cast<std::uint64_t>(c - '0');
  }
  return text.empty() ? std::nullopt : std::optional(value);
}

std::set<std::int32_t> take_line(std::string_view line, std::vector<Tag>& tags) {
  const std::size_t comma = line.find(',');
  if (comma == line.npos) {
    return {malformed};
  }
  const std::optional<std::uint64_t> channel = whole_number(line.substr(0, comma));
  const std::optional<std::uint64_t> time = whole_number(line.substr(comma + 1));
  std::set<std::int32_t> statuses;
  if (!channel || !time || *time >= std::uint64_t{1} << 61) {
    statuses.insert(malformed);
  }
  if (channel && *channel > 3) {
    statuses.insert(channel_out_of_range);
  }
  if (time && !tags.empty() && *time < tags.back().time_ps) {
    statuses.insert(out_of_order);
  }
  if (statuses.empty()) {
    tags.push_back({*channel, *time});
  }
  return statuses;
}

Contents read_literally(std::string_view file) {
  Contents contents;
  bool has_ended = false;
  std::size_t number = 0;
  do {
    ++number;
    const std::size_t end = std::min(file.find('\n'), file.size());
    std::string_view line = file.substr(0, end);
    file.remove_prefix(std::min(end + 1, file.size()));
    if (line.ends_with('\r')) {
      line.remove_suffix(1);
    }
    if (number == 1) {
      contents.statuses =
          line == "channel,timestamp_ps" ? std::set<std::int32_t>{} : std::set{malformed};
    } else if (line.empty()) {
      has_ended = true;
    } else if (has_ended) {
      contents.statuses = {malformed};
    } else {
      contents.statuses = take_line(line, contents.tags);
    }
    if (!contents.statuses.empty()) {
      contents.bad_line = number;
      return contents;
    }
  } while (!file.empty());
  return contents;
}

void judge_refusal(const Contents& expected, const Failure& failure) {
  if (expected.bad_line == 0) {
    report_finding(std::string("a good file is refused: ") + failure.what());
  }
  const std::string line = "line " + std::to_string(expected.bad_line) + " ";
  if (!std::string_view(failure.what()).starts_with(line)) {
    report_finding("expected " + line + ", is " + failure.what());
  }
  expect(expected.statuses.contains(static_cast<std::int32_t>(failure.status())),
         std::string("another status: ") + failure.what());
}

// Every byte that the unit streams in external mode, in the format that it has
// before another one is set: 8 bytes per tag.
Bytes streamed(DeviceBackend& unit) {
  DeviceCall start{.kind = CallKind::start_stream_mode, .arguments = {1, 0}};
  expect_equal("status of the start", 0, unit.call(start));
  Bytes stream;
  Bytes buffer(4096);
  for (;;) {
    std::size_t received = 0;
    try {
      expect_equal("status of a read", 0, unit.read(buffer, received, 0));
    } catch (const Failure& failure) {
      expect_equal("status after the last tag", timed_out,
                   static_cast<std::int32_t>(failure.status()));
      return stream;
    }
    stream.insert(stream.end(), buffer.begin(),
                  buffer.begin() + static_cast<std::ptrdiff_t>(received));
  }
}

// A tag at the same time as the one before it on its channel is lost.
std::vector<Tag> without_equal_times(const std::vector<Tag>& tags) {
  std::array<std::optional<std::uint64_t>, 4> last;
  std::vector<Tag> kept;
  for (const Tag& tag : tags) {
    if (last[tag.channel] != tag.time_ps) {
      kept.push_back(tag);
      last[tag.channel] = tag.time_ps;
    }
  }
  return kept;
}

void judge_stream(const std::vector<Tag>& tags, const Bytes& stream) {
  constexpr std::uint64_t epoch_ps = std::uint64_t{3333} << 32;
  const std::vector<Tag> expected = without_equal_times(tags);
  expect_equal("bytes streamed", 8 * expected.size(), stream.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    std::uint64_t word = 0;
    for (std::size_t k = 0; k < 8; ++k) {
      word = word << 8 | stream[8 * i + k];
    }
    expect_equal("channel of the record", expected[i].channel, word >> 61);
    expect_equal("fixed bits of the record", std::uint64_t{0}, word >> 44 & 0x1FFFF);
    expect_equal("time of the record", expected[i].time_ps % epoch_ps,
                 (word & 0xFFFFFFFFFFF) % epoch_ps);
  }
}

void run(Input input) {
  static ScratchFile scratch("tags.csv");
  const auto bytes = input.rest();
  scratch.fill(bytes);
  const Contents expected =
      read_literally({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  try {
    const simulator::FileTags actual = simulator::read_tag_file(scratch.path());
    expect_equal("line of the first mistake", expected.bad_line, std::size_t{0});
    expect_equal("tags in number", expected.tags.size(), actual.size());
    for (std::size_t i = 0; i < actual.size(); ++i) {
      expect_equal("channel", expected.tags[i].channel, std::uint64_t{actual[i].channel()});
      expect_equal("time", expected.tags[i].time_ps,
                   static_cast<std::uint64_t>(actual[i].time_ps()));
    }
  } catch (const Failure& failure) {
    return judge_refusal(expected, failure);
  }
  const auto unit =
      simulator::open_backend("sim://tags?pace=max&file=" + scratch.path(), std::nullopt);
  judge_stream(expected.tags, streamed(*unit));
}

}  // namespace
}  // namespace zelk::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zelk::fuzz::run({data, size});
  return 0;
}
