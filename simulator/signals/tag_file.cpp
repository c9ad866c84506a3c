#include "simulator/signals/tag_file.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "simulator/failure.hpp"
#include "simulator/shown_text.hpp"
#include "simulator/signals/npy_header.hpp"
#include "simulator/signals/npy_tag_file.hpp"
#include "simulator/signals/tag_file_bytes.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {
namespace {

constexpr std::string_view header_line = "channel,timestamp_ps";
constexpr std::size_t chunk_bytes = std::size_t{1} << 18;
// No line of this file type comes near this length; without a bound, a file
// without line ends would be collected in memory as one line.
constexpr std::size_t max_line_bytes = 4096;

// Takes the lines one by one and collects the tags.
class LineParser {
 public:
  explicit LineParser(const std::string& path) : path_(path) {}

  void take(std::string_view line) {
    ++line_number_;
    if (!line.empty() && line.back() == '\r') {
      line.remove_suffix(1);
    }
    if (line_number_ == 1) {
      if (line != header_line) {
        fail(Status::malformed_tag_line, "is not the header \"channel,timestamp_ps\"");
      }
    } else if (line.empty()) {
      ended_ = true;
    } else {
      take_tag(line);
    }
  }

  // After the last line.
  FileTags finish() {
    if (line_number_ == 0) {
      take({});
    }
    tags_.shrink_to_fit();
    return std::move(tags_);
  }

  // For the line after the last one taken.
  [[noreturn]] void refuse_endless_line() {
    ++line_number_;
    fail(Status::malformed_tag_line, "is too long");
  }

 private:
  [[noreturn]] void fail(Status status, const char* reason) const {
    throw Failure(status, "line " + std::to_string(line_number_) + " of the tag file " +
                              named(path_) + ' ' + reason);
  }

  void take_tag(std::string_view line) {
    if (ended_) {
      fail(Status::malformed_tag_line, "follows an empty line");
    }
    const char* const end = line.data() + line.size();
    unsigned channel = 0;
    const auto [comma, channel_error] = std::from_chars(line.data(), end, channel);
    const bool channel_too_large = channel_error == std::errc::result_out_of_range;
    if ((channel_error != std::errc{} && !channel_too_large) || comma == end || *comma != ',') {
      fail(Status::malformed_tag_line, "does not begin with a channel number and a comma");
    }
    std::uint64_t time_ps = 0;
    const auto [rest, time_error] = std::from_chars(comma + 1, end, time_ps);
    if (time_error != std::errc{} || rest != end ||
        time_ps >= static_cast<std::uint64_t>(end_of_time_ps)) {
      fail(Status::malformed_tag_line, "does not end with a time from 0 to 2^61 - 1 ps");
    }
    if (channel_too_large || channel >= timing::channel_count) {
      fail(Status::tag_channel_out_of_range, "has a channel beyond 3");
    }
    const auto time = static_cast<std::int64_t>(time_ps);
    if (time < last_ps_) {
      fail(Status::tag_out_of_order, "is earlier than the tag before it");
    }
    last_ps_ = time;
    tags_.emplace_back(static_cast<std::uint8_t>(channel), time);
  }

  const std::string& path_;
  FileTags tags_;
  std::int64_t last_ps_ = 0;
  std::uint64_t line_number_ = 0;
  bool ended_ = false;
};

FileTags read_csv(TagFileBytes& file) {
  LineParser parser(file.path());
  std::vector<char> text(chunk_bytes + max_line_bytes);
  std::size_t kept = 0;  // bytes of a line whose end is still to come
  for (;;) {
    const std::size_t got = file.read(std::span(text).subspan(kept, chunk_bytes));
    std::string_view rest(text.data(), kept + got);
    for (std::size_t end = rest.find('\n'); end != rest.npos; end = rest.find('\n')) {
      parser.take(rest.substr(0, end));
      rest.remove_prefix(end + 1);
    }
    if (got == 0) {
      if (!rest.empty()) {
        parser.take(rest);
      }
      return parser.finish();
    }
    if (rest.size() > max_line_bytes) {
      parser.refuse_endless_line();
    }
    kept = rest.size();
    std::memmove(text.data(), rest.data(), kept);
  }
}

}  // namespace

// A file is what its first bytes say, whatever its name says.
FileTags read_tag_file(const std::string& path) {
  TagFileBytes file(path);
  std::array<char, npy::magic.size()> first{};
  const std::size_t got = file.read(first);
  file.rewind();
  const bool is_npy = std::string_view(first.data(), got) == npy::magic;
  return is_npy ? read_npy_tag_file(file) : read_csv(file);
}

// Straight from the file's tags, up to the end of a round at a time.
std::size_t TagFileSource::take(std::span<Event> events, std::int64_t before_ps) {
  std::size_t taken = 0;
  while (taken < events.size() && peek() != nullptr && event_.time_ps < before_ps) {
    const std::size_t end = next_ + std::min(events.size() - taken, tags_->size() - next_);
    for (; next_ < end; ++next_) {
      const FileTag tag = (*tags_)[next_];
      const std::int64_t time_ps = shift_ps_ + tag.time_ps();
      if (time_ps >= before_ps) {
        return taken;
      }
      events[taken++] = {time_ps, input_pulse_v, tag.channel()};
    }
  }
  return taken;
}

// A round that would not be over by the end of time is not begun.
bool TagFileSource::start_again() {
  if (gap_ps_ == 0 || tags_->empty()) {
    return false;
  }
  const std::int64_t last_ps = tags_->back().time_ps();
  const std::int64_t round_ps = last_ps - tags_->front().time_ps() + gap_ps_;
  if (round_ps >= end_of_time_ps - last_ps - shift_ps_) {
    return false;
  }
  shift_ps_ += round_ps;
  next_ = 0;
  return true;
}

}  // namespace zelk::simulator
