// Builds recording files byte by byte, as their description has it: sizes,
// numbers and checksums are worked out here and not taken from the product.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace zelk::simulator {

using FileBytes = std::vector<std::uint8_t>;

// Bit by bit.
inline std::uint32_t literal_crc32(const FileBytes& bytes) {
  std::uint32_t crc = ~std::uint32_t{0};
  for (const std::uint8_t byte : bytes) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      const bool odd = ((crc ^ (std::uint32_t{byte} >> bit)) & 1U) != 0;
      crc = (crc >> 1) ^ (odd ? 0xEDB88320U : 0U);
    }
  }
  return ~crc;
}

class Payload {
 public:
  Payload& u32(std::uint32_t value) { return little_endian(value, 4); }
  Payload& u64(std::uint64_t value) { return little_endian(value, 8); }
  Payload& raw(const FileBytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return *this;
  }
  Payload& text(const std::string& text) {
    return u32(static_cast<std::uint32_t>(text.size())).raw({text.begin(), text.end()});
  }
  Payload& null() { return u32(0xFFFFFFFF); }
  Payload& success() { return u32(0).null().null(); }
  Payload& failure(std::int32_t status, const std::string& status_text,
                   const std::optional<std::string>& last_error) {
    u32(static_cast<std::uint32_t>(status)).text(status_text);
    return last_error ? text(*last_error) : null();
  }

  FileBytes bytes;

 private:
  Payload& little_endian(std::uint64_t value, int count) {
    for (int k = 0; k < count; ++k) {
      bytes.push_back(static_cast<std::uint8_t>(value >> (8 * k)));
    }
    return *this;
  }
};

inline FileBytes record_bytes(std::uint32_t number, std::uint32_t type, const FileBytes& payload) {
  Payload header;
  header.u32(number).u32(type).u32(static_cast<std::uint32_t>(payload.size()));
  header.u32(literal_crc32(payload));
  header.u32(literal_crc32(header.bytes));
  return header.raw(payload).bytes;
}

inline FileBytes file_header(std::uint32_t version = 1) {
  return Payload().raw({'Z', 'T', 'D', 'C', 0x0D, 0x0A, 0x1A, 0x0A}).u32(version).bytes;
}

struct TypedPayload {
  std::uint32_t type;
  FileBytes payload;
};

// The file of these records; `record_ends` receives where each ends.
inline FileBytes recording_bytes(const std::vector<TypedPayload>& records,
                                 std::vector<std::size_t>* record_ends = nullptr) {
  FileBytes file = file_header();
  std::uint32_t number = 0;
  for (const TypedPayload& record : records) {
    const FileBytes bytes = record_bytes(number++, record.type, record.payload);
    file.insert(file.end(), bytes.begin(), bytes.end());
    if (record_ends != nullptr) {
      record_ends->push_back(file.size());
    }
  }
  return file;
}

// A small recording with one record of every kind, closed properly: the mask,
// the start, ten quiet reads, a chunk, a failed read, the stop.
inline std::vector<TypedPayload> sample_records() {
  return {{0, Payload().text("/lib/real.so").text("usb0").u32(0).bytes},
          {1, Payload().u64(100).u32(10).success().u64(5).bytes},
          {1, Payload().u64(200).u32(14).success().u64(1).u64(0).bytes},
          {3, Payload().u64(300).u64(400).u64(10).failure(-3, "nothing came", "late").bytes},
          {2, Payload().u64(500).raw({0xDE, 0xAD, 0xBE}).bytes},
          {4, Payload().u64(600).failure(-9, "broken", std::nullopt).bytes},
          {1, Payload().u64(700).u32(15).success().u64(1).bytes},
          {5, Payload().u64(800).bytes}};
}

// Some file systems write a file that was cut to nothing and filled again to
// the disk at once; thousands of new files are quicker.
inline void write_file(const std::filesystem::path& path, const FileBytes& bytes) {
  std::filesystem::remove(path);
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

inline FileBytes read_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace zelk::simulator
