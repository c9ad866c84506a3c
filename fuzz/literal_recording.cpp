#include "fuzz/literal_recording.hpp"

#include <array>
#include <cstddef>

#include "tests/simulator/recording_bytes.hpp"

namespace zelk::fuzz {
namespace {

struct Shape {
  std::size_t arguments;
  std::size_t results;
};

// Words of each kind of call.
constexpr std::array<Shape, 16> shapes{{{0, 12},
                                        {1, 0},
                                        {0, 9},
                                        {2, 9},
                                        {4, 0},
                                        {0, 4},
                                        {4, 0},
                                        {1, 1},
                                        {2, 2},
                                        {2, 0},
                                        {1, 0},
                                        {1, 1},
                                        {0, 0},
                                        {0, 0},
                                        {2, 0},
                                        {1, 0}}};

// Goes through a payload. Whatever is not there, or cannot be, makes it bad.
struct Payload {
  std::uint64_t number(std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t k = 0; k < size; ++k) {
      if (next == bytes.size()) {
        is_bad = true;
        return 0;
      }
      value |= std::uint64_t{bytes[next++]} << (8 * k);
    }
    return value;
  }

  std::optional<std::string> text() {
    const std::uint64_t size = number(4);
    if (size == 0xFFFFFFFF) {
      return std::nullopt;
    }
    if (size > 65536) {
      is_bad = true;
    }
    std::string text;
    while (!is_bad && text.size() < size) {
      text += static_cast<char>(number(1));
    }
    return text;
  }

  LiteralAnswer answer() {
    LiteralAnswer answer;
    answer.status = static_cast<std::int32_t>(number(4));
    answer.status_text = text();
    answer.last_error = text();
    const bool failed = answer.status != 0;
    is_bad = is_bad || answer.status_text.has_value() != failed;
    is_bad = is_bad || (!failed && answer.last_error.has_value());
    return answer;
  }

  Bytes bytes;
  std::size_t next = 0;
  bool is_bad = false;
};

// What a record says, and the times that it names.
struct Contents {
  LiteralRecord record;
  std::vector<std::uint64_t> times;
  bool are_bad = false;
};

Contents contents_of(std::uint64_t type, Bytes bytes) {
  Contents contents;
  LiteralRecord& record = contents.record;
  Payload payload{.bytes = std::move(bytes)};
  record.type = static_cast<LiteralRecord::Type>(type);
  if (type == 0) {
    const bool has_library = payload.text().has_value();
    const bool has_port = payload.text().has_value();
    contents.are_bad = !has_library || !has_port;
    payload.number(4);
  } else if (type <= 5) {
    contents.times.push_back(payload.number(8));
  }
  if (type == 1) {
    const std::uint64_t kind = payload.number(4);
    contents.are_bad = kind >= shapes.size();
    record.kind = static_cast<std::uint32_t>(kind);
    const Shape shape = contents.are_bad ? Shape{} : shapes[kind];
    record.answer = payload.answer();
    for (std::size_t i = 0; i < shape.arguments; ++i) {
      record.arguments.push_back(payload.number(8));
    }
    for (std::size_t i = 0; i < shape.results; ++i) {
      record.results.push_back(payload.number(8));
    }
  } else if (type == 2) {
    while (payload.next < payload.bytes.size()) {
      record.bytes.push_back(static_cast<std::uint8_t>(payload.number(1)));
    }
  } else if (type == 3) {
    contents.times.push_back(payload.number(8));
    payload.number(8);
    record.answer = payload.answer();
    contents.are_bad = record.answer.status != 0 && record.answer.status != -3;
  } else if (type == 4) {
    record.answer = payload.answer();
    contents.are_bad = record.answer.status == 0;
  }
  contents.are_bad =
      contents.are_bad || payload.is_bad || type > 5 || payload.next != payload.bytes.size();
  return contents;
}

class File {
 public:
  explicit File(const Bytes& bytes) : bytes_(bytes) {}

  [[nodiscard]] std::size_t size() const { return bytes_.size(); }

  [[nodiscard]] std::uint64_t number_at(std::size_t place) const {
    return Payload{.bytes = part(place, 4)}.number(4);
  }

  [[nodiscard]] Bytes part(std::size_t place, std::size_t count) const {
    const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(place);
    return {begin, begin + static_cast<std::ptrdiff_t>(count)};
  }

 private:
  const Bytes& bytes_;
};

}  // namespace

LiteralRecording read_literally(const Bytes& bytes) {
  const File file(bytes);
  LiteralRecording recording;
  const auto ended = [&](LiteralRecording::State state) {
    recording.state = state;
    return recording;
  };
  if (file.size() < 12 || file.part(0, 8) != Bytes{'Z', 'T', 'D', 'C', '\r', '\n', 0x1A, '\n'}) {
    return ended(LiteralRecording::not_a_recording);
  }
  if (file.number_at(8) != 1) {
    return ended(LiteralRecording::unknown_version);
  }
  std::size_t place = 12;
  std::uint64_t last_time = 0;
  for (std::uint64_t number = 0;; ++number) {
    if (file.size() - place < 20) {
      return ended(LiteralRecording::cut_short);
    }
    const std::uint64_t type = file.number_at(place + 4);
    const std::uint64_t size = file.number_at(place + 8);
    const bool is_header_whole =
        file.number_at(place + 16) == simulator::literal_crc32(file.part(place, 16));
    if (!is_header_whole || file.number_at(place) != number || size > 1048576) {
      return ended(LiteralRecording::corrupted);
    }
    if (file.size() - place - 20 < size) {
      recording.may_be_corrupted = type > 5 || (type == 0) != (number == 0);
      return ended(LiteralRecording::cut_short);
    }
    const Bytes payload = file.part(place + 20, static_cast<std::size_t>(size));
    if (file.number_at(place + 12) != simulator::literal_crc32(payload)) {
      return ended(LiteralRecording::corrupted);
    }
    const Contents contents = contents_of(type, payload);
    if (contents.are_bad || (type == 0) != (number == 0)) {
      return ended(LiteralRecording::corrupted);
    }
    for (const std::uint64_t time : contents.times) {
      if (time < last_time || time >= std::uint64_t{1} << 62) {
        return ended(LiteralRecording::corrupted);
      }
      last_time = time;
    }
    place += 20 + static_cast<std::size_t>(size);
    if (type == 5) {
      return ended(place == file.size() ? LiteralRecording::whole : LiteralRecording::corrupted);
    }
    if (type != 0) {
      recording.records.push_back(contents.record);
    }
  }
}

}  // namespace zelk::fuzz
