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

// A port string behind its scheme.
struct FileAndQuery {
  explicit FileAndQuery(std::string_view text) : FileAndQuery(text, text.find('?')) {}
  FileAndQuery(std::string_view text, std::size_t mark)
      : file(percent_decoded(text.substr(0, mark))),
        query(mark == text.npos ? std::string_view() : text.substr(mark + 1)) {
    if (file.empty()) {
      throw Failure(Status::no_recording_named, "the port names no recording file");
    }
  }

  std::string file;
  PortQuery query;
};

std::string take_required(PortQuery& query, std::size_t row) {
  std::optional<std::string> value = take_words(query, row);
  if (!value) {
    throw Failure(Status::missing_port_key,
                  "tap:// needs " + std::string(port_keys[row].name) + "=...");
  }
  return *std::move(value);
}

}  // namespace

std::optional<TapPort> parse_tap_port(std::string_view port) {
  if (!port.starts_with(tap_scheme)) {
    return std::nullopt;
  }
  FileAndQuery parts(port.substr(tap_scheme.size()));
  TapPort parsed{.recording = std::move(parts.file),
                 .library = take_required(parts.query, key_row("library")),
                 .port = take_required(parts.query, key_row("port")),
                 .seed = take_seed(parts.query),
                 .faults = take_fault_plan(parts.query)};
  expect_all_taken(parts.query);
  return parsed;
}

std::optional<ReplayPort> parse_replay_port(std::string_view port) {
  if (!port.starts_with(replay_scheme)) {
    return std::nullopt;
  }
  FileAndQuery parts(port.substr(replay_scheme.size()));
  ReplayPort parsed{.recording = std::move(parts.file),
                    .pace = take_pace(parts.query),
                    .cut_short_allowed = take_whole(parts.query, key_row("cut_short")) != 0,
                    .seed = take_seed(parts.query),
                    .faults = take_fault_plan(parts.query)};
  expect_all_taken(parts.query);
  return parsed;
}

}  // namespace zelk::simulator
