// Where captured tags go besides the statistics.
#pragma once

#include <span>

#include "timing/time_tag.hpp"

// Called on the main thread alone, while no lock is held. The reader's thread goes on
// meanwhile, so that a sink that takes long makes the queue longer and nothing else
// wait.
class TagSink {
 public:
  TagSink() = default;
  virtual ~TagSink() = default;
  TagSink(const TagSink&) = delete;
  TagSink& operator=(const TagSink&) = delete;

  // The tags that come next, in arrival order. Those with a channel above 3, which the
  // statistics ignore, are left out. Throws std::runtime_error when the tags cannot be
  // kept; what was kept before stays.
  virtual void add(std::span<const zelk::timing::TimeTag> tags) = 0;

  // After the last tag. Throws what add() throws.
  virtual void finish() = 0;
};
