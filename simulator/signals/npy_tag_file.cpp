#include "simulator/signals/npy_tag_file.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "simulator/failure.hpp"
#include "simulator/shown_text.hpp"
#include "simulator/signals/npy_header.hpp"
#include "simulator/signals/signal_source.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {
namespace {

constexpr std::size_t rows_per_read = std::size_t{1} << 14;

std::uint64_t little_endian(std::span<const char> bytes) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    value |= std::uint64_t{static_cast<std::uint8_t>(bytes[i])} << (8 * i);
  }
  return value;
}

std::string take_from_header(TagFileBytes& file, std::size_t count) {
  std::string bytes(count, '\0');
  if (file.read(bytes) != count) {
    npy::refuse_header(file.path(), "is cut short");
  }
  return bytes;
}

struct Header {
  std::uint64_t rows = 0;  // as the header counts them
  std::uint64_t size_bytes = 0;
};

Header read_header(TagFileBytes& file) {
  const std::string version =
      take_from_header(file, npy::magic.size() + npy::version_bytes).substr(npy::magic.size());
  const std::size_t length_bytes = npy::length_bytes(
      static_cast<std::uint8_t>(version[0]), static_cast<std::uint8_t>(version[1]), file.path());
  const std::uint64_t length = little_endian(take_from_header(file, length_bytes));
  if (length > npy::max_text_bytes) {
    npy::refuse_header(file.path(), "is too long");
  }
  const std::string text = take_from_header(file, static_cast<std::size_t>(length));
  return {.rows = npy::rows_told(text, file.path()),
          .size_bytes = npy::magic.size() + npy::version_bytes + length_bytes + length};
}

std::string number_of(std::uint64_t count, const char* thing) {
  return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

// What a run saved that had no time to write the count, or what a copy brought
// that was broken off, is not played as if it were whole.
void expect_counted_rows(const TagFileBytes& file, const Header& header) {
  const std::uint64_t behind = file.size_bytes() - std::min(file.size_bytes(), header.size_bytes);
  const std::uint64_t rows = behind / npy::row_bytes;
  const std::uint64_t rest = behind % npy::row_bytes;
  if (rows == header.rows && rest == 0) {
    return;
  }
  throw Failure(Status::tag_count_contradicted,
                "the tag file " + named(file.path()) + " holds " + number_of(rows, "row") +
                    (rest == 0 ? "" : " and " + number_of(rest, "byte")) +
                    ", but its header counts " + std::to_string(header.rows) +
                    (rows < header.rows
                         ? ": it is cut short"
                         : ": the run that saved it did not end; docs/saved-tags.md tells how to "
                           "recover it"));
}

// Takes the rows in turn and keeps their tags.
class RowReader {
 public:
  // For a file of so many rows.
  RowReader(const std::string& path, std::uint64_t rows) : path_(path) {
    tags_.reserve(static_cast<std::size_t>(rows));
  }

  // Whole rows.
  void take(std::span<const char> bytes) {
    for (; !bytes.empty(); bytes = bytes.subspan(npy::row_bytes)) {
      const auto channel = static_cast<std::uint8_t>(bytes[0]);
      // A negative time is a very late one here.
      const std::uint64_t time_ps = little_endian(bytes.subspan<npy::time_offset_bytes, 8>());
      if (channel >= timing::channel_count || time_ps >= end_ps || time_ps < last_ps_) {
        refuse(channel, time_ps);
      }
      last_ps_ = time_ps;
      tags_.emplace_back(channel, static_cast<std::int64_t>(time_ps));
    }
  }

  FileTags finish() { return std::move(tags_); }

 private:
  static constexpr auto end_ps = static_cast<std::uint64_t>(end_of_time_ps);

  [[noreturn]] void refuse(std::uint8_t channel, std::uint64_t time_ps) const {
    if (channel >= timing::channel_count) {
      fail(Status::tag_channel_out_of_range, "has a channel beyond 3");
    }
    if (time_ps >= end_ps) {
      fail(Status::tag_time_out_of_range, "has a time outside 0 to 2^61 - 1 ps");
    }
    fail(Status::tag_out_of_order, "is earlier than the tag before it");
  }

  [[noreturn]] void fail(Status status, const char* reason) const {
    throw Failure(status, "row " + std::to_string(tags_.size()) + " of the tag file " +
                              named(path_) + ' ' + reason + " (rows count from 0)");
  }

  const std::string& path_;
  FileTags tags_;
  std::uint64_t last_ps_ = 0;
};

}  // namespace

FileTags read_npy_tag_file(TagFileBytes& file) {
  const Header header = read_header(file);
  expect_counted_rows(file, header);
  RowReader reader(file.path(), header.rows);
  std::vector<char> bytes(rows_per_read * npy::row_bytes);
  for (std::uint64_t left = header.rows; left != 0;) {
    const std::uint64_t rows = std::min<std::uint64_t>(left, rows_per_read);
    const auto wanted = std::span(bytes).first(static_cast<std::size_t>(rows) * npy::row_bytes);
    if (file.read(wanted) != wanted.size()) {
      throw unreadable_tag_file(file.path(), "it was cut while it was read");
    }
    reader.take(wanted);
    left -= rows;
  }
  return reader.finish();
}

}  // namespace zelk::simulator
