// Runs a fuzzer on the files that are named, and on those in directories that
// are, one after another: its corpus as a plain test, without a fuzzing engine,
// whose options are passed over.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "fuzz/input.hpp"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_in(const fs::path& path) {
  if (!fs::is_directory(path)) {
    return {path};
  }
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path)) {
    files.push_back(entry.path());
  }
  std::ranges::sort(files);
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t runs = 0;
  for (const char* const argument : std::span(argv, static_cast<std::size_t>(argc)).subspan(1)) {
    if (*argument == '-') {
      continue;
    }
    for (const fs::path& file : files_in(argument)) {
      std::ifstream in(file, std::ios::binary);
      if (!in) {
        std::cerr << "cannot read " << file << "\n";
        return 1;
      }
      const zelk::fuzz::Bytes bytes{std::istreambuf_iterator<char>(in),
                                    std::istreambuf_iterator<char>()};
      std::cout << file.filename().string() << std::endl;  // before what may end the program
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++runs;
    }
  }
  std::cout << runs << " inputs\n";
  return runs > 0 ? 0 : 1;
}
