// Reads fields from a bit string, most significant bit of each byte first.
// Borrows the bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "timing/detail/byte_order.hpp"

namespace zelk::timing::detail {

class BitReader {
 public:
  // The widest field: an 8-byte load that begins up to 7 bits early holds it.
  static constexpr int max_width = 57;

  explicit BitReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  [[nodiscard]] std::uint64_t size_bits() const { return 8 * std::uint64_t{bytes_.size()}; }

  // The `width` bits from `bit` on, which lie inside the bytes; 1 <= width <=
  // max_width.
  [[nodiscard]] std::uint64_t read(std::uint64_t bit, int width) const {
    return peek(bit) >> (64 - width);
  }

  // The bits from `bit` on, at the top of a word: at least max_width of them, as
  // far as there are any. One load and one shift, except within the last 8
  // bytes, where a full load would read past the end.
  [[nodiscard]] std::uint64_t peek(std::uint64_t bit) const {
    const auto first = static_cast<std::size_t>(bit / 8);
    const std::uint64_t word =
        bytes_.size() - first >= 8 ? load_be64(bytes_.data() + first) : load_tail(first);
    return word << (bit % 8);
  }

 private:
  [[nodiscard]] std::uint64_t load_tail(std::size_t first) const {
    std::uint64_t word = 0;
    int shift = 56;
    for (std::size_t i = first; i < bytes_.size(); ++i, shift -= 8) {
      word |= std::uint64_t{bytes_[i]} << shift;
    }
    return word;
  }

  std::span<const std::uint8_t> bytes_;
};

}  // namespace zelk::timing::detail
