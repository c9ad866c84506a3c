#include "timing/tag_queue.hpp"

#include <algorithm>
#include <utility>

namespace zelk::timing {

void TagQueue::push_back(const TimeTag& tag) {
  copy_to_back(std::span(&tag, 1));
}

void TagQueue::append(std::vector<TimeTag>& tags) {
  if (tags.size() < least_block) {
    copy_to_back(tags);
    return;
  }
  blocks_.emplace_back();
  size_ += tags.size();
  blocks_.back().tags = std::exchange(tags, take_spare());
}

// The last block may be the one that was lent: what is behind its tags was
// never visible to whoever reads them.
void TagQueue::copy_to_back(std::span<const TimeTag> tags) {
  if (tags.empty()) {
    return;
  }
  const auto has_room = [&tags](const std::vector<TimeTag>& block) {
    return block.capacity() - block.size() >= tags.size();
  };
  if (blocks_.empty() || !has_room(blocks_.back().tags)) {
    std::vector<TimeTag> block = take_spare();
    block.clear();
    block.reserve(short_block_capacity);
    blocks_.push_back({.tags = std::move(block)});
  }
  std::vector<TimeTag>& back = blocks_.back().tags;
  back.insert(back.end(), tags.begin(), tags.end());
  size_ += tags.size();
}

std::span<const TimeTag> TagQueue::take_front(std::size_t most) {
  spare(std::exchange(lent_, {}));
  front_is_lent_ = false;
  if (blocks_.empty()) {
    return {};
  }
  Block& front = blocks_.front();
  const std::span<const TimeTag> left = front.left();
  const std::span<const TimeTag> taken = left.first(std::min(most, left.size()));
  front.first += taken.size();
  size_ -= taken.size();
  front_is_lent_ = true;
  if (taken.size() == left.size()) {
    pop_block();
  }
  return taken;
}

void TagQueue::erase_front(std::size_t count) {
  size_ -= count;
  while (count != 0) {
    const std::size_t erased = std::min(count, blocks_.front().left().size());
    blocks_.front().first += erased;
    count -= erased;
    if (blocks_.front().left().empty()) {
      pop_block();
    }
  }
}

void TagQueue::clear() {
  if (!blocks_.empty()) {
    spare(std::move(blocks_.front().tags));
  }
  blocks_.clear();
  size_ = 0;
  front_is_lent_ = false;
  spare(std::exchange(lent_, {}));
  spare_blocks_.resize(std::min<std::size_t>(spare_blocks_.size(), 1));
}

// Removes the first block, none of whose tags is queued any more.
void TagQueue::pop_block() {
  std::vector<TimeTag>& block = blocks_.front().tags;
  if (front_is_lent_) {
    lent_ = std::move(block);
    front_is_lent_ = false;
  } else {
    spare(std::move(block));
  }
  blocks_.pop_front();
}

void TagQueue::spare(std::vector<TimeTag>&& block) {
  if (block.capacity() != 0 && spare_blocks_.size() < most_spare_blocks) {
    spare_blocks_.push_back(std::move(block));
  }
}

// The block that was used last, or no memory at all.
std::vector<TimeTag> TagQueue::take_spare() {
  if (spare_blocks_.empty()) {
    return {};
  }
  std::vector<TimeTag> block = std::move(spare_blocks_.back());
  spare_blocks_.pop_back();
  return block;
}

}  // namespace zelk::timing
