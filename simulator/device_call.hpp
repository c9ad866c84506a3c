// The calls on a device: their names, and one call on an open device as plain
// numbers, so that devices which only pass calls on, write them down or look
// them up need no code per function. Values only; no threads.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace zelk::simulator {

// Every call that returns a status. The numbers of those that are made as a
// DeviceCall are the ones of recording files and never change.
enum class CallKind : std::uint32_t {
  identify = 0,
  load_calibration = 1,
  get_reference_clock_status = 2,
  set_reference_clock = 3,
  set_tdl_active_masks = 4,
  get_tdl_active_masks = 5,
  set_dac_codes = 6,
  set_input_dead_time = 7,
  set_packed_delta_config = 8,
  set_stream_interface = 9,
  set_stream_channel_mask = 10,
  set_calibration_freq = 11,
  enable_calibration_source = 12,
  disable_calibration_source = 13,
  start_stream_mode = 14,
  stop_stream_mode = 15,
  // No DeviceCall: opening, in both ways, happens before there is a device, and
  // reading the stream is a function of its own.
  open = 16,
  read_stream_bytes = 17,
};

inline constexpr std::size_t device_call_kinds = static_cast<std::size_t>(CallKind::open);

struct CallShape {
  std::string_view name;  // without "qx_" in front
  std::size_t arguments;  // words in
  std::size_t results;    // words out
  bool is_setting;        // lasts, and may change what streams afterwards
};

// Indexed by CallKind. Arrays take one word per element, the reference clock's
// record one per field. An identity takes its 96 bytes in words of eight, the
// first byte lowest; a frequency is the bit pattern of its double; what is
// signed is extended to 64 bits.
inline constexpr auto call_shapes = std::to_array<CallShape>({
    {"identify", 0, 12, false},
    {"load_calibration", 1, 0, true},
    {"get_reference_clock_status", 0, 9, false},
    {"set_reference_clock", 2, 9, true},
    {"set_tdl_active_masks", 4, 0, true},
    {"get_tdl_active_masks", 0, 4, false},
    {"set_dac_codes", 4, 0, true},
    {"set_input_dead_time", 1, 1, true},
    {"set_packed_delta_config", 2, 2, true},
    {"set_stream_interface", 2, 0, true},
    {"set_stream_channel_mask", 1, 0, true},
    {"set_calibration_freq", 1, 1, true},
    {"enable_calibration_source", 0, 0, true},
    {"disable_calibration_source", 0, 0, true},
    {"start_stream_mode", 2, 0, false},
    {"stop_stream_mode", 1, 0, false},
    {"open", 0, 0, false},
    {"read_stream_bytes", 0, 0, false},
});
static_assert(static_cast<std::size_t>(CallKind::read_stream_bytes) + 1 == call_shapes.size());

constexpr const CallShape& shape_of(CallKind kind) {
  return call_shapes[static_cast<std::size_t>(kind)];
}

// The call of this name; none when there is no such call.
std::optional<CallKind> call_named(std::string_view name);

struct DeviceCall {
  static constexpr std::size_t max_arguments = 4;
  static constexpr std::size_t max_results = 12;

  CallKind kind = CallKind::identify;
  std::array<std::uint64_t, max_arguments> arguments{};  // those beyond the shape's are 0
  // Before the call what the caller's memory holds, afterwards what it shall hold.
  std::array<std::uint64_t, max_results> results{};
};

// The name and the arguments as messages show them: "set_reference_clock(1, 0)".
std::string call_text(const DeviceCall& call);

// Words and the types of the C interface, element by element.
template <typename T>
void to_words(const T* elements, std::size_t count, std::span<std::uint64_t> words) {
  for (std::size_t i = 0; i < count; ++i) {
    words[i] = static_cast<std::uint64_t>(elements[i]);
  }
}

template <typename T>
void from_words(std::span<const std::uint64_t> words, std::size_t count, T* elements) {
  for (std::size_t i = 0; i < count; ++i) {
    elements[i] = static_cast<T>(words[i]);
  }
}

}  // namespace zelk::simulator
