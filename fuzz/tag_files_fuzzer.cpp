// Tag files against literal parsers of both layouts: what is refused, for which
// line or row and why, and the tags, as they are read and as the unit that plays
// them streams them.
//
// The input is the file. An array that does not have the rows that it counts is
// judged a second time, with the rows that it has.
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
constexpr std::int32_t malformed_header = -35;
constexpr std::int32_t contradicted_count = -36;
constexpr std::int32_t time_out_of_range = -37;
constexpr std::int32_t timed_out = -3;

struct Tag {
  std::uint64_t channel = 0;
  std::uint64_t time_ps = 0;
};

// What a file says, or what is wrong with it at the first bad place; of several
// things any may be told.
struct Contents {
  std::vector<Tag> tags;
  std::string bad_place;  // as the refusal begins; empty: none
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

Contents read_text_literally(std::string_view file) {
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
      contents.bad_place = "line " + std::to_string(number) + " of the tag file ";
      return contents;
    }
  } while (!file.empty());
  return contents;
}

std::uint64_t little_endian(std::string_view bytes) {
  std::uint64_t value = 0;
  for (std::size_t i = bytes.size(); i > 0; --i) {
    value = 256 * value + static_cast<unsigned char>(bytes[i - 1]);
  }
  return value;
}

// An array file cut into its parts, as far as it has them.
struct Array {
  bool has_good_header = false;
  std::optional<std::uint64_t> count;  // none: more than 64 bits can say
  std::string_view rows;
};

constexpr std::string_view magic = "\x93NUMPY";
constexpr std::string_view before_count =
    "{'descr': [('channel', '|u1'), ('', '|V7'), ('timestamp_ps', '<i8')], "
    "'fortran_order': False, 'shape': (";

// The digits that the header's text must consist of but for what never differs.
std::optional<std::string_view> digits_of_count(std::string_view text) {
  if (!text.starts_with(before_count) || !text.ends_with('\n')) {
    return std::nullopt;
  }
  text.remove_prefix(before_count.size());
  text.remove_suffix(1);
  while (text.ends_with(' ')) {
    text.remove_suffix(1);
  }
  if (!text.ends_with(",), }")) {
    return std::nullopt;
  }
  text.remove_suffix(5);
  const bool is_number = !text.empty() && text.find_first_not_of("0123456789") == text.npos;
  return is_number && (text[0] != '0' || text.size() == 1) ? std::optional(text) : std::nullopt;
}

// None for a number of 2^64 or more.
std::optional<std::uint64_t> value_of(std::string_view digits) {
  std::uint64_t value = 0;
  for (const char c : digits) {
    const auto digit = static_cast<std::uint64_t>(c - '0');
    if (value > (UINT64_MAX - digit) / 10) {
      return std::nullopt;
    }
    value = 10 * value + digit;
  }
  return value;
}

Array cut_array(std::string_view file) {
  Array array;
  if (file.size() < 8 || file[7] != 0 || (file[6] != 1 && file[6] != 2)) {
    return array;
  }
  const std::size_t length_bytes = file[6] == 1 ? 2 : 4;
  if (file.size() < 8 + length_bytes) {
    return array;
  }
  const std::uint64_t length = little_endian(file.substr(8, length_bytes));
  file.remove_prefix(8 + length_bytes);
  if (length > 65535 || length > file.size()) {
    return array;
  }
  const auto digits = digits_of_count(file.substr(0, length));
  array.count = digits ? value_of(*digits) : std::nullopt;
  array.has_good_header = array.count.has_value();
  array.rows = file.substr(length);
  return array;
}

std::string some(std::size_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

Contents read_array_literally(std::string_view file, const std::string& path) {
  const Array array = cut_array(file);
  if (!array.has_good_header) {
    return {{}, "the header of the tag file ", {malformed_header}};
  }
  Contents contents;
  const std::size_t rows = array.rows.size() / 16;
  const std::size_t rest = array.rows.size() % 16;
  if (rest != 0 || rows != array.count) {
    return {{},
            "the tag file `" + path + "` holds " + some(rows, "row") +
                (rest == 0 ? "" : " and " + some(rest, "byte")) + ", but its header counts " +
                std::to_string(*array.count) + (rows < *array.count ? ": it is cut" : ": the run"),
            {contradicted_count}};
  }
  for (std::size_t row = 0; row < rows; ++row) {
    const Tag tag{static_cast<unsigned char>(array.rows[16 * row]),
                  little_endian(array.rows.substr(16 * row + 8, 8))};
    if (tag.channel > 3) {
      contents.statuses.insert(channel_out_of_range);
    }
    if (tag.time_ps >= std::uint64_t{1} << 61) {  // also a negative one
      contents.statuses.insert(time_out_of_range);
    } else if (!contents.tags.empty() && tag.time_ps < contents.tags.back().time_ps) {
      contents.statuses.insert(out_of_order);
    }
    if (!contents.statuses.empty()) {
      contents.bad_place = "row " + std::to_string(row) + " of the tag file ";
      return contents;
    }
    contents.tags.push_back(tag);
  }
  return contents;
}

// The same rows in version 1.0 with their right count, without what is no whole row.
std::string with_right_count(std::string_view rows) {
  rows = rows.substr(0, rows.size() / 16 * 16);
  const std::string text = std::string(before_count) + std::to_string(rows.size() / 16) + ",), }\n";
  return std::string(magic) + '\1' + '\0' + static_cast<char>(text.size()) + '\0' + text +
         std::string(rows);
}

void judge_refusal(const Contents& expected, const Failure& failure) {
  if (expected.bad_place.empty()) {
    report_finding(std::string("a good file is refused: ") + failure.what());
  }
  if (!std::string_view(failure.what()).starts_with(expected.bad_place)) {
    report_finding("expected " + expected.bad_place + ", is " + failure.what());
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

void judge_file(const std::string& file) {
  static ScratchFile scratch("tags");
  scratch.fill({reinterpret_cast<const std::uint8_t*>(file.data()), file.size()});
  const Contents expected = file.starts_with(magic) ? read_array_literally(file, scratch.path())
                                                    : read_text_literally(file);
  try {
    const simulator::FileTags actual = simulator::read_tag_file(scratch.path());
    expect_equal("the first mistake", expected.bad_place, std::string());
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

void run(Input input) {
  const auto bytes = input.rest();
  const std::string file(bytes.begin(), bytes.end());
  judge_file(file);
  if (!file.starts_with(magic)) {
    return;
  }
  const Array array = cut_array(file);
  if (array.has_good_header && array.count != array.rows.size() / 16) {
    judge_file(with_right_count(array.rows));
  }
}

}  // namespace
}  // namespace zelk::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zelk::fuzz::run({data, size});
  return 0;
}
