// make_completion TEMPLATE SCRIPT: writes the shell's completion from its template and
// the tables of options and ports.
#include <exception>
#include <iostream>
#include <stdexcept>

#include "packaging/manual/completion.hpp"
#include "packaging/manual/text_file.hpp"

int main(int argc, char** argv) {
  try {
    if (argc != 3) {
      throw std::runtime_error("usage: make_completion TEMPLATE SCRIPT");
    }
    write_text(argv[2], completion(read_text(argv[1])));
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
