// make_manual TEMPLATE VERSION PAGE: writes the manual page from its template, in which
// the line "@OPTIONS@" stands for the options of the table.
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "packaging/manual/manual_page.hpp"
#include "packaging/manual/text_file.hpp"

int main(int argc, char** argv) {
  try {
    if (argc != 4) {
      throw std::runtime_error("usage: make_manual TEMPLATE VERSION PAGE");
    }
    const std::string page = filled_in(read_text(argv[1]), "@VERSION@", as_shown(argv[2]));
    write_text(argv[3], filled_in(page, "@OPTIONS@\n", option_entries()));
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
