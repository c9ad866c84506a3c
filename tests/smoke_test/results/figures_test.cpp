#include "smoke_test/results/figures.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "smoke_test/report.hpp"
#include "smoke_test/results/run_record.hpp"
#include "tests/smoke_test/small_capture.hpp"
#include "tests/support/cout_capture.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Values = std::vector<std::optional<std::string>>;

RunRecord record_of(Capture capture) {
  RunRecord record;
  record.config.dead_time_ps = 25'000;
  record.settings = small_settings();
  record.settings.reference =
      zelk::timing::ReferenceClockStatus{.external_present = true, .fallback = true, .raw = 0xC};
  record.analysis = analyse(capture, 0, 1, 1000);
  return record;
}

RunRecord small_record() {
  return record_of({.statistics = small_capture(),
                    .reader_dropped = 42,
                    .elapsed_s = 0.5,
                    .host_pause_s = 0.0125,
                    .silent_tail_s = {0.25, std::nullopt, 0.0004, 3.0}});
}

RunRecord empty_record() {
  RunRecord record = record_of({.statistics = CaptureStatistics(0.1)});
  record.settings.reference.reset();
  record.config.dead_time_ps = -1;
  return record;
}

// The values of a figure, one or four.
Values values_of(const char* name, const RunRecord& record) {
  const NamedFigure named = find_figure(name);
  if (named.figure == nullptr) {
    ADD_FAILURE() << "no figure " << name;
    return {};
  }
  if (named.figure->shape != Figure::Shape::per_channel) {
    return {named.figure->value(record, named.channel.value_or(0))};
  }
  Values values;
  for (std::size_t channel = 0; channel < 4; ++channel) {
    values.push_back(named.figure->value(record, channel));
  }
  return values;
}

// The report without the lines of the device's name and of the time bins, whose words
// are no figures.
std::string without_text_lines(const std::string& report) {
  std::istringstream lines(report);
  std::string rest;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("device=") && !line.starts_with("bin ")) {
      rest += line + '\n';
    }
  }
  return rest;
}

// The values that the report prints, by their keys: numbers, and lists of four.
std::map<std::string, Values> printed_numbers(const RunRecord& record) {
  const zelk::test_support::CoutCapture output;
  print_ref_status(*record.settings.reference, "ref");
  print_report(record.config, record.settings, *record.analysis);
  std::map<std::string, Values> printed;
  std::istringstream words(without_text_lines(output.text()));
  for (std::string word; words >> word;) {
    const std::size_t equals = word.find('=');
    const std::string value = word.substr(equals + 1);
    if (value.find_first_not_of("0123456789abcdefx.,-") != std::string::npos) {
      continue;
    }
    std::istringstream list(value);
    Values values;
    for (std::string item; std::getline(list, item, ',');) {
      values.emplace_back(item);
    }
    printed[word.substr(0, equals)] = values;
  }
  return printed;
}

TEST(Figures, AreWhatTheReportPrints) {
  const RunRecord record = small_record();
  std::map<std::string, Values> printed = printed_numbers(record);
  std::set<std::string> beyond;
  for (const Figure& figure : figures()) {
    const std::size_t count = figure.shape == Figure::Shape::channel_name ? 4 : 1;
    for (std::size_t channel = 0; channel < count; ++channel) {
      const std::string name = figure_name(figure, channel);
      if (printed.contains(name)) {
        EXPECT_EQ(values_of(name.c_str(), record), printed[name]) << name;
        printed.erase(name);
      } else {
        beyond.insert(name);
      }
    }
  }
  EXPECT_THAT(beyond, ElementsAre("coincidence_share", "elapsed_s", "host_pause_ms", "rate_hz",
                                  "silent_tail_s", "violations_share"));
  // No number of the report is left.
  std::set<std::string> left;
  for (const auto& [key, values] : printed) {
    left.insert(key);
  }
  EXPECT_THAT(left, IsEmpty());
}

// Channel 0: 3 steps in 1,234,566,000 ps, from the first tag to the last to arrive.
TEST(Figures, RateIsStepsOverTheTimeFromFirstToLast) {
  EXPECT_THAT(values_of("rate_hz", small_record()),
              ElementsAre("2430.004", "1620.001", "1428571.429", "4000000.000"));
}

TEST(Figures, SharesHaveSixDecimals) {
  EXPECT_THAT(values_of("violations_share", small_record()),
              ElementsAre("0.250000", "0.000000", "0.000000", "0.000000"));
  EXPECT_THAT(values_of("coincidence_share", small_record()), ElementsAre("1.000000"));
}

TEST(Figures, TimesOfTheHost) {
  EXPECT_THAT(values_of("elapsed_s", small_record()), ElementsAre("0.500"));
  EXPECT_THAT(values_of("host_pause_ms", small_record()), ElementsAre("12.500"));
  EXPECT_THAT(values_of("silent_tail_s", small_record()),
              ElementsAre("0.250", std::nullopt, "0.000", "3.000"));
}

TEST(Figures, OfARunWithoutTags) {
  const RunRecord record = empty_record();
  for (const char* name :
       {"ref_external_present", "ref_external_locked", "ref_fallback", "ref_missing_warning",
        "ref_raw", "dead_time_ps", "xcorr_offset_ps", "xcorr_peak_count", "xcorr_peak_center_ps",
        "xcorr_rms_ps", "xcorr_fwhm_est_ps", "xcorr_minus3333_window_pm40ps",
        "xcorr_plus3333_window_pm40ps", "coincidence_share"}) {
    EXPECT_THAT(values_of(name, record), ElementsAre(std::nullopt)) << name;
  }
  for (const char* name :
       {"max_gap_ms", "min_dt_ps", "rate_hz", "silent_tail_s", "violations_share"}) {
    EXPECT_THAT(values_of(name, record),
                ElementsAre(std::nullopt, std::nullopt, std::nullopt, std::nullopt))
        << name;
  }
  EXPECT_THAT(values_of("coincidences", record), ElementsAre("0"));
  EXPECT_THAT(values_of("ch3", record), ElementsAre("0"));
  EXPECT_THAT(values_of("ch2_mod3333_unique", record), ElementsAre("0"));
}

TEST(Figures, OneTagHasAShareButNoRateAndNoStep) {
  CaptureStatistics statistics(0.1);
  statistics.add(zelk::timing::TimeTag{1, 5});
  const RunRecord record = record_of({.statistics = std::move(statistics)});
  EXPECT_EQ(values_of("violations_share", record)[1], "0.000000");
  EXPECT_EQ(values_of("rate_hz", record)[1], std::nullopt);
  EXPECT_EQ(values_of("min_dt_ps", record)[1], std::nullopt);
  EXPECT_EQ(values_of("max_gap_ms", record)[1], std::nullopt);
}

TEST(Figures, NoRateWhereTheLastTagIsNotLaterThanTheFirst) {
  for (const std::int64_t last : {5, 4}) {
    CaptureStatistics statistics(0.1);
    for (const std::int64_t time : {std::int64_t{5}, std::int64_t{9}, last}) {
      statistics.add(zelk::timing::TimeTag{1, time});
    }
    const RunRecord record = record_of({.statistics = std::move(statistics)});
    EXPECT_EQ(values_of("rate_hz", record)[1], std::nullopt) << last;
  }
}

TEST(Figures, TheWholeRangeOfTimesHasARate) {
  CaptureStatistics statistics(0.1);
  statistics.add(zelk::timing::TimeTag{1, std::numeric_limits<std::int64_t>::min()});
  statistics.add(zelk::timing::TimeTag{1, std::numeric_limits<std::int64_t>::max()});
  // One step in 2^64 ps, which is 18.4 million seconds.
  EXPECT_EQ(values_of("rate_hz", record_of({.statistics = std::move(statistics)}))[1], "0.000");
}

TEST(Figures, WordsAndUnknownNamesAreNone) {
  for (const char* name : {"device", "port", "transport", "ref_requested", "calibration_path",
                           "xcorr_top_bins", "ch0_mod3333_top", "bin", "ch%", "ch4", "ch", "",
                           "ch-1", "ch00", "Coincidences", "rate_hz[0]"}) {
    EXPECT_EQ(find_figure(name).figure, nullptr) << name;
  }
}

TEST(Figures, NamesDiffer) {
  std::set<std::string> names;
  for (const Figure& figure : figures()) {
    EXPECT_TRUE(names.insert(figure_name(figure, 0)).second) << figure.name;
    EXPECT_NE(figure.meaning, "") << figure.name;
  }
}

}  // namespace
