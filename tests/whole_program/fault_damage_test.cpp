// Streams that arrive damaged: the run ends as ever, with a report, and its
// figures are those that the damage explains.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/logged_run.hpp"
#include "tests/support/parameter_names.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::test_support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// A file of as many tags on channel 0 as on channel 1, and runs that play it.
//
// In raw64 all of these times have the form 01 xx xx xx xx 11 behind the two
// bytes that hold nothing but the channel, with xx xx never below 5500. So no
// eight bytes that begin inside a record look like one, but for accidents of
// about one in 10^5: damage to a record costs this record, and the next is
// found again.
class Recording {
 public:
  static constexpr int tags = 20'000;

  Recording() {
    constexpr long long first_ps = 0x015500000011;
    constexpr long long step_ps = 256 * 39'063;  // some 10 us
    constexpr long long delay_ps = 256;
    std::ofstream out(file_);
    out << "channel,timestamp_ps\n";
    for (int pair = 0; pair < tags / 2; ++pair) {
      const long long time_ps = first_ps + pair * step_ps;
      out << "0," << time_ps << "\n1," << time_ps + delay_ps << '\n';
    }
  }

  // A run with these faults, which must end in a report.
  SmokeTestResult play(const std::string& keys, const std::string& format,
                       const std::string& capture_s = "0.8") const {
    SmokeTestResult result = run_logged(
        {"port=sim://tags?file=" + file_.string() + "&pace=max&" + keys, "format=" + format,
         "mode=external", "channel_mask=15", "capture_s=" + capture_s});
    EXPECT_EQ(result.error, "");
    EXPECT_TRUE(result.exit_status == 0 || result.exit_status == 3);
    EXPECT_THAT(calls_of_stream(result),
                ElementsAre("qx_start_stream_mode -> 0", "qx_stop_stream_mode -> 0", clean_close));
    return result;
  }

 private:
  TemporaryDirectory directory_;
  std::filesystem::path file_ = directory_.path() / "tags.csv";
};

// The number behind "\nkey=".
double value(const SmokeTestResult& result, const std::string& key) {
  const std::size_t at = result.output.find("\n" + key + "=");
  if (at == std::string::npos) {
    ADD_FAILURE() << "no " << key << " in the report";
    return -1;
  }
  return std::stod(result.output.substr(at + key.size() + 2));
}

class DamagedStream : public testing::TestWithParam<const char*> {};

TEST_P(DamagedStream, IsNoReasonToFailInAnyFormat) {
  const Recording recording;
  for (const char* const format : {"raw64", "delta32", "packed_delta"}) {
    SCOPED_TRACE(format);
    recording.play(GetParam(), format, "0.1");
  }
}

TEST_P(DamagedStream, IsNoReasonToFailInInternalMode) {
  for (const char* const format : {"raw64", "delta32", "packed_delta"}) {
    SCOPED_TRACE(format);
    const SmokeTestResult result =
        run_logged({std::string("port=ftdi://?") + GetParam(), std::string("format=") + format,
                    "cal_freq_hz=200000", "capture_s=0.1"});
    EXPECT_EQ(result.error, "");
    EXPECT_TRUE(result.exit_status == 0 || result.exit_status == 3);
    EXPECT_THAT(calls_of_stream(result),
                ElementsAre("qx_start_stream_mode -> 0", "qx_stop_stream_mode -> 0", clean_close));
  }
}

INSTANTIATE_TEST_SUITE_P(Each, DamagedStream,
                         testing::Values("flip_bits=0.0001", "flip_bits=0.5", "lose_bytes=0.001",
                                         "lose_bytes=0.5", "lose_bytes=1", "insert_bytes=0.001",
                                         "insert_bytes=1", "remove_bits=0.0001", "remove_bits=0.3",
                                         "insert_bits=0.0001", "insert_bits=1", "remove_bit_at_s=0",
                                         "insert_bit_at_s=0", "zeros_at_s=0", "ones_at_s=0"),
                         printed_parameter);

// Of a record's 64 bits 18 are fixed: a flip in one of them costs the record.
// One in a channel's higher bit moves the tag to channel 2 or 3.
TEST(FlippedBits, CostRaw64RecordsByTheirFixedBits) {
  constexpr double rate = 1e-3;
  const SmokeTestResult result = Recording().play("flip_bits=0.001", "raw64");
  const double kept = std::pow(1 - rate, 18);
  EXPECT_NEAR(value(result, "tags_total"), Recording::tags * kept,
              4 * std::sqrt(Recording::tags * kept * (1 - kept)));
  const double moved = Recording::tags * kept * rate;
  EXPECT_NEAR(value(result, "ch2") + value(result, "ch3"), moved, 4 * std::sqrt(moved));
}

// A record with a byte missing borrows one of the next, which is lost by that.
TEST(LostBytes, CostOneRaw64RecordEach) {
  const double lost = 8 * Recording::tags * 2e-4;
  const SmokeTestResult result = Recording().play("lose_bytes=0.0002", "raw64");
  EXPECT_NEAR(value(result, "tags_total"), Recording::tags - lost, 4 * std::sqrt(lost));
}

// A byte inserted in front of a record or in its time does not hide it. One in
// front of its second byte does unless it can pass for the first itself (5 of
// 256 values), one in front of the third unless its upper half is 0.
TEST(InsertedBytes, CostARaw64RecordWhereItsFixedBitsAre) {
  const double inserted = 8 * Recording::tags * 1e-3;
  const double hidden = inserted / 8 * (251.0 / 256 + 15.0 / 16);
  const SmokeTestResult result = Recording().play("insert_bytes=0.001", "raw64");
  EXPECT_NEAR(value(result, "tags_total"), Recording::tags - hidden, 4 * std::sqrt(hidden));
}

// Moved by one bit to the left, the 00 and 01 of channels 0 and 1 read 0 and 2,
// and the times are doubled. The last record is never complete.
TEST(SlippedBit, MakesChannel2OfChannel1InRaw64) {
  const SmokeTestResult result = Recording().play("remove_bit_at_s=0", "raw64");
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_EQ(value(result, "ch0"), Recording::tags / 2);
  EXPECT_EQ(value(result, "ch1"), 0);
  EXPECT_EQ(value(result, "ch2"), Recording::tags / 2 - 1);
  EXPECT_EQ(value(result, "ch3"), 0);
}

// How many tags that costs depends on how the stream is cut into reads.
TEST(SlippedBit, IsGotOverInPackedDelta) {
  EXPECT_EQ(Recording().play("remove_bit_at_s=0", "packed_delta").exit_status, 0);
}

TEST(LostBytes, AllOfThemLeaveNothing) {
  for (const char* const format : {"raw64", "delta32", "packed_delta"}) {
    EXPECT_EQ(value(Recording().play("lose_bytes=1", format), "tags_total"), 0) << format;
  }
}

// Zeros are a valid raw64 record: channel 0 at time 0.
TEST(StuckStream, OfZerosIsChannel0AtTime0InRaw64AndNothingInDelta32) {
  const SmokeTestResult raw64 = Recording().play("zeros_at_s=0", "raw64");
  EXPECT_EQ(raw64.exit_status, 3);
  EXPECT_EQ(value(raw64, "ch0"), Recording::tags);
  EXPECT_EQ(value(raw64, "ch1"), 0);
  EXPECT_THAT(raw64.output, HasSubstr("\nmax_gap_ms=0.000,0.000,0.000,0.000\n"));
  const SmokeTestResult delta32 = Recording().play("zeros_at_s=0", "delta32");
  EXPECT_EQ(delta32.exit_status, 3);
  EXPECT_EQ(value(delta32, "tags_total"), 0);
}

TEST(StuckStream, OfOnesIsNothing) {
  for (const char* const format : {"raw64", "delta32", "packed_delta"}) {
    const SmokeTestResult result = Recording().play("ones_at_s=0", format);
    EXPECT_EQ(result.exit_status, 3) << format;
    EXPECT_EQ(value(result, "tags_total"), 0) << format;
  }
}

TEST(StuckStream, ShowsInTheByteProbe) {
  for (const auto& [key, first_bytes, all_nonzero] :
       {std::tuple{"zeros_at_s=0", "00 00 00 00", false},
        std::tuple{"ones_at_s=0", "ff ff ff ff", true}}) {
    const SmokeTestResult result = run_logged(
        {std::string("port=ftdi://?") + key, "byte_probe=1", "format=raw64", "capture_s=0.1"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_THAT(result.output, HasSubstr(std::string("\nbyte_probe_first_bytes=") + first_bytes));
    const double bytes = value(result, "byte_probe_payload_bytes");
    EXPECT_GT(bytes, 0);
    EXPECT_EQ(value(result, "byte_probe_nonzero_bytes"), all_nonzero ? bytes : 0);
  }
}

// Decoding raw64 does not depend on how the stream is cut into reads.
TEST(Damage, IsTheSameAgainWithTheSameSeed) {
  const Recording recording;
  const std::string keys =
      "flip_bits=0.001&lose_bytes=0.001&insert_bytes=0.001&remove_bits=0.00001&seed=";
  const SmokeTestResult first = recording.play(keys + "7", "raw64");
  EXPECT_EQ(recording.play(keys + "7", "raw64").output, first.output);
  const SmokeTestResult other = recording.play(keys + "8", "raw64");
  EXPECT_NE(value(other, "tags_total"), value(first, "tags_total"));
}

}  // namespace
}  // namespace zelk::test_support
