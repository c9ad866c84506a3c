// Replays of recording files: whether a file is valid is judged by a literal
// reading of the format's page, and what comes back when the host asks what the
// recorded host asked is what stands in the file.
//
// The input: flags, a place (u16) and a byte for the damage, the size of the
// reads, and the records without their headers, divided by FF FE: the type in one
// byte, then the payload. Magic, numbers, sizes and checksums are put around them,
// so that what lies behind these is reached. With the flag for that the rest is
// the file as it is.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fuzz/input.hpp"
#include "fuzz/literal_recording.hpp"
#include "fuzz/scratch_file.hpp"
#include "simulator/failure.hpp"
#include "simulator/open_backend.hpp"
#include "simulator/status_texts.hpp"
#include "tests/simulator/recording_bytes.hpp"

namespace zelk::fuzz {
namespace {

using simulator::DeviceBackend;
using simulator::DeviceCall;
using simulator::Failure;

// Statuses of the page on recordings, and of reads.
constexpr std::int32_t timed_out = -3;
constexpr std::int32_t not_streaming = -8;
constexpr std::int32_t contradicts = -72;

constexpr std::uint32_t start_kind = 14;
constexpr std::uint32_t stop_kind = 15;

struct Flags {
  explicit Flags(std::uint8_t byte)
      : cut_short_allowed((byte & 1U) != 0), as_it_is((byte & 2U) != 0), damage(byte >> 2 & 3U) {}

  bool cut_short_allowed;
  bool as_it_is;
  unsigned damage;  // 0: none, 1: cut off, 2: one byte changed, 3: one byte more
};

// ---- The file ----------------------------------------------------------------

std::vector<simulator::TypedPayload> take_records(Input& input) {
  constexpr std::array<std::uint8_t, 2> divider{0xFF, 0xFE};
  const auto rest = input.rest();
  std::vector<simulator::TypedPayload> records;
  for (auto begin = rest.begin(); begin != rest.end();) {
    const auto end = std::search(begin, rest.end(), divider.begin(), divider.end());
    if (begin != end) {
      records.push_back({.type = *begin, .payload = Bytes(begin + 1, end)});
    }
    begin = end != rest.end() ? end + divider.size() : end;
  }
  return records;
}

Bytes take_file(const Flags& flags, std::size_t place, std::uint8_t byte, Input& input) {
  if (flags.as_it_is) {
    const auto rest = input.rest();
    return {rest.begin(), rest.end()};
  }
  Bytes file = simulator::recording_bytes(take_records(input));
  place %= file.size();
  if (flags.damage == 1) {
    file.resize(place);
  } else if (flags.damage == 2) {
    file[place] ^= byte;
  } else if (flags.damage == 3) {
    file.push_back(byte);
  }
  return file;
}

// ---- The replay ----------------------------------------------------------------

// The device; none, and the status, when the open fails.
struct Opened {
  std::unique_ptr<DeviceBackend> device;
  std::int32_t status = 0;
};

Opened open(const std::string& path, bool cut_short_allowed) {
  const std::string port =
      "replay://" + path + "?pace=max&cut_short=" + (cut_short_allowed ? "1" : "0");
  try {
    return {.device = simulator::open_backend(port, std::nullopt), .status = 0};
  } catch (const Failure& failure) {
    expect(*failure.what() != '\0', "a refused recording has a reason");
    return {.device = nullptr, .status = static_cast<std::int32_t>(failure.status())};
  }
}

void judge_open(const LiteralRecording& recording, bool cut_short_allowed, std::int32_t status) {
  const auto expected = [&] {
    switch (recording.state) {
      case LiteralRecording::whole:
        return 0;
      case LiteralRecording::cut_short:
        return cut_short_allowed ? 0 : -70;
      case LiteralRecording::not_a_recording:
        return -68;
      case LiteralRecording::unknown_version:
        return -69;
      case LiteralRecording::corrupted:
        break;
    }
    return -71;
  }();
  if (status != -71 || !recording.may_be_corrupted) {
    expect_equal("status of the open", expected, status);
  }
}

// Texts end at their first zero byte, as any text of a C interface.
std::string as_seen(const std::string& text) {
  return text.c_str();
}

void expect_answer(const DeviceBackend& device, const LiteralAnswer& expected,
                   std::int32_t status) {
  expect_equal("status", expected.status, status);
  const char* const error = device.last_error();
  if (status == 0) {
    expect(error != nullptr && *error == '\0', "a success clears the last error");
    return;
  }
  expect_equal("a last error", expected.last_error.has_value(), error != nullptr);
  if (expected.last_error) {
    expect_equal("last error", as_seen(*expected.last_error), std::string(error));
  }
  // After very many different texts no more are kept.
  const std::string text = simulator::StatusTexts::instance().text(status);
  if (text != simulator::status_text(status)) {
    expect_equal("status text", as_seen(expected.status_text.value_or("")), text);
  }
}

class Host {
 public:
  Host(DeviceBackend& device, const LiteralRecording& recording, std::size_t read_bytes)
      : device_(device), records_(recording.records), buffer_(read_bytes) {}

  // Asks what the recorded host asked, and reads all that it read.
  void ask_the_same() {
    expect_refused_read();
    for (std::size_t i = 0; i < records_.size(); ++i) {
      const LiteralRecord& record = records_[i];
      if (record.type != LiteralRecord::call) {
        continue;
      }
      ask(record);
      const bool succeeded = record.answer.status == 0;
      streaming_ = (streaming_ || (record.kind == start_kind && succeeded)) &&
                   !(record.kind == stop_kind && succeeded);
      if (record.kind == start_kind && succeeded) {
        read_stream(i + 1);
      }
    }
    if (!streaming_) {
      expect_refused_read();
    }
  }

  // Starts the first stream without any setting.
  void start_at_once() {
    bool has_settings = false;
    for (const LiteralRecord& record : records_) {
      if (record.type != LiteralRecord::call) {
        continue;
      }
      if (record.kind == start_kind) {
        return expect_start(record, has_settings);
      }
      const bool is_setting =
          record.kind != 0 && record.kind != 2 && record.kind != 5 && record.kind != stop_kind;
      has_settings = has_settings || (is_setting && record.answer.status == 0);
    }
  }

 private:
  DeviceCall call_of(const LiteralRecord& record) const {
    DeviceCall call{.kind = static_cast<simulator::CallKind>(record.kind)};
    std::ranges::copy(record.arguments, call.arguments.begin());
    return call;
  }

  void ask(const LiteralRecord& record) {
    DeviceCall call = call_of(record);
    try {
      const std::int32_t status = device_.call(call);
      expect_answer(device_, record.answer, status);
    } catch (const Failure& failure) {
      report_finding(std::string("a recorded call is refused: ") + failure.what());
    }
    // A stop that is not in the recording has no results either.
    for (std::size_t i = 0; i < record.results.size(); ++i) {
      expect_equal("result", record.results[i], call.results[i]);
    }
  }

  void expect_start(const LiteralRecord& start, bool has_settings) {
    DeviceCall call = call_of(start);
    std::optional<std::int32_t> refusal;
    std::int32_t status = 0;
    try {
      status = device_.call(call);
    } catch (const Failure& failure) {
      expect(*failure.what() != '\0', "a refused call has a reason");
      refusal = static_cast<std::int32_t>(failure.status());
    }
    if (start.answer.status == 0 && has_settings) {
      expect_equal("refusal of a start without its settings", contradicts, refusal.value_or(0));
    } else {
      expect(!refusal, "a start that needs nothing is answered");
      expect_equal("status of the start", start.answer.status, status);
    }
  }

  // What a read brings, into buffer_.
  std::int32_t read(std::size_t& received) {
    received = 77;
    try {
      const std::int32_t status = device_.read(buffer_, received, 0);
      expect(received <= buffer_.size(), "a read keeps to its buffer");
      return status;
    } catch (const Failure& failure) {
      report_finding(std::string("a read of a stream is refused: ") + failure.what());
    }
  }

  void expect_refused_read() {
    std::size_t received = 77;
    try {
      device_.read(buffer_, received, 0);
    } catch (const Failure& failure) {
      expect_equal("read without a stream", not_streaming,
                   static_cast<std::int32_t>(failure.status()));
      return;
    }
    report_finding("a read without a stream is answered");
  }

  // The records from `first` on to the end of the stream.
  void read_stream(std::size_t first) {
    std::optional<std::int32_t> quiet;
    const LiteralAnswer* last_failure = nullptr;
    for (std::size_t i = first; i < records_.size(); ++i) {
      const LiteralRecord& record = records_[i];
      if (record.type == LiteralRecord::chunk) {
        last_failure = nullptr;
        read_chunk(record.bytes);
      } else if (record.type == LiteralRecord::failed_read) {
        last_failure = &record.answer;
        expect_failed_read(record.answer);
      } else if (record.type == LiteralRecord::quiet_reads) {
        last_failure = nullptr;
        quiet = record.answer.status;
      } else if (record.answer.status == 0 &&
                 (record.kind == start_kind || record.kind == stop_kind)) {
        break;
      }
    }
    for (int reads = 0; reads < 2; ++reads) {
      if (last_failure != nullptr) {
        expect_failed_read(*last_failure);
        continue;
      }
      std::size_t received = 0;
      const std::int32_t status = read(received);
      expect_equal("bytes after the last chunk", std::size_t{0}, received);
      expect(status == timed_out || status == quiet.value_or(timed_out), "reads time out");
    }
  }

  void read_chunk(std::span<const std::uint8_t> rest) {
    do {
      std::size_t received = 0;
      const std::int32_t status = read(received);
      expect_equal("status of a chunk", 0, status);
      expect_equal("bytes of a chunk", std::min(rest.size(), buffer_.size()), received);
      expect(std::equal(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(received),
                        buffer_.begin()),
             "a chunk has the recorded bytes");
      rest = rest.subspan(received);
    } while (!rest.empty());
  }

  void expect_failed_read(const LiteralAnswer& expected) {
    std::size_t received = 0;
    const std::int32_t status = read(received);
    expect_equal("bytes of a failed read", std::size_t{0}, received);
    expect_answer(device_, expected, status);
  }

  DeviceBackend& device_;
  const std::vector<LiteralRecord>& records_;
  Bytes buffer_;
  bool streaming_ = false;
};

void run(Input input) {
  static ScratchFile scratch("a.rec");
  const Flags flags(input.byte());
  const std::size_t place = input.number<std::uint16_t>();
  const std::uint8_t byte = input.byte();
  const std::size_t read_bytes = 1 + std::size_t{input.byte()} * 3;
  const Bytes file = take_file(flags, place, byte, input);
  scratch.fill(file);

  const LiteralRecording recording = read_literally(file);
  const Opened first = open(scratch.path(), flags.cut_short_allowed);
  judge_open(recording, flags.cut_short_allowed, first.status);
  if (first.device == nullptr) {
    return;
  }
  Host(*first.device, recording, read_bytes).ask_the_same();
  const Opened second = open(scratch.path(), flags.cut_short_allowed);
  expect_equal("status of a second open", 0, second.status);
  Host(*second.device, recording, read_bytes).start_at_once();
}

}  // namespace
}  // namespace zelk::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zelk::fuzz::run({data, size});
  return 0;
}
