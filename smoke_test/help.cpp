#include "smoke_test/help.hpp"

#include <cstddef>
#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "smoke_test/device_library.hpp"
#include "smoke_test/options.hpp"
#include "smoke_test/standard_streams.hpp"

namespace {

constexpr int key_width = 22;
constexpr int default_width = 14;
constexpr std::size_t meaning_column = 2 + key_width + default_width;
constexpr std::size_t columns = 80;

std::string aliases_of(const Option& option) {
  std::string text;
  for (std::size_t i = 1; i < option.keys.size() && !option.keys[i].empty(); ++i) {
    text += text.empty() ? " (also " : ", ";
    text += option.keys[i];
  }
  return text.empty() ? text : text + ")";
}

// The words of the text, in lines that fit. All but the first begin at the
// column of the meanings.
std::string in_meaning_column(const std::string& text) {
  std::istringstream words(text);
  std::string lines;
  std::size_t column = meaning_column;
  for (std::string word; words >> word;) {
    if (column > meaning_column) {
      const bool fits = column + 1 + word.size() <= columns;
      lines += fits ? " " : "\n" + std::string(meaning_column, ' ');
      column = fits ? column + 1 : meaning_column;
    }
    lines += word;
    column += word.size();
  }
  return lines;
}

void print_row(std::string_view key, const std::string& default_text, const std::string& meaning) {
  std::cout << "  " << std::left << std::setw(key_width) << key  //
            << std::setw(default_width) << default_text          //
            << in_meaning_column(meaning) << '\n';
}

void print_option(const Option& option) {
  print_row(option.keys[0],
            std::string(option.default_text) + (option.unit.empty() ? "" : " ") +
                std::string(option.unit),
            fill_in(option.description, option.value.word) + aliases_of(option));
}

void print_options() {
  print_row("key", "default", "meaning");
  for (const auto& [group, name] : option_groups) {
    std::cout << '\n' << name << '\n';
    for (const Option& option : options()) {
      if (option.group == group) {
        print_option(option);
      }
    }
  }
}

}  // namespace

void print_help() {
  std::cout << "usage: zelk_smoke_test [key=value ...]\n"
               "       zelk_smoke_test --help | --version\n"
               "\n"
               "Opens a four-channel time-to-digital converter, captures time tags, prints a\n"
               "report of key=value lines and says with its exit status whether the channel\n"
               "pair saw tags and coincidences. A key may begin with \"--\"; upper and lower case\n"
               "are the same; unknown keys are ignored.\n"
               "\n";
  print_options();
  std::cout << "\n"
               "exit status\n"
               "  0    both channels of the pair saw tags, and coincidences were found\n"
               "  1    byte probe only: no byte arrived\n"
               "  2    the run failed; one line on standard error says why\n"
               "  3    the report was printed, but the pair saw no tags or no coincidences\n"
               "  4    as 0, but a limit (require, limits) is not met; a line names each\n"
               "  128+n  ended early by signal n: in the capture, after the report of what was\n"
               "         captured; before or after it, at once\n"
               "\n"
               "examples\n"
               "  zelk_smoke_test channel_a=2 channel_b=3\n"
               "  zelk_smoke_test mode=external channel_mask=0x03 capture_s=5 format=raw64\n"
               "\n"
               "without a converter\n"
               "  A simulated unit takes the place of the device library. Its signals, faults\n"
               "  and recordings are asked for in the port; docs/simulated-unit.md lists them.\n"
               "  zelk_smoke_test port='sim://pairs' mode=external channel_mask=0x03\n";
}

void print_version() {
  std::cout << "zelk_smoke_test " << ZELK_VERSION << '\n';
  if (const std::optional<DeviceLibrary> library = loaded_device_library()) {
    std::cout << "device library: " << without_control_characters(library->path)
              << (library->is_simulated ? " (simulated)" : " (real, as far as can be told)")
              << '\n';
  } else {
    std::cout << "device library: unknown\n";
  }
}
