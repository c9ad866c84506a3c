#include "simulator/open_backend.hpp"

#include <cstddef>
#include <string>
#include <utility>

#include "simulator/failure.hpp"
#include "simulator/model_backend.hpp"
#include "simulator/open_device_model.hpp"
#include "simulator/ports/pace.hpp"
#include "simulator/ports/port_query.hpp"
#include "simulator/ports/port_values.hpp"
#include "simulator/recordings/replay_device.hpp"
#include "simulator/recordings/tap_device.hpp"

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

TapPort parse_tap_port(std::string_view text) {
  FileAndQuery parts(text);
  TapPort port{.recording = std::move(parts.file),
               .library = take_required(parts.query, key_row("library")),
               .port = take_required(parts.query, key_row("port"))};
  expect_all_taken(parts.query);
  return port;
}

ReplayPort parse_replay_port(std::string_view text) {
  FileAndQuery parts(text);
  ReplayPort port{.recording = std::move(parts.file),
                  .pace = take_pace(parts.query),
                  .cut_short_allowed = take_whole(parts.query, key_row("cut_short")) != 0};
  expect_all_taken(parts.query);
  return port;
}

}  // namespace

std::unique_ptr<DeviceBackend> open_backend(std::string_view port, std::optional<int> rate) {
  if (port.starts_with(tap_scheme)) {
    return std::make_unique<TapDevice>(parse_tap_port(port.substr(tap_scheme.size())), rate);
  }
  if (port.starts_with(replay_scheme)) {
    return std::make_unique<ReplayDevice>(parse_replay_port(port.substr(replay_scheme.size())));
  }
  return std::make_unique<ModelBackend>(open_device_model(port, rate));
}

}  // namespace zelk::simulator
