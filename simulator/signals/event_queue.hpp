// Events that are known before their time, in the order in which they are due.
// A plain value inside the source that fills it.
#pragma once

#include <algorithm>
#include <vector>

#include "simulator/signals/signal_source.hpp"

namespace zelk::simulator {

class EventQueue {
 public:
  [[nodiscard]] bool empty() const { return events_.empty(); }

  // The event that is due first; of a queue that is not empty.
  [[nodiscard]] const Event& first() const { return events_.front(); }

  void add(const Event& event) {
    events_.push_back(event);
    std::push_heap(events_.begin(), events_.end(), later);
  }

  void remove_first() {
    std::pop_heap(events_.begin(), events_.end(), later);
    events_.pop_back();
  }

 private:
  // Events of one moment in the order of their channels, so that the order
  // does not depend on what else is in the queue.
  static bool later(const Event& a, const Event& b) {
    return a.time_ps != b.time_ps ? a.time_ps > b.time_ps : a.channel > b.channel;
  }

  std::vector<Event> events_;  // a heap with the first event in front
};

}  // namespace zelk::simulator
