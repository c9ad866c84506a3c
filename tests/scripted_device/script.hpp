// What a scripted device answers: a plain value that a test fills, and its text
// form, in which it reaches a whole program. Usable from any thread.
//
// Text form, one item a line; "#" at the start of a line makes it a comment:
//
//   status <function> <status>...      statuses of its calls; the last one stays
//   delay <function> <ms>...           waited before its calls answer; the last one stays
//   status_text <status> <text>        what qx_status_string gives; "|" is a line feed
//   last_error <text>                  what qx_last_error gives, likewise; null without it
//   identity <192 hex digits>
//   discovered <port|null|empty> <192 hex digits|null>
//   reference_clock <nine numbers>
//   accepted_packed <bits> <quantum_ps>
//   applied_dead_time_ps <number>
//   divider <number>
//   read_back_masks <four numbers>
//   read status=<s> delay_ms=<d> bytes=<hex digits>     one stream read
//   read status=<s> delay_ms=<d> file=<path>            its bytes from a file
//   forever status=<s> delay_ms=<d> bytes=<hex digits>  every later read
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "timing/c_api/zelk_timing.h"

namespace scripted_device {

using Bytes = std::vector<std::uint8_t>;

// The texts are copied as they are and cut at their field's width.
qx_identity make_identity(std::string_view text_a, std::string_view text_b, std::string_view serial,
                          std::string_view device_text);

// The answer to one stream read. More bytes than the caller's buffer takes are
// kept for the reads that follow. The bytes are handed over whatever the
// status is, so that a caller which trusts them after a failure shows.
struct Read {
  static constexpr int delay_of_timeout = -1;  // the time-out that the caller passed, in ms

  Bytes bytes{};
  qx_status status = 0;
  int delay_ms = 0;  // waited before answering
};

struct DiscoveredEntry {
  std::optional<std::string> port{};      // none: a null pointer
  std::optional<qx_identity> identity{};  // none: a null pointer
};

struct Script {
  // The nth call takes the nth status, further calls the last. None: 0.
  std::map<std::string, std::vector<qx_status>> statuses{};
  std::map<std::string, std::vector<int>> delays_ms{};  // likewise, in ms; none: 0
  std::map<qx_status, std::string> status_texts{};      // missing ones read "status <number>"
  std::optional<std::string> last_error{};              // none: a null pointer

  qx_identity identity = make_identity("", "", "SN1", "scripted device");
  std::vector<DiscoveredEntry> discovered{};
  std::array<std::uint32_t, 9> reference_clock{1, 1, 0, 0, 0, 0, 0, 0, 0};
  // None: the request comes back.
  std::optional<std::pair<std::uint8_t, std::uint16_t>> accepted_packed{};
  std::optional<std::int64_t> applied_dead_time_ps{};
  std::optional<std::array<std::uint8_t, 4>> read_back_masks{};
  std::uint32_t divider = 0;

  std::vector<Read> reads{};
  // Every read after those: by default a time-out, after waiting for it.
  Read forever{.bytes = {}, .status = -3, .delay_ms = Read::delay_of_timeout};
};

std::string to_text(const Script& script);

// Throws std::runtime_error for a line that it does not understand.
Script parse_script(std::string_view text);

// The log without the stream reads that timed out: how many of them there are
// depends on the machine's speed.
std::vector<std::string> without_timeouts(const std::vector<std::string>& log);

// The log without any stream read.
std::vector<std::string> without_reads(const std::vector<std::string>& log);

}  // namespace scripted_device
