#include "smoke_test/capture_statistics.hpp"

#include <algorithm>
#include <limits>
#include <numeric>

using zelk::timing::channel_count;
using zelk::timing::TimeTag;

namespace {

constexpr double ps_per_s = 1e12;

// Elapsed times beyond this are negative as signed numbers.
constexpr auto last_positive_ps =
    static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

// Truncated toward zero; 0, which switches binning off, when 64 bits do not
// suffice.
std::int64_t bin_width_ps(double width_s) {
  constexpr double limit = 9223372036854775808.0;  // 2^63
  const double width = width_s * ps_per_s;
  return width < limit ? static_cast<std::int64_t>(width) : 0;
}

}  // namespace

TimeBins::TimeBins(double width_s)
    // The order of the arguments makes a value that is no number the minimum.
    : width_s_(std::max(min_width_s, width_s)), width_ps_(bin_width_ps(width_s_)) {}

TimeBins::Stretch TimeBins::stretch_at(std::uint64_t elapsed_ps) {
  if (width_ps_ < 1) {
    return {.first_ps = 0,
            .length_ps = std::numeric_limits<std::uint64_t>::max(),
            .counts = &switched_off_};
  }
  if (elapsed_ps > last_positive_ps) {
    return {.first_ps = last_positive_ps + 1, .length_ps = last_positive_ps, .counts = &row(0)};
  }
  const auto width = static_cast<std::uint64_t>(width_ps_);
  const std::uint64_t index = elapsed_ps / width;
  if (index >= max_rows) {
    const std::uint64_t first_ps = max_rows * width;  // not above elapsed_ps, so it fits
    return {.first_ps = first_ps,
            .length_ps = last_positive_ps - first_ps,
            .counts = &beyond_last_row_};
  }
  const std::uint64_t first_ps = index * width;
  return {.first_ps = first_ps,
          .length_ps = std::min(width - 1, last_positive_ps - first_ps),
          .counts = &row(static_cast<std::size_t>(index))};
}

TimeBins::Row& TimeBins::row(std::size_t index) {
  if (rows_.size() <= index) {
    rows_.resize(index + 1);
  }
  return rows_[index];
}

std::uint64_t TimeBins::overflow() const {
  return std::accumulate(beyond_last_row_.begin(), beyond_last_row_.end(), std::uint64_t{0});
}

// The channels' figures while a batch is added, and the stretch that its tags
// are in.
//
// Per tag there is one range check, one comparison and two stores; whatever is
// rare leaves the loop. Counts follow from where the list of times has grown
// to, so that nothing is added up per tag, and the bin is looked up again only
// for a time outside the stretch, so that nothing is divided. Beside tags that
// are counted one by one, with a division each, that takes a third of the time
// on memory that was in use before. On fresh memory the system's work for new
// pages takes longer than all of this.
class CaptureStatistics::Batch {
 public:
  Batch(CaptureStatistics& statistics, std::size_t size)
      : statistics_(statistics), stretch_(statistics.bins_.stretch_at(0)) {
    for (std::size_t channel = 0; channel < channel_count; ++channel) {
      TimeList& times = statistics.times_ps_[channel];
      Channel& state = channels_[channel];
      state.first = times.make_room(size);
      state.end = state.first;
      state.counted = state.first;
      state.is_new = times.size() == 0;
      state.previous_ps = state.is_new ? 0 : static_cast<std::uint64_t>(times.times().back());
      state.max_gap_ps = static_cast<std::uint64_t>(statistics.max_gap_ps_[channel]);
    }
  }

  void add(std::span<const TimeTag> tags, std::uint64_t base_ps) {
    for (const TimeTag& tag : tags) {
      if (tag.channel >= channel_count) {
        continue;
      }
      const auto time_ps = static_cast<std::uint64_t>(tag.timestamp_ps);
      if (!stretch_.contains(time_ps - base_ps)) {
        count();
        stretch_ = statistics_.bins_.stretch_at(time_ps - base_ps);
      }
      Channel& channel = channels_[tag.channel];
      const std::uint64_t step_ps = time_ps - channel.previous_ps;
      if (step_ps > channel.max_gap_ps) {  // as all negative steps are
        take_step(channel, tag.channel, step_ps);
      }
      channel.previous_ps = time_ps;
      *channel.end++ = tag.timestamp_ps;
    }
  }

  // Writes back what has come together.
  void finish() {
    count();
    for (std::size_t channel = 0; channel < channel_count; ++channel) {
      const Channel& state = channels_[channel];
      statistics_.times_ps_[channel].append_room(static_cast<std::size_t>(state.end - state.first));
      statistics_.max_gap_ps_[channel] = static_cast<std::int64_t>(state.max_gap_ps);
    }
  }

 private:
  struct Channel {
    std::int64_t* end;          // where its next time goes
    std::uint64_t previous_ps;  // time of its last tag
    std::uint64_t max_gap_ps;
    std::int64_t* first;    // its first time in this batch
    std::int64_t* counted;  // up to here its times are in the bins
    bool is_new;            // had no tag before this batch
  };

  // A step that is no ordinary one: the widest gap so far, a violation, or no
  // step at all because the channel's first tag has none before it.
  void take_step(Channel& channel, std::size_t index, std::uint64_t step_ps) {
    if (channel.is_new && channel.end == channel.first) {
      return;
    }
    if (step_ps > last_positive_ps) {
      ++statistics_.monotonic_violations_[index];
    } else {
      channel.max_gap_ps = step_ps;
    }
  }

  // The tags since the last call were all in the present stretch.
  void count() {
    for (std::size_t channel = 0; channel < channel_count; ++channel) {
      Channel& state = channels_[channel];
      (*stretch_.counts)[channel] += static_cast<std::uint64_t>(state.end - state.counted);
      state.counted = state.end;
    }
  }

  CaptureStatistics& statistics_;
  TimeBins::Stretch stretch_;
  std::array<Channel, channel_count> channels_{};
};

void CaptureStatistics::add(std::span<const TimeTag> tags) {
  const auto is_accepted = [](const TimeTag& tag) { return tag.channel < channel_count; };
  if (!base_time_ps_) {
    const auto first = std::ranges::find_if(tags, is_accepted);
    if (first == tags.end()) {
      return;
    }
    base_time_ps_ = first->timestamp_ps;
  }
  Batch batch(*this, tags.size());
  batch.add(tags, static_cast<std::uint64_t>(*base_time_ps_));
  batch.finish();
}

std::uint64_t CaptureStatistics::total() const {
  return std::accumulate(
      times_ps_.begin(), times_ps_.end(), std::uint64_t{0},
      [](std::uint64_t sum, const TimeList& times) { return sum + times.size(); });
}

CaptureStatistics::PerChannel<std::span<const std::int64_t>> CaptureStatistics::times_ps() const {
  PerChannel<std::span<const std::int64_t>> spans;
  std::ranges::transform(times_ps_, spans.begin(), &TimeList::times);
  return spans;
}
