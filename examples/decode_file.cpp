// Writes the tags of a file of stream bytes as text: decode_file FILE [FORMAT]
#include <array>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "timing/stream_decoder.hpp"

namespace timing = zelk::timing;

namespace {

timing::Format format_called(const std::string& name) {
  if (name == "raw64") {
    return timing::Format::raw64;
  }
  if (name == "delta32") {
    return timing::Format::delta32;
  }
  if (name == "packed_delta") {
    return timing::Format::packed_delta;
  }
  throw std::runtime_error("no such format: " + name);
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 2) {
    throw std::runtime_error("usage: decode_file FILE [raw64|delta32|packed_delta]");
  }
  std::ifstream file(argv[1], std::ios::binary);
  if (!file) {
    throw std::runtime_error(std::string("cannot open ") + argv[1]);
  }
  timing::StreamFileHeader stream;
  stream.format = format_called(argc > 2 ? argv[2] : "raw64");
  stream.mode = timing::StreamMode::external;
  timing::StreamDecoder decoder(stream);

  std::printf("channel,timestamp_ps\n");
  std::array<char, 65536> bytes{};
  while (file) {
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    const auto* received = reinterpret_cast<const std::uint8_t*>(bytes.data());
    const std::vector<timing::TimeTag> tags =
        decoder.feed(received, static_cast<std::size_t>(file.gcount()));
    for (const timing::TimeTag& tag : tags) {
      std::printf("%d,%lld\n", tag.channel, static_cast<long long>(tag.timestamp_ps));
    }
  }
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
