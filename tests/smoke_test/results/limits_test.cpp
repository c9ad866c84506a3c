#include "smoke_test/results/limits.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "smoke_test/results/run_record.hpp"
#include "tests/smoke_test/small_capture.hpp"
#include "tests/support/temporary_directory.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using zelk::test_support::TemporaryDirectory;

// Channel 0 has a violation, 1 none; 3 coincidences; rates of 2430 and 1620 Hz.
RunRecord small_record(unsigned channel_mask = 0x03) {
  RunRecord record;
  record.config.channel_mask = static_cast<std::uint8_t>(channel_mask);
  record.settings = small_settings();
  record.analysis = analyse({.statistics = small_capture()}, 0, 1, 1000);
  return record;
}

// The outcome in one text: "met" or "not met", and what was seen.
std::string outcome(const char* condition, const RunRecord& record = small_record()) {
  const LimitOutcome judged = judge(read_condition(condition), record);
  return (judged.met ? "met: " : "not met: ") + judged.seen;
}

std::string refusal(const std::string& text) {
  try {
    read_conditions(text);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "none";
}

TEST(Limits, EachRelationAtItsEdge) {
  for (const auto& [condition, expected] :
       std::initializer_list<std::pair<const char*, bool>>{{"coincidences=3", true},
                                                           {"coincidences=2", false},
                                                           {"coincidences=4", false},
                                                           {"coincidences<3", false},
                                                           {"coincidences<4", true},
                                                           {"coincidences<=2", false},
                                                           {"coincidences<=3", true},
                                                           {"coincidences<=4", true},
                                                           {"coincidences>3", false},
                                                           {"coincidences>2", true},
                                                           {"coincidences>=4", false},
                                                           {"coincidences>=3", true},
                                                           {"coincidences>=2", true},
                                                           {"coincidences>-1", true},
                                                           {"coincidences=3.0", true},
                                                           {"coincidences=3e0", true},
                                                           {"coincidences=0x3", true}}) {
    EXPECT_EQ(judge(read_condition(condition), small_record()).met, expected) << condition;
  }
}

TEST(Limits, NegativeNumbers) {
  EXPECT_EQ(outcome("min_dt_ps[0]>=-1000"), "met: -1000");
  EXPECT_EQ(outcome("min_dt_ps[0]>-1000"), "not met: -1000");
  EXPECT_EQ(outcome("min_dt_ps[0]<-999"), "met: -1000");
}

// The root mean square is 431.87028...
TEST(Limits, TheValueAsPrintedIsCompared) {
  EXPECT_EQ(outcome("xcorr_rms_ps<=431.870"), "met: 431.870");
  EXPECT_EQ(outcome("xcorr_rms_ps=431.87"), "met: 431.870");
}

TEST(Limits, AFigureOfEachChannelHoldsForEveryChannelOfTheMask) {
  EXPECT_EQ(outcome("monotonic_violations=0"), "not met: channel 0: 1");
  EXPECT_EQ(outcome("monotonic_violations=0", small_record(0x0E)),
            "met: channel 1: 0, channel 2: 0, channel 3: 0");
  EXPECT_EQ(outcome("rate_hz>2500"), "not met: channel 0: 2430.004, channel 1: 1620.001");
  EXPECT_EQ(outcome("rate_hz>2000"), "not met: channel 1: 1620.001");
  EXPECT_EQ(outcome("rate_hz>1000"), "met: channel 0: 2430.004, channel 1: 1620.001");
}

TEST(Limits, AFigureOfOneChannelAlsoOutsideTheMask) {
  EXPECT_EQ(outcome("monotonic_violations[0]=0"), "not met: 1");
  EXPECT_EQ(outcome("monotonic_violations[1]=0"), "met: 0");
  EXPECT_EQ(outcome("rate_hz[3]=4e6"), "met: 4000000.000");
  EXPECT_EQ(outcome("ch2=2"), "met: 2");
}

TEST(Limits, NoChannelInTheMaskMeetsNothing) {
  EXPECT_EQ(outcome("rate_hz>=0", small_record(0)), "not met: not available");
}

TEST(Limits, WhatTheRunDoesNotHaveMeetsNothing) {
  EXPECT_EQ(outcome("ref_fallback=0"), "not met: not available");
  EXPECT_EQ(outcome("ref_fallback>=0"), "not met: not available");
  RunRecord record = small_record();
  record.analysis->silent_tail_s = {0.1, std::nullopt, 0.1, 0.1};
  EXPECT_EQ(outcome("silent_tail_s<1", record), "not met: channel 1: not available");
}

TEST(Limits, WhatIsPrintedWithoutBeingANumberMeetsNothing) {
  RunRecord record = small_record();
  record.analysis->bins = TimeBins(std::numeric_limits<double>::infinity());
  EXPECT_EQ(outcome("bins_s>=1", record), "not met: inf");
}

TEST(Limits, SpacesAroundTheParts) {
  const std::vector<Condition> conditions =
      read_conditions("  coincidences >= 4 ,\trate_hz[1] < 2e3\r");
  ASSERT_EQ(conditions.size(), 2u);
  EXPECT_EQ(conditions[0].text, "coincidences >= 4");
  EXPECT_EQ(conditions[1].text, "rate_hz[1] < 2e3");
  EXPECT_EQ(conditions[1].channel, 1u);
}

TEST(Limits, RefusalsNameTheCondition) {
  for (const auto& [text, expected] : std::initializer_list<std::pair<const char*, const char*>>{
           {"",
            "cannot read the condition \"\": it needs one of = < <= > >= behind a figure, and "
            "a number"},
           {"coincidences",
            "cannot read the condition \"coincidences\": it needs one of = < <= > >= behind a "
            "figure, and a number"},
           {"coincidences=1,",
            "cannot read the condition \"\": it needs one of = < <= > >= behind a figure, and a "
            "number"},
           {"coincidences==1",
            "cannot read the condition \"coincidences==1\": \"=1\" is no number"},
           {"coincidences>=many",
            "cannot read the condition \"coincidences>=many\": \"many\" is no number"},
           {"coincidences>=", "cannot read the condition \"coincidences>=\": \"\" is no number"},
           {"=5", "cannot read the condition \"=5\": no figure is called \"\""},
           {"device=5", "cannot read the condition \"device=5\": no figure is called \"device\""},
           {"coincidence>=5",
            "cannot read the condition \"coincidence>=5\": no figure is called \"coincidence\"; "
            "did you mean coincidences?"},
           {"coincidences[0]>=5",
            "cannot read the condition \"coincidences[0]>=5\": coincidences has no value per "
            "channel"},
           {"ch0[0]>=5", "cannot read the condition \"ch0[0]>=5\": ch0 has no value per channel"},
           {"rate_hz[4]>5",
            "cannot read the condition \"rate_hz[4]>5\": a channel is [0], [1], [2] or [3]"},
           {"rate_hz[]>5",
            "cannot read the condition \"rate_hz[]>5\": a channel is [0], [1], [2] or [3]"},
           {"rate_hz[01]>5",
            "cannot read the condition \"rate_hz[01]>5\": a channel is [0], [1], [2] or [3]"},
           {"rate_hz[0>5",
            "cannot read the condition \"rate_hz[0>5\": a channel is [0], [1], [2] or [3]"}}) {
    EXPECT_EQ(refusal(text), expected);
  }
}

TEST(LimitsFile, HasAConditionPerLineAndComments) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() / "limits.txt";
  std::ofstream(path) << "# a healthy unit\n"
                         "coincidences>=4000   # of 5000\n"
                         "\n"
                         "   \t\n"
                         "  reader_dropped=0\r\n"
                         "rate_hz[2]>1e3";
  std::vector<std::string> texts;
  for (const Condition& condition : read_limits_file(path)) {
    texts.push_back(condition.text);
  }
  EXPECT_THAT(texts, ElementsAre("coincidences>=4000", "reader_dropped=0", "rate_hz[2]>1e3"));
}

std::string file_refusal(const std::string& path) {
  try {
    read_limits_file(path);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "none";
}

TEST(LimitsFile, RefusalNamesFileAndLine) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() / "limits.txt";
  std::ofstream(path) << "# one\n\ncoincidences>=1\ncoincidences>=1,ch0>1\n";
  EXPECT_EQ(file_refusal(path),
            path +
                ":4: cannot read the condition \"coincidences>=1,ch0>1\": \"1,ch0>1\" is no "
                "number");
}

TEST(LimitsFile, OnlyAPlainFileIsRead) {
  const TemporaryDirectory directory;
  const std::string pipe = directory.path() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(file_refusal(pipe), "cannot read the limits file " + pipe);
  EXPECT_EQ(file_refusal(directory.path()),
            "cannot read the limits file " + directory.path().string());
  EXPECT_EQ(file_refusal(directory.path() / "none"),
            "cannot read the limits file " + (directory.path() / "none").string());
}

TEST(LimitsFile, AnEmptyOneHasNoCondition) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() / "limits.txt";
  std::ofstream(path) << "# nothing yet\n";
  EXPECT_THAT(read_limits_file(path), IsEmpty());
}

TEST(Limits, EachThatDoesNotHoldIsOneLine) {
  std::vector<Limit> limits;
  for (const Condition& condition : read_conditions("coincidences>=4,ch0=4,rate_hz>2000")) {
    limits.push_back({condition, judge(condition, small_record())});
  }
  testing::internal::CaptureStderr();
  EXPECT_EQ(print_limits_not_met(limits), 2u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "not met: coincidences>=4 (3)\n"
            "not met: rate_hz>2000 (channel 1: 1620.001)\n");
}

}  // namespace
