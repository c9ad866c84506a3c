// "fine_lut.bin" in the working directory: the tables of a device that
// Device::open_first() opens are those of the file when it is whole, by a reading
// of its own, and the default ones otherwise.
//
// The input: how many zero bytes follow the file's end (u32; none unless the
// lowest bit is set, and at most 40 million), and the file.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/input.hpp"
#include "fuzz/scratch_file.hpp"
#include "timing/device.hpp"

namespace zelk::fuzz {
namespace {

constexpr std::size_t max_zeros = 40'000'000;

using Table = std::vector<std::int64_t>;
using Tables = std::array<Table, 4>;

const Tables& default_tables() {
  static const Tables tables = [] {
    Table table;
    for (std::int64_t i = 0; i < 8192; ++i) {
      const std::int64_t nearest = (1 + 37 * i) / 2;
      table.push_back(nearest < 3332 ? nearest : 3332);
    }
    return Tables{table, table, table, table};
  }();
  return tables;
}

// A file and the zeros behind it, which are not in memory.
class File {
 public:
  File(std::span<const std::uint8_t> bytes, std::size_t zeros) : bytes_(bytes), zeros_(zeros) {}

  // The next number in the host's byte order; none behind the end.
  template <typename Number>
  std::optional<Number> number() {
    if (bytes_.size() + zeros_ - next_ < sizeof(Number)) {
      return std::nullopt;
    }
    std::array<std::uint8_t, sizeof(Number)> raw{};
    for (std::uint8_t& byte : raw) {
      byte = next_ < bytes_.size() ? bytes_[next_] : std::uint8_t{0};
      ++next_;
    }
    Number value{};
    std::memcpy(&value, raw.data(), sizeof value);
    return value;
  }

  [[nodiscard]] bool holds(std::uint64_t size) const {
    return bytes_.size() + zeros_ - next_ >= size;
  }

 private:
  std::span<const std::uint8_t> bytes_;
  std::size_t zeros_;
  std::size_t next_ = 0;
};

std::optional<Tables> tables_of(File file) {
  for (const char c : {'T', 'L', 'U', 'T'}) {
    if (file.number<char>() != c) {
      return std::nullopt;
    }
  }
  if (file.number<std::uint32_t>() != 1U) {
    return std::nullopt;
  }
  Tables tables;
  for (Table& table : tables) {
    const std::uint64_t entries = file.number<std::uint32_t>().value_or(0);
    if (entries == 0 || entries > 1048576 || !file.holds(8 * entries)) {
      return std::nullopt;
    }
    for (std::uint64_t i = 0; i < entries; ++i) {
      table.push_back(file.number<std::int64_t>().value_or(0));
    }
  }
  return tables;
}

void run(Input input) {
  static ScratchFile scratch("fine_lut.bin");
  const auto wanted_zeros = input.number<std::uint32_t>();
  const std::size_t zeros = (wanted_zeros & 1U) != 0 ? wanted_zeros % max_zeros : 0;
  const auto bytes = input.rest();
  scratch.fill(bytes, zeros);
  const std::optional<Tables> tables = tables_of(File(bytes, zeros));

  const WorkingDirectory directory(scratch.directory());
  const timing::Device device = timing::Device::open_first(timing::Device::standard_rate);
  const Tables& expected = tables ? *tables : default_tables();
  for (std::size_t channel = 0; channel < expected.size(); ++channel) {
    if (expected[channel] != device.fine_lut[channel]) {
      expect_equal_lists("table of channel " + std::to_string(channel), expected[channel],
                         device.fine_lut[channel]);
    }
  }
}

}  // namespace
}  // namespace zelk::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zelk::fuzz::run({data, size});
  return 0;
}
