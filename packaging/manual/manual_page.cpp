#include "packaging/manual/manual_page.hpp"

#include <cstddef>
#include <span>

#include "smoke_test/options.hpp"

namespace {

std::string bold(std::string_view text) {
  return "\\fB" + as_shown(text) + "\\fR";
}

std::string italic(std::string_view text) {
  return "\\fI" + as_shown(text) + "\\fR";
}

// What stands behind the "=".
std::string value_of(const Option& option) {
  const OptionValue& value = option.value;
  if (value.word == nullptr) {
    return italic(value.is_file_name ? "FILE" : value.read != nullptr ? "NUMBER" : "TEXT");
  }
  std::string words;
  for (std::size_t i = 0; !value.word(i).empty(); ++i) {
    words += (i == 0 ? "" : "|") + bold(value.word(i));
  }
  return words;
}

std::string capitalised(std::string text) {
  if (text[0] >= 'a' && text[0] <= 'z') {
    text[0] = static_cast<char>(text[0] - 'a' + 'A');
  }
  return text;
}

std::string sentence(const std::string& text) {
  return as_shown(capitalised(text) + ".") + "\n";
}

std::string default_of(const Option& option) {
  if (option.default_text.empty()) {
    return ".br\nThere is no default.\n";
  }
  const std::string unit = option.unit.empty() ? "" : " " + as_shown(option.unit);
  return ".br\nDefault: " + bold(option.default_text) + unit + ".\n";
}

// "raw for raw64; delta for delta32": what a word may be in place of its chief
// spelling. Empty: nothing else.
std::string other_spellings(const OptionValue& value) {
  std::string text;
  for (std::size_t i = 0; value.spellings != nullptr && !value.spellings(i).empty(); ++i) {
    const std::span<const std::string_view> all = value.spellings(i);
    for (std::size_t j = 1; j < all.size(); ++j) {
      const char* const first = text.empty() ? "Other spellings: " : "; ";
      text += (j == 1 ? first : j + 1 < all.size() ? ", " : " or ") + bold(all[j]);
    }
    text += all.size() > 1 ? " for " + bold(all[0]) : "";
  }
  return text.empty() ? text : ".br\n" + text + ".\n";
}

std::string entry(const Option& option) {
  std::string text;
  for (const std::string_view key : option.keys) {
    if (!key.empty()) {
      text += (text.empty() ? ".TP\n" : ".TQ\n") + bold(key) + "=" + value_of(option) + "\n";
    }
  }
  return text + sentence(fill_in(option.description, option.value.word)) + default_of(option) +
         other_spellings(option.value);
}

}  // namespace

std::string option_entries() {
  std::string text;
  for (const auto& [group, name] : option_groups) {
    text += ".SS " + as_shown(capitalised(std::string(name))) + "\n";
    for (const Option& option : options()) {
      text += option.group == group ? entry(option) : "";
    }
  }
  return text;
}

std::string as_shown(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    switch (c) {
      case '\\':
        shown += "\\e";
        break;
      case '-':
        shown += "\\-";
        break;
      case '\'':
        shown += "\\(aq";
        break;
      default:
        shown += shown.empty() && c == '.' ? "\\&." : std::string(1, c);
    }
  }
  return shown;
}
