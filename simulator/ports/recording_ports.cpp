#include "simulator/ports/recording_ports.hpp"

#include <cstddef>
#include <utility>

#include "simulator/failure.hpp"
#include "simulator/ports/port_query.hpp"
#include "simulator/ports/port_values.hpp"

namespace zelk::simulator {
namespace {

constexpr std::string_view tap_scheme = "tap://";
constexpr std::string_view replay_scheme = "replay://";

// A port string behind its scheme. `usage` is how such a port is written.
struct FileAndQuery {
  FileAndQuery(std::string_view text, const char* usage)
      : FileAndQuery(text, text.find('?'), usage) {}
  FileAndQuery(std::string_view text, std::size_t mark, const char* usage)
      : file(percent_decoded(text.substr(0, mark))),
        query(mark == text.npos ? std::string_view() : text.substr(mark + 1),
              text.substr(0, mark)) {
    if (file.empty()) {
      throw Failure(Status::no_recording_named,
                    std::string("the port string names no recording file: ") + usage);
    }
  }

  std::string file;
  PortQuery query;
};

std::string take_required(PortQuery& query, std::size_t row, const char* value) {
  std::optional<std::string> taken = take_words(query, row);
  if (!taken) {
    throw missing_key(row, "tap://FILE", value);
  }
  return *std::move(taken);
}

}  // namespace

std::optional<TapPort> parse_tap_port(std::string_view port) {
  if (!port.starts_with(tap_scheme)) {
    return std::nullopt;
  }
  expect_one_line(port);
  FileAndQuery parts(port.substr(tap_scheme.size()), "tap://FILE?library=PATH&port=PORT");
  TapPort parsed{.recording = std::move(parts.file),
                 .library = take_required(parts.query, key_row("library"), "PATH"),
                 .port = take_required(parts.query, key_row("port"), "PORT"),
                 .seed = take_seed(parts.query),
                 .faults = take_fault_plan(parts.query)};
  expect_all_taken(parts.query, ports::tap);
  return parsed;
}

std::optional<ReplayPort> parse_replay_port(std::string_view port) {
  if (!port.starts_with(replay_scheme)) {
    return std::nullopt;
  }
  expect_one_line(port);
  FileAndQuery parts(port.substr(replay_scheme.size()), "replay://FILE");
  ReplayPort parsed{.recording = std::move(parts.file),
                    .pace = take_pace(parts.query),
                    .cut_short_allowed = take_whole(parts.query, key_row("cut_short")) != 0,
                    .seed = take_seed(parts.query),
                    .faults = take_fault_plan(parts.query)};
  expect_all_taken(parts.query, ports::replay);
  return parsed;
}

}  // namespace zelk::simulator
