// The words of the options that take one of a few: what each one means, what
// the report calls that, and how an argument may spell it. Parser, report and
// help read these tables, whose rows stand in the order of the help.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>

#include "timing/reference_clock.hpp"
#include "timing/time_tag.hpp"
#include "timing/transport.hpp"

template <typename Value>
struct Word {
  Value value;
  const char* name = nullptr;                 // in the report
  std::array<std::string_view, 4> spellings;  // lower case, the chief one first; unused ones empty
};

inline constexpr auto transport_words = std::to_array<Word<zelk::timing::Transport>>({
    {zelk::timing::Transport::usb, "usb", {"usb"}},
    {zelk::timing::Transport::uart, "uart", {"uart"}},
    {zelk::timing::Transport::usb_async, "unsupported", {"usb_async", "async"}},
});

inline constexpr auto format_words = std::to_array<Word<zelk::timing::Format>>({
    {zelk::timing::Format::raw64, "raw64", {"raw64", "raw"}},
    {zelk::timing::Format::delta32, "delta32", {"delta32", "delta"}},
    {zelk::timing::Format::packed_delta,
     "packed_delta",
     {"packed_delta", "packed-delta", "packed"}},
});

inline constexpr auto mode_words = std::to_array<Word<zelk::timing::StreamMode>>({
    {zelk::timing::StreamMode::internal, "internal", {"internal"}},
    {zelk::timing::StreamMode::external, "external", {"external", "ext"}},
});

// Without a value the reference clock is left as it is.
inline constexpr auto ref_words =
    std::to_array<Word<std::optional<zelk::timing::ReferenceClockSource>>>({
        {zelk::timing::ReferenceClockSource::internal, "internal", {"internal"}},
        {zelk::timing::ReferenceClockSource::external, "external", {"external", "ext"}},
        {zelk::timing::ReferenceClockSource::automatic, "auto", {"auto"}},
        {std::nullopt, "none", {"none", "off", "unchanged"}},
    });

inline constexpr auto ref_signal_words = std::to_array<Word<zelk::timing::ReferenceSignal>>({
    {zelk::timing::ReferenceSignal::ten_mhz, "10mhz", {"10mhz"}},
    {zelk::timing::ReferenceSignal::one_pps, "1pps", {"1pps", "pps"}},
});

inline constexpr auto bool_words = std::to_array<Word<bool>>({
    {true, "1", {"1", "true", "yes", "on"}},
    {false, "0", {"0", "false", "no", "off"}},
});

// The chief spelling in the i-th of the first `count` rows; empty beyond them.
template <const auto& words, std::size_t count = words.size()>
std::string_view chief_word(std::size_t i) {
  return i < count ? words[i].spellings[0] : std::string_view();
}

// All spellings in that row, the chief one first; none beyond the rows.
template <const auto& words, std::size_t count = words.size()>
std::span<const std::string_view> spellings(std::size_t i) {
  if (i >= count) {
    return {};
  }
  const auto& all = words[i].spellings;
  const auto used = std::ranges::count_if(all, [](std::string_view word) { return !word.empty(); });
  return std::span(all).first(static_cast<std::size_t>(used));
}

template <typename Value, std::size_t count>
const char* name_in(const std::array<Word<Value>, count>& words, std::type_identity_t<Value> value,
                    const char* otherwise = "unknown") {
  const auto found = std::ranges::find(words, value, &Word<Value>::value);
  return found != words.end() ? found->name : otherwise;
}

// The names that the report prints; "unknown" for values without one.

inline const char* transport_name(zelk::timing::Transport transport) {
  return name_in(transport_words, transport);
}

inline const char* format_name(zelk::timing::Format format) {
  return name_in(format_words, format);
}

inline const char* ref_source_name(zelk::timing::ReferenceClockSource source) {
  return name_in(ref_words, source);
}

inline const char* ref_signal_name(zelk::timing::ReferenceSignal signal) {
  return name_in(ref_signal_words, signal);
}

// Every mode but the external one is called internal.
inline const char* mode_name(zelk::timing::StreamMode mode) {
  return name_in(mode_words, mode, mode_words[0].name);
}
