#include "simulator/recordings/record_parser.hpp"

#include <string>

#include "simulator/failure.hpp"

namespace zelk::simulator {
namespace {

namespace format = recording_format;

// Takes fields off the front. Once one is not there in full, or is not what it
// may be, everything after it reads as 0 and is_good() is false.
class Fields {
 public:
  explicit Fields(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  std::uint32_t u32() {
    const auto bytes = take(4);
    return bytes.empty() ? 0 : load_le32(bytes.data());
  }

  std::uint64_t u64() {
    const std::uint64_t low = u32();
    return low | std::uint64_t{u32()} << 32;
  }

  std::int32_t i32() { return static_cast<std::int32_t>(u32()); }

  std::optional<std::string> optional_text() {
    const std::uint32_t size = u32();
    if (size == format::null_text) {
      return std::nullopt;
    }
    require(size <= format::max_text_bytes);
    const auto bytes = take(size);
    return std::string(bytes.begin(), bytes.end());
  }

  std::string text() {
    std::optional<std::string> text = optional_text();
    require(text.has_value());
    return text.value_or("");
  }

  RecordedAnswer answer() {
    RecordedAnswer answer;
    answer.status = i32();
    answer.status_text = optional_text();
    answer.last_error = optional_text();
    require((answer.status != 0) == answer.status_text.has_value());
    require(answer.status != 0 || !answer.last_error);
    return answer;
  }

  std::vector<std::uint8_t> bytes() {
    const auto bytes = take(rest_.size());
    return {bytes.begin(), bytes.end()};
  }

  void require(bool condition) { good_ = good_ && condition; }
  [[nodiscard]] bool is_good() const { return good_; }
  [[nodiscard]] bool are_all_taken() const { return good_ && rest_.empty(); }

 private:
  std::span<const std::uint8_t> take(std::size_t count) {
    require(count <= rest_.size());
    if (!good_) {
      return {};
    }
    const auto taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }

  std::span<const std::uint8_t> rest_;
  bool good_ = true;
};

// Braces, so that the fields are taken in this order.
RecordedOpening opening(Fields& fields) {
  return {.library = fields.text(), .port = fields.text(), .rate = fields.i32()};
}

RecordedCall call(Fields& fields) {
  RecordedCall call;
  call.time_ns = fields.u64();
  const std::uint32_t kind = fields.u32();
  fields.require(kind < device_call_kinds);
  if (!fields.is_good()) {
    return call;
  }
  call.call.kind = static_cast<CallKind>(kind);
  call.answer = fields.answer();
  const CallShape& shape = shape_of(call.call.kind);
  for (std::size_t i = 0; i < shape.arguments; ++i) {
    call.call.arguments[i] = fields.u64();
  }
  for (std::size_t i = 0; i < shape.results; ++i) {
    call.call.results[i] = fields.u64();
  }
  return call;
}

RecordedQuiet quiet(Fields& fields) {
  RecordedQuiet quiet{.first_ns = fields.u64(),
                      .last_ns = fields.u64(),
                      .count = fields.u64(),
                      .answer = fields.answer()};
  constexpr auto timed_out = static_cast<std::int32_t>(Status::timed_out);
  fields.require(quiet.answer.status == 0 || quiet.answer.status == timed_out);
  return quiet;
}

RecordedFailedRead failed_read(Fields& fields) {
  RecordedFailedRead failed{.time_ns = fields.u64(), .answer = fields.answer()};
  fields.require(failed.answer.status != 0);
  return failed;
}

}  // namespace

std::optional<Record> parse_record(std::uint32_t type, std::span<const std::uint8_t> payload) {
  Fields fields(payload);
  std::optional<Record> record;
  switch (static_cast<RecordType>(type)) {
    case RecordType::opening:
      record = opening(fields);
      break;
    case RecordType::call:
      record = call(fields);
      break;
    case RecordType::chunk:
      record = RecordedChunk{.time_ns = fields.u64(), .bytes = fields.bytes()};
      break;
    case RecordType::quiet_reads:
      record = quiet(fields);
      break;
    case RecordType::failed_read:
      record = failed_read(fields);
      break;
    case RecordType::end:
      record = RecordedEnd{.time_ns = fields.u64()};
      break;
  }
  return fields.are_all_taken() ? record : std::nullopt;
}

}  // namespace zelk::simulator
