// Windows so wide that their histogram would have more bins than memory holds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <iomanip>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/reference/wide_pairs.hpp"
#include "tests/whole_program/tag_streams.hpp"

namespace zelk::test_support {
namespace {

// With 400 MB of address space.
SmokeTestResult run_in_little_memory(const scripted_device::Script& script,
                                     std::vector<std::string> arguments) {
  SmokeTest test(script, {});
  Program& program = test.program();
  program.arguments = {"-c", R"(ulimit -v 400000 && exec "$0" "$@")", program.file};
  program.arguments.insert(program.arguments.end(), arguments.begin(), arguments.end());
  program.file = "/bin/sh";
  return test.run();
}

// After the capture it may take 4 MiB more, and the histogram takes 16.
TEST(WideWindow, ThatMemoryDoesNotHoldLeavesOneErrorLineAndAStoppedStream) {
  SmokeTest test(raw64_device({{0, 5000}, {1, 5100}}),
                 raw64_arguments({"coincidence_window_ps=4000000"}));
  test.program().environment["LD_PRELOAD"] = ZELK_SCARCE_MEMORY_LIBRARY;
  test.program().environment["MALLOC_ARENA_MAX"] = "1";  // no 64 MiB set aside for the reader
  const SmokeTestResult result = test.run();
  EXPECT_EQ(result.error,
            "the cross-correlation histogram of a window of 4000000 ps does not fit into "
            "memory\n");
  EXPECT_EQ(result.output, internal_reference_line);
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_THAT(calls_from_start(result),
              testing::ElementsAre("qx_start_stream_mode mode=1 flags=0 -> 0",
                                   "qx_read_stream_bytes capacity=262144 timeout=20 -> 0 "
                                   "received=16",
                                   "qx_stop_stream_mode flag=true -> 0", "qx_close"));
}

std::string wide_window_lines(const reference::WidePairs& pairs, std::int64_t offset_ps,
                              std::uint64_t coincidences) {
  std::ostringstream lines;
  lines << std::fixed << std::setprecision(3)  //
        << "\ncoincidences=" << coincidences << "\nxcorr_offset_ps=" << offset_ps
        << "\nxcorr_peak_count=" << pairs.peak.count
        << "\nxcorr_peak_center_ps=" << pairs.peak.center << "\nxcorr_rms_ps=" << pairs.rms_ps
        << "\nxcorr_fwhm_est_ps=" << pairs.rms_ps * 2.355
        << "\nxcorr_minus3333_window_pm40ps=" << pairs.minus_window
        << "\nxcorr_plus3333_window_pm40ps=" << pairs.plus_window << "\nxcorr_top_bins=";
  const char* separator = "";
  for (const auto& [center, count] : pairs.top) {
    lines << separator << center << ':' << count;
    separator = ",";
  }
  lines << '\n';
  return lines.str();
}

// 400 pairs in 80 ms, 160,000 differences. The bins of 5 ms would take 20 GB.
TEST(WideWindow, NeedsLittleMemory) {
  std::vector<Tag> tags;
  reference::Times a;
  reference::Times b;
  for (std::int64_t i = 0; i < 400; ++i) {
    const std::int64_t time = 200'000'000 * i + 37 * i * i;
    const std::int64_t partner = time + 120 + i % 7;
    tags.push_back({0, static_cast<std::uint64_t>(time)});
    tags.push_back({1, static_cast<std::uint64_t>(partner)});
    a.push_back(time);
    b.push_back(partner);
  }
  for (const std::int64_t window : {std::int64_t{1'000'000'000}, std::int64_t{5'000'000'000},
                                    std::numeric_limits<std::int64_t>::max()}) {
    const SmokeTestResult result = run_in_little_memory(
        raw64_device(tags), raw64_arguments({"coincidence_window_ps=" + std::to_string(window)}));
    const std::int64_t offset = 123;  // the fourth of seven equally frequent ones
    ASSERT_EQ(reference::offset_estimate(a, b, window), offset);
    EXPECT_THAT(result.output, testing::HasSubstr(wide_window_lines(
                                   reference::wide_pairs(a, b, window, offset), offset, 400)));
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.exit_status, 0);
  }
}

}  // namespace
}  // namespace zelk::test_support
