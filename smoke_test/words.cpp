#include "smoke_test/words.hpp"

#include <type_traits>

namespace {

template <typename Value, std::size_t count>
const char* name_in(const std::array<Word<Value>, count>& words, std::type_identity_t<Value> value,
                    const char* otherwise = "unknown") {
  for (const Word<Value>& word : words) {
    if (word.value == value) {
      return word.name;
    }
  }
  return otherwise;
}

}  // namespace

const char* transport_name(zelk::timing::Transport transport) {
  return name_in(transport_words, transport);
}

const char* format_name(zelk::timing::Format format) {
  return name_in(format_words, format);
}

const char* ref_source_name(zelk::timing::ReferenceClockSource source) {
  return name_in(ref_words, source);
}

const char* ref_signal_name(zelk::timing::ReferenceSignal signal) {
  return name_in(ref_signal_words, signal);
}

const char* mode_name(zelk::timing::StreamMode mode) {
  return name_in(mode_words, mode, mode_words[0].name);
}

std::string fill_in(std::string_view text, const ChiefWords& words) {
  std::string filled;
  std::size_t next = 0;
  for (const char c : text) {
    if (c == '%' && next < words.size()) {
      filled += words[next++];
    } else {
      filled += c;
    }
  }
  return filled;
}
