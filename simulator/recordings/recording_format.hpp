// The layout of a recording file: what passed between a host and a device,
// record by record. docs/recording-format.md describes it byte by byte. All
// numbers are little-endian.
//
//   file:    magic (8) | version (4) | record | record | ...
//   record:  number (4) | type (4) | payload size (4) | CRC of the payload (4) |
//            CRC of the 16 bytes before (4) | payload
//
// Records are numbered from 0. The first is the opening; in a recording that
// was closed properly the last is the end.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "simulator/device_call.hpp"

namespace zelk::simulator {

namespace recording_format {

// The line ends and the 0x1A are damaged by what mistakes the file for text.
inline constexpr std::array<std::uint8_t, 8> magic{'Z', 'T', 'D', 'C', '\r', '\n', 0x1A, '\n'};
inline constexpr std::uint32_t version = 1;
inline constexpr std::size_t file_header_bytes = 12;
inline constexpr std::size_t record_header_bytes = 20;

// Bounds what a reader allocates, whatever a file says.
inline constexpr std::size_t max_payload_bytes = std::size_t{1} << 20;
inline constexpr std::size_t chunk_time_bytes = 8;
inline constexpr std::size_t max_chunk_bytes = max_payload_bytes - chunk_time_bytes;
inline constexpr std::size_t max_text_bytes = std::size_t{1} << 16;
inline constexpr std::uint32_t null_text = 0xFFFFFFFF;  // in place of a text's size

// Times are nanoseconds since the opening, below this bound and never falling.
inline constexpr std::uint64_t end_of_time_ns = std::uint64_t{1} << 62;

}  // namespace recording_format

enum class RecordType : std::uint32_t {
  opening = 0,
  call = 1,
  chunk = 2,
  quiet_reads = 3,
  failed_read = 4,
  end = 5,
};

// How a call was answered. Texts are there when the status is not 0; the last
// error may be missing then, too.
struct RecordedAnswer {
  std::int32_t status = 0;
  std::optional<std::string> status_text{};
  std::optional<std::string> last_error{};

  bool operator==(const RecordedAnswer&) const = default;
};

struct RecordedOpening {
  std::string library;
  std::string port;
  std::int32_t rate = 0;  // 0: opened at the library's standard rate
};

struct RecordedCall {
  std::uint64_t time_ns = 0;
  DeviceCall call;
  RecordedAnswer answer;
};

// Reads one after another that brought nothing and were answered alike, with
// status 0 or "nothing arrived in time".
struct RecordedQuiet {
  std::uint64_t first_ns = 0;
  std::uint64_t last_ns = 0;
  std::uint64_t count = 0;
  RecordedAnswer answer;
};

struct RecordedFailedRead {
  std::uint64_t time_ns = 0;
  RecordedAnswer answer;
};

}  // namespace zelk::simulator
