// The words of the options that take one of a few: what each one means, what
// the report calls that, and how an argument may spell it. Parser, report and
// help read these tables, whose rows stand in the order of the help.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "timing/reference_clock.hpp"
#include "timing/time_tag.hpp"
#include "timing/transport.hpp"

template <typename Value>
struct Word {
  Value value;
  const char* name;                           // in the report
  std::array<std::string_view, 3> spellings;  // lower case, the chief one first; unused ones empty
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

// The names that the report prints; "unknown" for values without one.
const char* transport_name(zelk::timing::Transport transport);
const char* format_name(zelk::timing::Format format);
const char* ref_source_name(zelk::timing::ReferenceClockSource source);
const char* ref_signal_name(zelk::timing::ReferenceSignal signal);
// Every mode but the external one is called internal.
const char* mode_name(zelk::timing::StreamMode mode);

// The chief spellings of a table, in its order; unused ones are empty.
using ChiefWords = std::array<std::string_view, 4>;

template <typename Value, std::size_t count>
constexpr ChiefWords chief_words(const std::array<Word<Value>, count>& words) {
  static_assert(count <= ChiefWords{}.size());
  ChiefWords chief;
  for (std::size_t i = 0; i < count; ++i) {
    chief[i] = words[i].spellings[0];
  }
  return chief;
}

// The text with each "%" replaced by the next of the words.
std::string fill_in(std::string_view text, const ChiefWords& words);
