// A queue of tags that takes what was decoded as it is, and gives it out the
// same way: as whole blocks, of which nothing is copied and nothing ever moves.
//
// A deque of tags copies each tag in and out, and both threads spend more time
// on that than on their own work: at 168 million tags per second and decoding
// for 2.6 ns per tag, the reader comes to 108 and this queue to all of them.
//
// The queue owns its blocks and keeps some that were used up, so that the
// reader decodes into memory that is still in the caches. Whoever shares it
// between threads guards every call with one lock.
#pragma once

#include <cstddef>
#include <deque>
#include <span>
#include <vector>

#include "timing/time_tag.hpp"

namespace zelk::timing {

class TagQueue {
 public:
  // Fewer tags than this are copied, so that many short reads do not become
  // many blocks with nothing but room.
  static constexpr std::size_t least_block = 8192;

  TagQueue() { spare_blocks_.reserve(most_spare_blocks); }

  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] bool empty() const { return size_ == 0; }

  void push_back(const TimeTag& tag);

  // Appends all of `tags`. Leaves other memory of the same kind in its place,
  // whose contents mean nothing.
  void append(std::vector<TimeTag>& tags);

  // Takes the oldest tags, at most `most`, and fewer where a block ends; none
  // only from an empty queue. They stay readable, without the lock too, until
  // the next call of take_front() or clear().
  std::span<const TimeTag> take_front(std::size_t most);

  // Discards the oldest `count` tags; there are as many.
  void erase_front(std::size_t count);

  // Discards everything, and all memory but for one block.
  void clear();

 private:
  static constexpr std::size_t short_block_capacity = 65536;
  static constexpr std::size_t most_spare_blocks = 16;

  struct Block {
    [[nodiscard]] std::span<const TimeTag> left() const { return std::span(tags).subspan(first); }

    std::vector<TimeTag> tags;
    std::size_t first = 0;  // of the tags that are still queued
  };

  void copy_to_back(std::span<const TimeTag> tags);
  void pop_block();
  void spare(std::vector<TimeTag>&& block);
  std::vector<TimeTag> take_spare();

  std::deque<Block> blocks_;  // oldest in front; none without a tag
  std::size_t size_ = 0;
  std::vector<std::vector<TimeTag>> spare_blocks_;
  // The tags last taken are in the first block, which still has others, or in
  // `lent_`, which is the memory of a block that has left the queue.
  bool front_is_lent_ = false;
  std::vector<TimeTag> lent_;
};

}  // namespace zelk::timing
