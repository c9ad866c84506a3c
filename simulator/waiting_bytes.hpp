// Stream bytes that were made or received and wait until the host reads them.
// A plain value inside the stream that fills it, used by the thread that reads
// the stream.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

namespace zelk::simulator {

class WaitingBytes {
 public:
  using Bytes = std::vector<std::uint8_t>;

  [[nodiscard]] std::size_t size() const { return bytes_.size() - handed_over_; }
  [[nodiscard]] bool empty() const { return size() == 0; }

  // For encoders and the like, which append to what they are given. Its front
  // may hold bytes that were handed over already: only appending is allowed.
  [[nodiscard]] Bytes& tail() { return bytes_; }

  // Drops what is there.
  void replace(Bytes bytes = {}) {
    bytes_ = std::move(bytes);
    handed_over_ = 0;
  }

  // Copies the first bytes, as many as fit, and drops them. Returns their number.
  std::size_t hand_over(std::span<std::uint8_t> buffer) {
    const std::size_t count = std::min(buffer.size(), size());
    if (count == 0) {
      return 0;
    }
    std::memcpy(buffer.data(), bytes_.data() + handed_over_, count);
    handed_over_ += count;
    if (empty()) {
      bytes_.clear();
      handed_over_ = 0;
    } else if (handed_over_ >= max_handed_over && handed_over_ >= size()) {
      bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(handed_over_));
      handed_over_ = 0;
    }
    return count;
  }

 private:
  // The front is cut off when it is this long and no shorter than what is left:
  // moving that then costs no more than the handing over did.
  static constexpr std::size_t max_handed_over = std::size_t{1} << 18;

  Bytes bytes_;
  std::size_t handed_over_ = 0;  // bytes at the front of bytes_
};

}  // namespace zelk::simulator
