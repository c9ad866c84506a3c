// Runs over a stream of hand-picked tags.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/smoke_test_run.hpp"
#include "tests/support/wire_words.hpp"
#include "tests/whole_program/expected_report.hpp"

namespace zelk::test_support {

// Long enough for the reader thread to deliver a scripted stream, also on a
// busy machine.
inline constexpr const char* capture = "capture_s=0.25";

struct Tag {
  unsigned channel;
  std::uint64_t time_ps;
};

// A device that sends these tags as raw64 records in picoseconds, in one read,
// and then nothing more.
inline scripted_device::Script raw64_device(const std::vector<Tag>& tags) {
  Bytes bytes;
  for (const Tag& tag : tags) {
    append_big_endian(bytes, ps_record(tag.channel, tag.time_ps), 8);
  }
  return {.reads = {{.bytes = std::move(bytes)}}};
}

inline std::vector<std::string> raw64_arguments(std::vector<std::string> more = {}) {
  std::vector<std::string> arguments{"format=raw64", "mode=external", capture};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

// The calls from the start of the stream to the end, without time-outs.
inline std::vector<std::string> calls_from_start(const SmokeTestResult& result) {
  std::vector<std::string> calls = scripted_device::without_timeouts(result.calls);
  const auto start = std::find_if(calls.begin(), calls.end(), [](const std::string& call) {
    return call.starts_with("qx_start_stream_mode");
  });
  calls.erase(calls.begin(), start);
  return calls;
}

inline void expect_report(const SmokeTestResult& result, const ExpectedReport& expected,
                          int exit_status) {
  EXPECT_EQ(result.output, expected.text());
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, exit_status);
}

inline void expect_report_of(const std::vector<Tag>& tags, std::vector<std::string> more_arguments,
                             const ExpectedReport& expected, int exit_status) {
  expect_report(run_smoke_test(raw64_device(tags), raw64_arguments(std::move(more_arguments))),
                expected, exit_status);
}

}  // namespace zelk::test_support
