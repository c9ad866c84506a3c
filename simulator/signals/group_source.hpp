// The common part of sources that make their events in small groups: a pulse
// on every channel, a pair, a single event.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "simulator/signals/signal_source.hpp"
#include "timing/time_tag.hpp"

namespace zelk::simulator {

// At most one event per channel, kept in time order.
class EventGroup {
 public:
  void clear() { size_ = 0; }

  void add(const Event& event) {
    std::size_t place = size_++;
    for (; place > 0 && events_[place - 1].time_ps > event.time_ps; --place) {
      events_[place] = events_[place - 1];
    }
    events_[place] = event;
  }

  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] const Event& operator[](std::size_t index) const { return events_[index]; }

 private:
  std::array<Event, timing::channel_count> events_{};
  std::size_t size_ = 0;
};

class GroupSource : public SignalSource {
 public:
  const Event* peek() final {
    if (next_ == group_.size() && !start_group()) {
      return nullptr;
    }
    return &group_[next_];
  }

  void pop() final { ++next_; }

 private:
  // Fills the empty `group` with one event or more, none of them earlier than
  // any event of the group before; leaves it empty when the source has ended.
  virtual void next_group(EventGroup& group) = 0;

  bool start_group() {
    next_ = 0;
    group_.clear();
    next_group(group_);
    return group_.size() != 0;
  }

  EventGroup group_;
  std::size_t next_ = 0;
};

}  // namespace zelk::simulator
