// Several sources at the same inputs, in common time order.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "simulator/signals/signal_source.hpp"

namespace zelk::simulator {

class MergedSource final : public SignalSource {
 public:
  explicit MergedSource(std::vector<std::unique_ptr<SignalSource>> sources)
      : sources_(std::move(sources)) {}

  // A linear search: a merge joins a handful of sources.
  const Event* peek() override {
    const Event* earliest = nullptr;
    for (std::size_t i = 0; i < sources_.size(); ++i) {
      const Event* event = sources_[i]->peek();
      if (event != nullptr && (earliest == nullptr || event->time_ps < earliest->time_ps)) {
        earliest = event;
        next_ = i;
      }
    }
    return earliest;
  }

  void pop() override { sources_[next_]->pop(); }

 private:
  std::vector<std::unique_ptr<SignalSource>> sources_;
  std::size_t next_ = 0;  // the source that peek() found
};

}  // namespace zelk::simulator
