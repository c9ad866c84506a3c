// The analysis of a capture against brute force (see brute_force.hpp), over the
// whole range of 64-bit times.
//
// The input: channel_a, channel_b, window, tags per batch, width of the time
// bins, width of the histogram's bins, offset, and the tags (see take_tags()).
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/brute_force.hpp"
#include "fuzz/input.hpp"
#include "smoke_test/analysis.hpp"
#include "timing/xcorr_histogram.hpp"

namespace zelk::fuzz {
namespace {

using Tags = std::vector<timing::TimeTag>;
using timing::detail::SortedTimes;

constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

constexpr std::size_t max_tags_per_channel = 9000;  // from 8000 on not every tag is tried
constexpr std::size_t max_pairs = 70'000;
constexpr std::int64_t max_bins = 1 << 11;

// ---- The input ---------------------------------------------------------------

// Of any size, negative ones too.
std::int64_t take_number(Input& input) {
  const auto number = input.number<std::int64_t>();
  return number >> input.below(64);
}

double take_bin_s(Input& input) {
  constexpr std::array widths{0.1, 0.001, 0.0, -1.0, 1e-3 / 3, 9.2e6, 9.3e6, 1e300};
  const std::size_t choice = input.below(widths.size() + 1);
  return choice < widths.size() ? widths[choice]
                                : std::bit_cast<double>(input.number<std::uint64_t>());
}

// One byte says the channel (bits 0 and 1), now and then one that does not exist,
// and how the time follows from the one before it.
class TagList {
 public:
  explicit TagList(Input& input, std::int64_t channel_a, std::int64_t channel_b)
      : a_(static_cast<std::size_t>(channel_a)), b_(static_cast<std::size_t>(channel_b)) {
    while (!input.empty()) {
      take(input);
    }
  }

  Tags tags;
  std::array<Times, 4> times;

 private:
  void take(Input& input) {
    const unsigned code = input.byte();
    const std::uint8_t channel = code & 3;
    switch (code >> 2 & 7) {
      case 0:
        return add(channel, wide_time() + input.byte());
      case 1:
        return add(channel, wide_time() + input.number<std::uint16_t>());
      case 2:
        return add(channel, wide_time() - input.number<std::uint16_t>());
      case 3:
        return add(channel, wide_time() + (Wide{input.number<std::uint32_t>()} << 16));
      case 4:
        return add(channel, input.number<std::int64_t>());
      case 5:
        return add(channel, (code & 0x80) != 0 ? highest - input.byte() : lowest + input.byte());
      case 6:
        return repeat(channel, input.byte() * (code >= 0xE0 ? 40U : 1U),
                      input.number<std::uint16_t>());
      default:
        tags.push_back({static_cast<std::uint8_t>(4 + (code >> 5)), time_});
    }
  }

  [[nodiscard]] Wide wide_time() const { return time_; }

  void repeat(std::uint8_t channel, std::size_t count, std::int64_t step_ps) {
    for (; count > 0; --count) {
      add(channel, wide_time() + step_ps);
    }
  }

  void add(std::uint8_t channel, Wide time) {
    time_ = wrapped(time);
    const auto with_one_more = [&](std::size_t ch) {
      return times[ch].size() + (ch == channel ? 1 : 0);
    };
    if (with_one_more(channel) > max_tags_per_channel ||
        with_one_more(a_) * with_one_more(b_) > max_pairs) {
      return;
    }
    tags.push_back({channel, time_});
    times[channel].push_back(time_);
  }

  std::size_t a_;
  std::size_t b_;
  std::int64_t time_ = 0;
};

// ---- The comparisons -----------------------------------------------------------

void expect_near(std::string_view what, double expected, double actual) {
  if (!(std::fabs(expected - actual) <= 1e-12 * expected)) {
    expect_equal(what, expected, actual);
  }
}

void expect_same_ranking(const std::string& what, const Ranking& expected,
                         const std::vector<Ranked>& actual) {
  expect_equal(what + " in number", expected.size(), actual.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    expect_equal(what + ", value", expected[i].first, actual[i].first);
    expect_equal(what + ", count", expected[i].second, actual[i].second);
  }
}

void judge_channel(const Times& times, const ChannelAnalysis& actual) {
  expect_equal("tags", times.size(), actual.tags);
  const Steps steps = steps_of(times);
  expect_equal("monotonic_violations", steps.violations, actual.monotonic_violations);
  expect_equal("max_gap_ms", static_cast<double>(steps.max_gap_ps) / 1e9, actual.max_gap_ms);
  expect_equal("min_step_ps", steps.min_step_ps, actual.steps.min_step_ps);
  expect_equal_lists("steps below", steps.below, actual.steps.below);
  expect_equal("in_order", std::ranges::is_sorted(times), actual.steps.in_order);
  const Residues residues = residues_of(times);
  expect_equal("unique residues", residues.unique, actual.residues.unique);
  expect_equal("exact zeros", residues.exact_zero, actual.residues.exact_zero);
  expect_same_ranking("top residues", residues.top, actual.residues.top);
}

void judge_time_bins(const Tags& tags, double bin_s, const TimeBins& actual) {
  const double width_s = bin_s > 0.001 ? bin_s : 0.001;
  const TimeRows expected = time_rows_of(tags, width_s);
  expect_equal("width_s", width_s, actual.width_s());
  expect_equal("overflow", expected.overflow, actual.overflow());
  expect_equal("rows", expected.rows.size(), actual.rows().size());
  for (std::size_t i = 0; i < expected.rows.size(); ++i) {
    if (expected.rows[i] != actual.rows()[i]) {
      expect_equal_lists("row " + std::to_string(i), expected.rows[i], actual.rows()[i]);
    }
  }
}

void expect_same_offset(const Offset& expected, const OffsetEstimate& actual) {
  expect_equal("offset_ps", expected.offset_ps, actual.offset_ps);
  expect_equal("offset is valid", expected.valid, actual.valid);
}

void judge_pair(const Times& a, const Times& b, std::int64_t window, const PairAnalysis& actual) {
  expect_equal("tags_a", a.size(), actual.tags_a);
  expect_equal("tags_b", b.size(), actual.tags_b);
  expect_equal("coincidences", coincidences_of(a, b, window), actual.coincidences);
  const Offset offset = offset_of(a, b, window);
  expect_same_offset(offset, actual.offset);
  const Bins bins = pair_bins_of(a, b, window, offset.offset_ps);
  const Ranking top = top_ten(bins);
  expect_same_ranking("top bins", top, actual.top);
  expect_equal("peak, centre", top.front().first, actual.peak.center_ps);
  expect_equal("peak, count", top.front().second, actual.peak.count);
  expect_near("rms_ps", rms_of(bins), actual.rms_ps);
  expect_equal("fwhm_estimate_ps", actual.rms_ps * 2.355, actual.fwhm_estimate_ps);
  expect_equal("minus_period_window", side_window(bins, -3333), actual.minus_period_window);
  expect_equal("plus_period_window", side_window(bins, 3333), actual.plus_period_window);
}

// Any width of the bins and any offset, as far as the bins fit into memory.
void judge_dense_histogram(const Times& a, const Times& b, std::int64_t range, std::int64_t width,
                           std::int64_t offset_ps) {
  if (range >= 1 && width >= 1 && number_of_bins(range, width) > max_bins) {
    return;
  }
  const Bins expected = bins_of(a, b, range, width, offset_ps);
  const timing::XcorrHistogram actual = timing::xcorr_histogram(a, b, range, width, offset_ps);
  Times centers;
  Times counts;
  for (std::int64_t number = -expected.half; number <= expected.half; ++number) {
    centers.push_back(wrapped(Wide{number} * width));  // what does not fit wraps around
    counts.push_back(expected.count(number));
  }
  expect_equal_lists("centre", centers, actual.centers_ps);
  expect_equal_lists("count", counts, actual.counts);
}

// Of any width but those whose histograms have very many bins, all of which are
// made: one of these takes as long as hundreds of others.
std::int64_t take_window(Input& input) {
  constexpr std::int64_t widest_with_all_bins_ps = 17'000'000;
  const std::int64_t window = take_number(input);
  return window <= widest_with_all_bins_ps ? std::min(window, 4 * max_bins) : window;
}

void run(Input input) {
  const auto channel_a = static_cast<std::int32_t>(input.below(4));
  const auto channel_b = static_cast<std::int32_t>(input.below(4));
  const std::int64_t window = take_window(input);
  const std::size_t batch = input.byte();
  const double bin_s = take_bin_s(input);
  const std::int64_t width = take_number(input);
  const std::int64_t offset_ps = take_number(input);
  const TagList list(input, channel_a, channel_b);

  Capture capture{.statistics = CaptureStatistics(bin_s)};
  for (std::span<const timing::TimeTag> rest(list.tags); !rest.empty();) {
    const std::size_t count = batch == 0 ? rest.size() : std::min(batch, rest.size());
    capture.statistics.add(rest.first(count));
    rest = rest.subspan(count);
  }
  const Analysis analysis = analyse(capture, channel_a, channel_b, window);

  std::size_t total = 0;
  for (std::size_t channel = 0; channel < 4; ++channel) {
    const Times& times = list.times[channel];
    total += times.size();
    expect(std::ranges::equal(times, capture.statistics.times_ps()[channel]),
           "the times of a channel are those of its tags");
    judge_channel(times, analysis.channels[channel]);
  }
  expect_equal("tags_total", total, analysis.tags_total);
  judge_time_bins(list.tags, bin_s, analysis.bins);

  const Times& a = list.times[static_cast<std::size_t>(channel_a)];
  const Times& b = list.times[static_cast<std::size_t>(channel_b)];
  judge_pair(a, b, window, analysis.pair);
  expect_equal("coincidences", coincidences_of(a, b, window), count_coincidences(a, b, window));
  expect_same_offset(offset_of(a, b, window),
                     estimate_offset(SortedTimes(a), SortedTimes(b), window));
  judge_dense_histogram(a, b, window, width, offset_ps);
}

}  // namespace
}  // namespace zelk::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zelk::fuzz::run({data, size});
  return 0;
}
