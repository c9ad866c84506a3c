// The bytes that one call decodes: those pending from earlier calls, then the
// fresh ones, decoded where they lie.
//
// Usually nothing but part of a record is pending. Then the record is completed
// in the seam, a copy of the pending bytes with the first fresh ones behind
// them, and everything else is read from the caller's memory. Otherwise the
// fresh bytes are appended to the pending ones, and there is no seam.
//
//   pending   |ppp|
//   seam      |ppp|ffffffff|          its byte `overlap()` is the body's byte 0
//   body          |ffffffffffffff...|
//
// Once a record has been taken from the seam, what follows begins in the body.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zelk::timing::detail {

class CallBytes {
 public:
  // Borrows both for the length of the call. `is_partial` says that `pending`
  // holds less than one record.
  CallBytes(std::vector<std::uint8_t>& pending, std::span<const std::uint8_t> fresh,
            bool is_partial)
      : pending_(pending), body_(fresh), is_direct_(is_partial && fresh.size() >= min_direct) {
    if (!is_direct_) {
      pending.insert(pending.end(), fresh.begin(), fresh.end());
      body_ = pending;
    } else if (!pending.empty()) {
      seam_size_ = pending.size() + max_record;
      std::ranges::copy(pending, seam_bytes_.begin());
      std::copy_n(fresh.begin(), max_record, seam_bytes_.begin() + pending.size());
    }
  }

  [[nodiscard]] std::span<const std::uint8_t> seam() const {
    return std::span(seam_bytes_).first(seam_size_);
  }
  [[nodiscard]] std::span<const std::uint8_t> body() const { return body_; }
  [[nodiscard]] std::size_t overlap() const { return is_direct_ ? pending_.size() : 0; }

  // Both pieces without the bytes that they share.
  [[nodiscard]] std::size_t size() const { return overlap() + body_.size(); }

  // Leaves the body's bytes from `next` on pending, and nothing else. Does not
  // throw if reserve_from() was called.
  void keep_from(std::size_t next) {
    if (is_direct_) {
      pending_.assign(body_.begin() + static_cast<std::ptrdiff_t>(next), body_.end());
    } else {
      pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(next));
    }
  }
  void reserve_from(std::size_t next) { pending_.reserve(body_.size() - next); }

 private:
  static constexpr std::size_t max_record = 8;   // bytes that a record may touch
  static constexpr std::size_t min_direct = 16;  // fewer are sooner copied

  std::vector<std::uint8_t>& pending_;
  std::span<const std::uint8_t> body_;
  bool is_direct_;
  std::size_t seam_size_ = 0;
  std::array<std::uint8_t, 2 * max_record> seam_bytes_{};
};

}  // namespace zelk::timing::detail
