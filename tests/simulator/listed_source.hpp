// A signal written down event by event.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "simulator/signals/signal_source.hpp"

namespace zelk::simulator {

class ListedSource final : public SignalSource {
 public:
  explicit ListedSource(std::vector<Event> events) : events_(std::move(events)) {}

  const Event* peek() override { return next_ < events_.size() ? &events_[next_] : nullptr; }
  void pop() override { ++next_; }

 private:
  std::vector<Event> events_;
  std::size_t next_ = 0;
};

}  // namespace zelk::simulator
