// A recording file read as its page in docs/ describes it: one record after
// another, from the whole file in memory. The judge of the real reader, with which
// it shares no code. Plain values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/input.hpp"

namespace zelk::fuzz {

struct LiteralAnswer {
  std::int32_t status = 0;
  std::optional<std::string> status_text;
  std::optional<std::string> last_error;
};

// A record other than the opening and the end.
struct LiteralRecord {
  enum Type : std::uint32_t { call = 1, chunk = 2, quiet_reads = 3, failed_read = 4 };

  Type type = call;
  LiteralAnswer answer;                  // of all but a chunk
  std::uint32_t kind = 0;                // of a call
  std::vector<std::uint64_t> arguments;  // of a call
  std::vector<std::uint64_t> results;    // of a call
  Bytes bytes;                           // of a chunk
};

struct LiteralRecording {
  enum State { whole, cut_short, not_a_recording, unknown_version, corrupted };

  State state = whole;
  // Cut off inside a record of which the header shows that it cannot be.
  bool may_be_corrupted = false;
  std::vector<LiteralRecord> records;
};

LiteralRecording read_literally(const Bytes& file);

}  // namespace zelk::fuzz
