// What becomes of an error in the reader thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/error_of.hpp"
#include "tests/timing/reader_bench.hpp"
#include "timing/error.hpp"

namespace zelk::timing {
namespace {

using scripted_device::Read;
using scripted_device::Script;
using testing::ElementsAre;
using testing::IsEmpty;
using zelk::test_support::error_of;

Read failing_read(qx_status status) {
  return {.bytes = {}, .status = status};
}

TEST(ReaderFailure, EndsTheThreadAndNamesTheRead) {
  Bench bench(Script{.status_texts = {{-12, "device gone"}},
                     .last_error = "endpoint stalled",
                     .forever = failing_read(-12)});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(wait_until([&] { return !bench.reader.running; }));
  const Error error = error_of([&] { bench.reader.stop(); });
  EXPECT_STREQ(error.what(), "read_stream_bytes: device gone (endpoint stalled)");
  EXPECT_EQ(error.status, -12);
  EXPECT_FALSE(bench.reader.thread.joinable());
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_open_serial port=ftdi:// -> 0",
                          "qx_read_stream_bytes capacity=262144 timeout=20 -> -12 received=0",
                          "qx_last_error", "qx_status_string status=-12"));
}

TEST(ReaderFailure, WithoutALastErrorHasNoParentheses) {
  Bench bench(Script{.status_texts = {{4, "odd"}}, .last_error = "", .forever = failing_read(4)});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(wait_until([&] { return !bench.reader.running; }));
  EXPECT_STREQ(error_of([&] { bench.reader.stop(); }).what(), "read_stream_bytes: odd");
}

TEST(ReaderFailure, DrainHandsOutTheTagsAndThenThrows) {
  Bench bench(Script{.reads = {{.bytes = records(4, 2)}}, .forever = failing_read(-12)});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(wait_until([&] { return !bench.reader.running; }));
  std::vector<TimeTag> batch;
  EXPECT_EQ(error_of([&] { bench.reader.drain(batch); }).status, -12);
  EXPECT_THAT(batch, ElementsAre(TimeTag{0, 4}, TimeTag{0, 5}));
  EXPECT_EQ(queued(bench.reader), 0u);
  EXPECT_EQ(error_of([&] { bench.reader.drain(batch); }).status, -12);
  EXPECT_THAT(batch, IsEmpty());
}

TEST(ReaderFailure, DrainWithoutCopyThrowsInsteadOfGivingTags) {
  Bench bench(Script{.reads = {{.bytes = records(4, 2)}}, .forever = failing_read(-12)});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(wait_until([&] { return !bench.reader.running; }));
  EXPECT_EQ(error_of([&] { bench.reader.drain(); }).status, -12);
  EXPECT_EQ(error_of([&] { bench.reader.drain(); }).status, -12);
}

TEST(ReaderFailure, StopAndStartThrowItAgainAndAgain) {
  Bench bench(Script{.reads = {failing_read(-12)}});
  bench.reader.start(external_raw64(), chunk, 1024);
  ASSERT_TRUE(wait_until([&] { return !bench.reader.running; }));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(error_of([&] { bench.reader.stop(); }).status, -12);
    EXPECT_EQ(error_of([&] { bench.reader.start(external_raw64(), chunk, 1024); }).status, -12);
    EXPECT_FALSE(bench.reader.running);
    EXPECT_FALSE(bench.reader.thread.joinable());
  }
  EXPECT_THAT(scripted_device::calls().back(), "qx_status_string status=-12");
}

TEST(ReaderFailure, DestructorKeepsQuiet) {
  scripted_device::load(Script{.forever = failing_read(-12)});
  Device device = Device::open("ftdi://", 3'000'000);
  EXPECT_NO_THROW({
    TagStreamReader reader(device);
    reader.start(external_raw64(), chunk, 1024);
    EXPECT_TRUE(wait_until([&] { return !reader.running; }));
  });
  EXPECT_THAT(scripted_device::calls(), testing::Not(testing::Contains("qx_close")));
}

}  // namespace
}  // namespace zelk::timing
