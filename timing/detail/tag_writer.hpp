// Fills a caller's list of tags through a pointer: no test of a capacity and no
// clearing per tag.
//
// What the list still holds from an earlier call is overwritten, so that a list
// used again and again is neither allocated nor cleared any more. Only beyond it
// the list grows, by blocks small enough to be cleared in the first-level cache.
//
// Without commit(), and so after an exception, the list is empty at the end.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "timing/time_tag.hpp"

namespace zelk::timing::detail {

class TagWriter {
 public:
  // Borrows the list until destruction; nobody else looks at it before.
  explicit TagWriter(std::vector<TimeTag>& tags) : tags_(tags), next_(tags.data()) {}
  ~TagWriter() { tags_.resize(committed_); }
  TagWriter(const TagWriter&) = delete;
  TagWriter& operator=(const TagWriter&) = delete;

  [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(next_ - tags_.data()); }

  void push(const TimeTag& tag) {
    make_room();
    *next_++ = tag;
  }

  // For a loop that writes by itself: at least one tag has room, room() tags
  // may be written from next() on, and written_to() says where that ended.
  void make_room() {
    if (room() == 0) {
      grow();
    }
  }
  [[nodiscard]] std::size_t room() const { return tags_.size() - size(); }
  [[nodiscard]] TimeTag* next() const { return next_; }
  void written_to(TimeTag* next) { next_ = next; }

  // The tags written so far are the list's contents.
  void commit() { committed_ = size(); }

 private:
  static constexpr std::size_t min_block = 16;
  static constexpr std::size_t max_block = 1024;

  void grow() {
    const std::size_t written = size();
    tags_.resize(written + std::clamp(written, min_block, max_block));
    next_ = tags_.data() + written;
  }

  std::vector<TimeTag>& tags_;
  TimeTag* next_;
  std::size_t committed_ = 0;
};

}  // namespace zelk::timing::detail
