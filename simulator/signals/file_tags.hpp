// The tags of a file, as a unit keeps them that plays it.
#pragma once

#include <cstdint>
#include <vector>

namespace zelk::simulator {

// A tag in one word, so that a long file stays small.
class FileTag {
 public:
  FileTag(std::uint8_t channel, std::int64_t time_ps)
      : bits_(static_cast<std::uint64_t>(time_ps) << 2 | channel) {}

  [[nodiscard]] std::uint8_t channel() const { return static_cast<std::uint8_t>(bits_ & 3); }
  [[nodiscard]] std::int64_t time_ps() const { return static_cast<std::int64_t>(bits_ >> 2); }

 private:
  std::uint64_t bits_;
};

// In time order; times lie in [0, end_of_time_ps).
using FileTags = std::vector<FileTag>;

}  // namespace zelk::simulator
