#include "simulator/recordings/recording_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "simulator/failure.hpp"
#include "simulator/recordings/crc32.hpp"
#include "simulator/shown_text.hpp"

namespace zelk::simulator {
namespace {

namespace format = recording_format;

Failure unreadable(const std::string& path, const std::string& reason) {
  return {Status::cannot_read_recording,
          "cannot read the recording " + named(path) + ": " + reason};
}

Failure not_opened(const std::string& path, int reason) {
  const bool holds_ampersand = path.find('&') != path.npos;
  return {Status::cannot_open_recording,
          "cannot open the recording " + named(path) + ": " +
              std::generic_category().message(reason) +
              (holds_ampersand ? " (a `&` in the path is a part of it; keys follow a `?`)" : "")};
}

FileDescriptor open_recording(const std::string& path) {
  // Without O_NONBLOCK a pipe without a writer would hold the open for ever.
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file.is_open()) {
    throw not_opened(path, errno);
  }
  struct stat about {};
  if (::fstat(file.get(), &about) != 0 || !S_ISREG(about.st_mode)) {
    throw unreadable(path, "it is no plain file");
  }
  return file;
}

// The times of a record: from and to.
struct RecordTimes {
  std::pair<std::uint64_t, std::uint64_t> operator()(const RecordedOpening&) const {
    return {0, 0};
  }
  std::pair<std::uint64_t, std::uint64_t> operator()(const RecordedQuiet& quiet) const {
    return {quiet.first_ns, quiet.last_ns};
  }
  template <typename T>
  std::pair<std::uint64_t, std::uint64_t> operator()(const T& record) const {
    return {record.time_ns, record.time_ns};
  }
};

}  // namespace

RecordingFile::RecordingFile(const std::string& path, bool cut_short_allowed)
    : file_(open_recording(path)), path_(path) {
  check_file_header();
  index(cut_short_allowed);
}

void RecordingFile::refuse_damage(std::uint32_t number, const char* what) const {
  throw Failure(Status::recording_corrupted, named(path_) + " is corrupted: record " +
                                                 std::to_string(number) + " of the recording " +
                                                 what);
}

void RecordingFile::check_file_header() const {
  std::array<std::uint8_t, format::file_header_bytes> header{};
  const std::size_t size = read_at(0, header);
  if (size < header.size() ||
      !std::equal(format::magic.begin(), format::magic.end(), header.begin())) {
    throw Failure(Status::not_a_recording, named(path_) + " is not a recording");
  }
  const std::uint32_t version = load_le32(header.data() + format::magic.size());
  if (version != format::version) {
    throw Failure(Status::unknown_recording_version,
                  named(path_) + " is a recording of version " + std::to_string(version) +
                      "; only version " + std::to_string(format::version) + " is known");
  }
}

void RecordingFile::index(bool cut_short_allowed) {
  RecordPlace place;
  std::uint64_t time_ns = 0;
  bool has_end = false;
  while (!has_end) {
    const std::uint32_t number = place.number;
    const std::optional<Record> record = read_record(place);
    if (!record) {
      break;
    }
    if (std::holds_alternative<RecordedOpening>(*record) != (number == 0)) {
      refuse_damage(number, "stands where it must not");
    }
    const auto [from_ns, to_ns] = std::visit(RecordTimes(), *record);
    if (from_ns < time_ns || to_ns < from_ns || to_ns >= format::end_of_time_ns) {
      refuse_damage(number, "has an impossible time");
    }
    time_ns = to_ns;
    has_end = std::holds_alternative<RecordedEnd>(*record);
    take(*record, place);
  }
  end_ = place;
  std::array<std::uint8_t, 1> more{};
  if (has_end && read_at(place.offset, more) != 0) {
    refuse_damage(place.number, "follows the end");
  }
  if (!has_end && !cut_short_allowed) {
    throw Failure(Status::recording_cut_short,
                  "the recording " + named(path_) + " is cut short after " +
                      std::to_string(place.number) + " whole records; cut_short=1 plays these");
  }
}

void RecordingFile::take(const Record& record, const RecordPlace& after) {
  if (const auto* opening = std::get_if<RecordedOpening>(&record)) {
    opening_ = *opening;
  } else if (const auto* call = std::get_if<RecordedCall>(&record)) {
    calls_.push_back({*call, after});
  }
}

std::optional<Record> RecordingFile::next(RecordPlace& place) const {
  if (place.number >= end_.number) {
    return std::nullopt;
  }
  std::optional<Record> record = read_record(place);
  if (!record) {
    refuse_damage(place.number, "was cut off after the file was opened");
  }
  return record;
}

// None where the file ends, be it inside a record. The header has a checksum
// of its own: a size that is damaged must not be mistaken for a record that the
// end of the file cuts off.
std::optional<Record> RecordingFile::read_record(RecordPlace& place) const {
  std::array<std::uint8_t, format::record_header_bytes> header{};
  const std::size_t header_size = read_at(place.offset, header);
  if (header_size < header.size()) {
    return std::nullopt;
  }
  if (load_le32(header.data() + 16) != crc32(std::span(header).first(16))) {
    refuse_damage(place.number, "has a damaged header");
  }
  if (load_le32(header.data()) != place.number) {
    refuse_damage(place.number, "is missing");
  }
  const std::size_t size = load_le32(header.data() + 8);
  if (size > format::max_payload_bytes) {
    refuse_damage(place.number, "is too long");
  }
  std::vector<std::uint8_t> payload(size);
  if (read_at(place.offset + header.size(), payload) < size) {
    return std::nullopt;
  }
  if (load_le32(header.data() + 12) != crc32(payload)) {
    refuse_damage(place.number, "has damaged contents");
  }
  std::optional<Record> record = parse_record(load_le32(header.data() + 4), payload);
  if (!record) {
    refuse_damage(place.number, "has impossible contents");
  }
  place.offset += header.size() + size;
  ++place.number;
  return record;
}

// As many bytes as there are, up to the size of `bytes`.
std::size_t RecordingFile::read_at(std::uint64_t offset, std::span<std::uint8_t> bytes) const {
  std::size_t have = 0;
  while (have < bytes.size()) {
    const ssize_t count = ::pread(file_.get(), bytes.data() + have, bytes.size() - have,
                                  static_cast<off_t>(offset + have));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      throw unreadable(path_, std::generic_category().message(errno));
    }
    if (count == 0) {
      break;
    }
    have += static_cast<std::size_t>(count);
  }
  return have;
}

}  // namespace zelk::simulator
