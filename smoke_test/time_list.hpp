// A list of times that only grows, for captures of a thousand million tags. It
// lies in one piece, so that it reads as a span, and takes 8 bytes of memory per
// time and at most 64 KiB besides.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <span>
#include <utility>

#include "smoke_test/growing_memory.hpp"

// Owns its memory and belongs to one thread. A moved-from list is empty.
template <typename Memory>
class BasicTimeList {
 public:
  BasicTimeList() = default;
  ~BasicTimeList() { Memory::resize(times_, capacity_ * sizeof(std::int64_t), 0); }
  BasicTimeList(BasicTimeList&& other) noexcept { swap(other); }
  BasicTimeList& operator=(BasicTimeList&& other) noexcept {
    BasicTimeList moved(std::move(other));
    swap(moved);
    return *this;
  }

  // Room behind the last time for `count` further ones. It is valid until the
  // next call, and so is every span of the list. Throws std::bad_alloc, and
  // leaves the list as it is, when memory does not suffice.
  std::int64_t* make_room(std::size_t count) {
    if (capacity_ - size_ < count) {
      grow(count);
    }
    if (size_ >= short_list) {
      prepare(count);
    }
    return times_ + size_;
  }

  // Makes the first `count` times of that room part of the list.
  void append_room(std::size_t count) { size_ += count; }

  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::span<const std::int64_t> times() const { return {times_, size_}; }

 private:
  // What a longer list asks for at a time: 64 KiB. A machine whose host must
  // first find the memory can take 3 ms per MiB, and four lists that grow together
  // would keep a full queue waiting.
  static constexpr std::size_t piece = (std::size_t{64} << 10) / sizeof(std::int64_t);
  // A list of less than 1 MiB takes what it writes, and nothing ahead.
  static constexpr std::size_t short_list = 16 * piece;
  // 2 MiB of address space, not of memory: only the part in use costs any.
  static constexpr std::size_t least_growth = 32 * piece;
  static constexpr std::size_t max_size =
      std::numeric_limits<std::ptrdiff_t>::max() / sizeof(std::int64_t) / 2;

  void swap(BasicTimeList& other) noexcept {
    std::swap(times_, other.times_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
    std::swap(prepared_, other.prepared_);
  }

  // By a quarter and no more, so that a limited address space is made use of.
  void grow(std::size_t count) {
    if (count > max_size - size_) {
      throw std::bad_alloc();
    }
    const std::size_t needed = std::max(size_ + count, capacity_ + capacity_ / 4);
    const std::size_t capacity = (needed / least_growth + 1) * least_growth;
    void* const grown =
        Memory::resize(times_, capacity_ * sizeof(std::int64_t), capacity * sizeof(std::int64_t));
    if (grown == nullptr) {
      throw std::bad_alloc();
    }
    times_ = static_cast<std::int64_t*>(grown);
    capacity_ = capacity;
  }

  // Fresh memory costs more than all else that is done for a tag. Asked for
  // ahead, in pieces that stay in the caches until they are written, it takes an
  // eighth to a quarter off the whole time per tag.
  void prepare(std::size_t count) {
    for (; prepared_ < size_ + count; prepared_ += piece) {
      Memory::prepare(times_ + prepared_, piece * sizeof(std::int64_t));
    }
  }

  std::int64_t* times_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;  // a whole number of pieces
  std::size_t prepared_ = 0;  // likewise
};

using TimeList = BasicTimeList<GrowingMemory>;
