#include "simulator/status_texts.hpp"

#include <new>

#include "simulator/ports/port_values.hpp"
#include "simulator/shown_text.hpp"

namespace zelk::simulator {
namespace {

// Made when the library is loaded and not when first used: it so outlives the
// host's own global objects, which may still hold a device.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): has a lock of its own
StatusTexts process_texts;

}  // namespace

const char* status_text(std::int32_t status) noexcept {
  switch (static_cast<Status>(status)) {
    case Status::success:
      return "success";
    case Status::invalid_argument:
      return "invalid argument";
    case Status::out_of_memory:
      return "out of memory";
    case Status::timed_out:
      return "timed out";
    case Status::not_supported:
      return "not supported";
    case Status::no_device:
      return "no device found";
    case Status::busy:
      return "busy: the unit is streaming";
    case Status::not_available:
      return "not available on this unit";
    case Status::not_streaming:
      return "the unit is not streaming";
    case Status::out_of_range:
      return "value out of range";
    case Status::internal_error:
      return "internal error of the device library";
    case Status::no_such_unit:
      return "no such unit";
    case Status::malformed_port:
      return "malformed port string";
    case Status::unknown_scenario:
      return "unknown scenario in port string";
    case Status::unknown_port_key:
      return "unknown key in port string";
    case Status::missing_port_key:
      return "missing key in port string";
    case Status::repeated_port_key:
      return "repeated key in port string";
    case Status::cannot_open_tag_file:
      return "cannot open the tag file";
    case Status::cannot_read_tag_file:
      return "cannot read the tag file";
    case Status::malformed_tag_line:
      return "malformed line in the tag file";
    case Status::tag_out_of_order:
      return "tag file not in time order";
    case Status::tag_channel_out_of_range:
      return "channel out of range in the tag file";
    case Status::malformed_tag_header:
      return "malformed header of the tag file";
    case Status::tag_count_contradicted:
      return "the tag file does not hold the rows that it counts";
    case Status::tag_time_out_of_range:
      return "time out of range in the tag file";
    case Status::malformed_discovery:
      return "malformed value of ZELK_SIM_DISCOVERY";
    case Status::unit_vanished:
      return "the unit has vanished";
    case Status::cannot_load_library:
      return "cannot load the tapped library";
    case Status::library_lacks_function:
      return "the tapped library lacks a function of the interface";
    case Status::recording_exists:
      return "the recording file exists already";
    case Status::cannot_create_recording:
      return "cannot create the recording file";
    case Status::cannot_write_recording:
      return "cannot write the recording";
    case Status::no_recording_named:
      return "the port string names no recording file";
    case Status::cannot_open_recording:
      return "cannot open the recording";
    case Status::cannot_read_recording:
      return "cannot read the recording";
    case Status::not_a_recording:
      return "not a recording";
    case Status::unknown_recording_version:
      return "recording of an unknown version";
    case Status::recording_cut_short:
      return "the recording is cut short; cut_short=1 plays what there is";
    case Status::recording_corrupted:
      return "the recording is corrupted";
    case Status::contradicts_recording:
      return "contradicts the recording";
  }
  const char* const of_key = key_status_text(status);
  return of_key != nullptr ? of_key : unknown_status_text;
}

StatusTexts& StatusTexts::instance() {
  return process_texts;
}

void StatusTexts::give(std::int32_t status, Texts& texts, std::string_view text) {
  auto kept = texts.find(text);
  if (kept == texts.end()) {
    if (texts.size() >= max_texts) {
      given_.erase(status);
      return;
    }
    kept = texts.emplace(text).first;
  }
  if (given_.size() < max_statuses || given_.contains(status)) {
    given_[status] = kept->c_str();
  }
}

void StatusTexts::answered_elsewhere(std::int32_t status, std::string_view text) noexcept {
  const std::lock_guard lock(mutex_);
  try {
    give(status, from_elsewhere_, text);
  } catch (const std::bad_alloc&) {
    given_.erase(status);
  }
}

void StatusTexts::refused_without_device(std::int32_t status, std::string_view reason) noexcept {
  const std::lock_guard lock(mutex_);
  try {
    give(status, refusals_, in_one_line(reason, max_refusal_bytes));
  } catch (const std::bad_alloc&) {
    given_.erase(status);
  }
}

void StatusTexts::answered_here(std::int32_t status) noexcept {
  const std::lock_guard lock(mutex_);
  given_.erase(status);
}

const char* StatusTexts::text(std::int32_t status) noexcept {
  const std::lock_guard lock(mutex_);
  const auto found = given_.find(status);
  return found != given_.end() ? found->second : status_text(status);
}

}  // namespace zelk::simulator
