// Writes a packed_delta bit stream record by record. Every width and position
// is spelt out here and not taken from the product, so that a test built on it
// notices a wrong one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zelk::test_support {

class PackedStreamBuilder {
 public:
  // Records carry `payload_bits` bits (1 to 31) behind two channel bits and a flag.
  explicit PackedStreamBuilder(int payload_bits) : payload_bits_(payload_bits) {}

  PackedStreamBuilder& raw_bits(std::uint64_t value, int count) {
    for (int i = count - 1; i >= 0; --i) {
      stream_.push_back((value >> i & 1) != 0);
    }
    return *this;
  }

  // Arguments wider than their field are cut to it.
  PackedStreamBuilder& record(unsigned channel, unsigned flag, std::uint64_t payload) {
    raw_bits(channel, 2);
    raw_bits(flag, 1);
    return raw_bits(payload, payload_bits_);
  }

  PackedStreamBuilder& tag(unsigned channel, std::uint64_t payload) {
    return record(channel, 0, payload);
  }

  PackedStreamBuilder& tags(unsigned channel, std::size_t count, std::uint64_t payload) {
    for (std::size_t i = 0; i < count; ++i) {
      tag(channel, payload);
    }
    return *this;
  }

  PackedStreamBuilder& overflow(unsigned channel, std::uint64_t payload) {
    return record(channel, 1, payload);
  }

  PackedStreamBuilder& sync_start(unsigned channel) { return record(channel, 1, ones()); }

  // A sync start and the chunks of the low 41 bits of `value`, the lowest
  // chunk first.
  PackedStreamBuilder& sync(unsigned channel, std::uint64_t value) {
    sync_start(channel);
    const std::uint64_t value_41 = value & 0x1FFFFFFFFFF;
    for (int low = 0; low < 41; low += payload_bits_) {
      record(channel, 0, value_41 >> low & ones());
    }
    return *this;
  }

  PackedStreamBuilder& synced_tag(unsigned channel, std::uint64_t value, std::uint64_t payload) {
    return sync(channel, value).tag(channel, payload);
  }

  // A tag of any delta: overflow records for what its payload can't hold. With
  // one payload bit an overflow can only carry 0, so the delta is cut to a bit.
  PackedStreamBuilder& step(unsigned channel, std::uint64_t delta) {
    const std::uint64_t largest = ones() - 1;
    for (std::uint64_t rest = largest == 0 ? 0 : delta >> payload_bits_; rest > 0;) {
      const std::uint64_t part = rest < largest ? rest : largest;
      overflow(channel, part);
      rest -= part;
    }
    return tag(channel, delta & ones());
  }

  [[nodiscard]] std::size_t bit_count() const { return stream_.size(); }
  [[nodiscard]] const std::vector<bool>& bits() const { return stream_; }

  // The stream so far, the last byte filled up with zero bits.
  [[nodiscard]] std::vector<std::uint8_t> bytes() const { return packed_bytes(stream_); }

  static std::vector<std::uint8_t> packed_bytes(const std::vector<bool>& bits) {
    std::vector<std::uint8_t> bytes((bits.size() + 7) / 8);
    for (std::size_t i = 0; i < bits.size(); ++i) {
      if (bits[i]) {
        bytes[i / 8] = static_cast<std::uint8_t>(bytes[i / 8] | 0x80U >> i % 8);
      }
    }
    return bytes;
  }

 private:
  [[nodiscard]] std::uint64_t ones() const { return (std::uint64_t{1} << payload_bits_) - 1; }

  int payload_bits_;
  std::vector<bool> stream_;
};

}  // namespace zelk::test_support
