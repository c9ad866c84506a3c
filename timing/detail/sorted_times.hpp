// An ascending view of a list of times that copies and sorts only a list that
// is out of order. Borrows the list, which must outlive it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace zelk::timing::detail {

class SortedTimes {
 public:
  explicit SortedTimes(std::span<const std::int64_t> times)
      : SortedTimes(times, std::ranges::is_sorted(times)) {}

  // For a caller that knows whether the list is in order: that saves a read of
  // the whole list.
  SortedTimes(std::span<const std::int64_t> times, bool in_order) : stored_(times), view_(times) {
    if (!in_order) {
      copy_.assign(times.begin(), times.end());
      std::ranges::sort(copy_);
      view_ = copy_;
    }
  }
  SortedTimes(const SortedTimes&) = delete;
  SortedTimes& operator=(const SortedTimes&) = delete;

  [[nodiscard]] std::span<const std::int64_t> get() const { return view_; }
  // The list itself, in the order in which it was given.
  [[nodiscard]] std::span<const std::int64_t> stored() const { return stored_; }
  [[nodiscard]] bool in_order() const { return copy_.empty(); }

 private:
  std::span<const std::int64_t> stored_;
  std::vector<std::int64_t> copy_;
  std::span<const std::int64_t> view_;
};

}  // namespace zelk::timing::detail
