// The report of a capture, byte for byte.
#include "smoke_test/report.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "tests/smoke_test/small_capture.hpp"
#include "tests/support/cout_capture.hpp"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using zelk::test_support::CoutCapture;
using zelk::timing::TimeTag;

// All differences are taken around the offset 10 ps: 0 twice, 10 ps once, and
// 1000 ps once, from the tag that came late.
constexpr const char* small_capture_lines =
    "tags_total=11\n"
    "ch0=4\n"
    "ch1=3\n"
    "ch2=2\n"
    "ch3=2\n"
    "coincidences=3\n"
    "xcorr_offset_ps=10\n"
    "xcorr_peak_count=2\n"
    "xcorr_peak_center_ps=0\n"
    "xcorr_rms_ps=431.870\n"        // the square root of 186512
    "xcorr_fwhm_est_ps=1017.055\n"  // 2.355 times that
    "xcorr_minus3333_window_pm40ps=0\n"
    "xcorr_plus3333_window_pm40ps=0\n"
    "xcorr_top_bins=0:2,8:1,1000:1,-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0\n"
    "reader_dropped=42\n"
    "monotonic_violations=1,0,0,0\n"
    "max_gap_ms=1.235,1.235,0.001,0.000\n"
    "min_dt_ps=-1000,3343,700000,250000\n"
    "dt_lt_10ns=1,1,0,0\n"
    "dt_lt_100ns=1,1,0,0\n"
    "dt_lt_500ns=1,1,0,1\n"
    "dt_lt_900ns=1,1,1,1\n"
    "ch0_mod3333_unique=3\n"
    "ch0_mod3333_exact_zero=2\n"
    "ch0_mod3333_top=0:2,469:1,2802:1\n"
    "ch1_mod3333_unique=3\n"
    "ch1_mod3333_exact_zero=0\n"
    "ch1_mod3333_top=10:1,20:1,479:1\n"
    "ch2_mod3333_unique=2\n"
    "ch2_mod3333_exact_zero=0\n"
    "ch2_mod3333_top=5:1,75:1\n"
    "ch3_mod3333_unique=2\n"
    "ch3_mod3333_exact_zero=0\n"
    "ch3_mod3333_top=35:1,60:1\n"
    "bins_s=0.001\n"
    "bin_overflow_tags=2\n"
    "bin 0 ch0=2 ch1=2 ch2=0 ch3=0\n"
    "bin 1 ch0=2 ch1=1 ch2=0 ch3=0\n"
    "bin 2 ch0=0 ch1=0 ch2=0 ch3=0\n"
    "bin 3 ch0=0 ch1=0 ch2=0 ch3=2\n";

std::string report_of(const Config& config, const DeviceSettings& settings,
                      CaptureStatistics statistics, std::uint64_t dropped) {
  const Analysis analysis =
      analyse({.statistics = std::move(statistics), .reader_dropped = dropped}, config.channel_a,
              config.channel_b, config.coincidence_window_ps);
  const CoutCapture output;
  print_report(config, settings, analysis);
  return output.text();
}

TEST(Report, OfASmallCaptureIsThisText) {
  Config config;
  config.bin_s = 0.001;
  config.dead_time_ps = 25'000;
  EXPECT_EQ(report_of(config, small_settings(), small_capture(), 42),
            std::string("device=Unit 12 rev B\n"
                        "port=ftdi:// transport=usb format=packed_delta mode=internal\n"
                        "ref_active=2 divider=4294967295\n"
                        "calibration_path=/home/lab/.zelk.timing/calibrations/A-7.cal\n"
                        "calibration_loaded=1\n"
                        "tdl_masks=0x0,0x7,0x1f,0xff\n"
                        "dead_time_ps=26664\n") +
                small_capture_lines);
}

TEST(Report, WithoutDeadTimeGoesOnWithTheTags) {
  Config config;
  config.bin_s = 0.001;
  EXPECT_EQ(config.dead_time_ps, -1);
  EXPECT_THAT(report_of(config, small_settings(), small_capture(), 42),
              HasSubstr(std::string("\ntdl_masks=0x0,0x7,0x1f,0xff\n") + small_capture_lines));
}

TEST(Report, AConfiguredDeadTimeOfZeroIsPrintedAsApplied) {
  Config config;
  config.dead_time_ps = 0;
  DeviceSettings settings = small_settings();
  settings.applied_dead_time_ps = -7;
  EXPECT_THAT(report_of(config, settings, small_capture(), 0), HasSubstr("\ndead_time_ps=-7\n"));
  settings.applied_dead_time_ps = 0;
  EXPECT_THAT(report_of(config, settings, small_capture(), 0), HasSubstr("\ndead_time_ps=0\n"));
}

TEST(Report, OfACaptureWithoutTagsIsThisText) {
  Config config;
  config.port = "";
  config.format = zelk::timing::Format::raw64;
  config.mode = StreamMode::external;
  config.bin_s = 0.0;
  EXPECT_EQ(report_of(config, DeviceSettings{}, CaptureStatistics(config.bin_s), 0),
            "device=\n"
            "port= transport=usb format=raw64 mode=external\n"
            "ref_active=-1 divider=0\n"
            "calibration_path=\n"
            "calibration_loaded=0\n"
            "tdl_masks=0x0,0x0,0x0,0x0\n"
            "tags_total=0\n"
            "ch0=0\n"
            "ch1=0\n"
            "ch2=0\n"
            "ch3=0\n"
            "coincidences=0\n"
            "xcorr_offset_ps=0\n"
            "xcorr_peak_count=0\n"
            "xcorr_peak_center_ps=-1000\n"
            "xcorr_rms_ps=0.000\n"
            "xcorr_fwhm_est_ps=0.000\n"
            "xcorr_minus3333_window_pm40ps=0\n"
            "xcorr_plus3333_window_pm40ps=0\n"
            "xcorr_top_bins=-1000:0,-992:0,-984:0,-976:0,-968:0,-960:0,-952:0,-944:0,-936:0,"
            "-928:0\n"
            "reader_dropped=0\n"
            "monotonic_violations=0,0,0,0\n"
            "max_gap_ms=0.000,0.000,0.000,0.000\n"
            "min_dt_ps=0,0,0,0\n"
            "dt_lt_10ns=0,0,0,0\n"
            "dt_lt_100ns=0,0,0,0\n"
            "dt_lt_500ns=0,0,0,0\n"
            "dt_lt_900ns=0,0,0,0\n"
            "ch0_mod3333_unique=0\n"
            "ch0_mod3333_exact_zero=0\n"
            "ch0_mod3333_top=\n"
            "ch1_mod3333_unique=0\n"
            "ch1_mod3333_exact_zero=0\n"
            "ch1_mod3333_top=\n"
            "ch2_mod3333_unique=0\n"
            "ch2_mod3333_exact_zero=0\n"
            "ch2_mod3333_top=\n"
            "ch3_mod3333_unique=0\n"
            "ch3_mod3333_exact_zero=0\n"
            "ch3_mod3333_top=\n"
            "bins_s=0.001\n"
            "bin_overflow_tags=0\n");
}

TEST(Report, WindowOfZeroHasASingleTopBin) {
  Config config;
  config.coincidence_window_ps = 0;
  CaptureStatistics statistics(0.1);
  statistics.add({0, 5});
  statistics.add({1, 5});
  EXPECT_THAT(report_of(config, DeviceSettings{}, std::move(statistics), 0),
              HasSubstr("\ncoincidences=1\n"
                        "xcorr_offset_ps=0\n"
                        "xcorr_peak_count=0\n"
                        "xcorr_peak_center_ps=0\n"
                        "xcorr_rms_ps=0.000\n"
                        "xcorr_fwhm_est_ps=0.000\n"
                        "xcorr_minus3333_window_pm40ps=0\n"
                        "xcorr_plus3333_window_pm40ps=0\n"
                        "xcorr_top_bins=0:0\n"
                        "reader_dropped=0\n"));
}

TEST(Report, BinsSwitchedOffHaveNoLines) {
  Config config;
  config.bin_s = 2e7;
  CaptureStatistics statistics(config.bin_s);
  statistics.add({0, 5});
  const std::string report = report_of(config, DeviceSettings{}, std::move(statistics), 0);
  EXPECT_THAT(report, HasSubstr("\nbins_s=20000000.000\nbin_overflow_tags=0\n"));
  EXPECT_THAT(report, Not(HasSubstr("\nbin 0")));
}

TEST(Report, PrintsThePairsFiguresInFull) {
  Analysis analysis;
  PairAnalysis& pair = analysis.pair;
  pair.coincidences = std::numeric_limits<std::uint64_t>::max();
  pair.offset = {.offset_ps = -123'456, .valid = true};
  pair.peak = {.count = 812, .center_ps = -24};
  pair.rms_ps = 12.3456;
  pair.fwhm_estimate_ps = 1234567.0625;  // exactly half way: to the even digit
  pair.minus_period_window = 17;
  pair.plus_period_window = 18;
  pair.top = {{0, 812}, {8, 790}, {-8, 655}};
  analysis.reader_dropped = std::numeric_limits<std::uint64_t>::max();
  const CoutCapture output;
  print_report(Config{}, DeviceSettings{}, analysis);
  EXPECT_THAT(output.text(), HasSubstr("\ncoincidences=18446744073709551615\n"
                                       "xcorr_offset_ps=-123456\n"
                                       "xcorr_peak_count=812\n"
                                       "xcorr_peak_center_ps=-24\n"
                                       "xcorr_rms_ps=12.346\n"
                                       "xcorr_fwhm_est_ps=1234567.062\n"
                                       "xcorr_minus3333_window_pm40ps=17\n"
                                       "xcorr_plus3333_window_pm40ps=18\n"
                                       "xcorr_top_bins=0:812,8:790,-8:655\n"
                                       "reader_dropped=18446744073709551615\n"));
}

TEST(Report, LeavesTheStreamDecimalAndFixedPoint) {
  const CoutCapture output;
  print_report(Config{}, DeviceSettings{}, Analysis{});
  const std::size_t size = output.text().size();
  std::cout << 255 << ' ' << 0.5;
  EXPECT_EQ(output.text().substr(size), "255 0.500");
}

TEST(Report, DeviceAndStreamAreItsFirstTwoLines) {
  Config config;
  config.port = "/dev/Unit0";
  config.transport = static_cast<zelk::timing::Transport>(2);
  config.format = static_cast<zelk::timing::Format>(9);
  config.mode = StreamMode::external;
  zelk::timing::Identity identity;
  identity.device_text = "Unit 12";
  const CoutCapture output;
  print_device_and_stream(config, identity);
  EXPECT_EQ(output.text(),
            "device=Unit 12\n"
            "port=/dev/Unit0 transport=unsupported format=unknown mode=external\n");
}

// Takes a few bytes and then no more, as a full disk does.
class FullBuffer : public std::streambuf {
 public:
  explicit FullBuffer(int capacity_bytes) : left_bytes_(capacity_bytes) {}

 protected:
  int_type overflow(int_type byte) override {
    return left_bytes_-- > 0 ? traits_type::not_eof(byte) : traits_type::eof();
  }

 private:
  int left_bytes_;
};

TEST(FinishedReport, ThatWasWrittenIsNoError) {
  const CoutCapture output;
  std::cout << "device=\n";
  EXPECT_NO_THROW(finish_report());
  EXPECT_EQ(output.text(), "device=\n");
}

TEST(FinishedReport, ThatCouldNotBeWrittenIsAnError) {
  const CoutCapture output;
  FullBuffer buffer(100);
  std::streambuf* const before = std::cout.rdbuf(&buffer);
  print_report(Config{}, DeviceSettings{}, Analysis{});
  EXPECT_THROW(finish_report(), std::runtime_error);
  std::cout.rdbuf(before);
}

}  // namespace
