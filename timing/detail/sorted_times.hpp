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
  explicit SortedTimes(std::span<const std::int64_t> times) : view_(times) {
    if (!std::is_sorted(times.begin(), times.end())) {
      copy_.assign(times.begin(), times.end());
      std::sort(copy_.begin(), copy_.end());
      view_ = copy_;
    }
  }
  SortedTimes(const SortedTimes&) = delete;
  SortedTimes& operator=(const SortedTimes&) = delete;

  [[nodiscard]] std::span<const std::int64_t> get() const { return view_; }

 private:
  std::vector<std::int64_t> copy_;
  std::span<const std::int64_t> view_;
};

}  // namespace zelk::timing::detail
