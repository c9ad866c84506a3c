#include "smoke_test/results/run_document.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <string>
#include <string_view>

#include "smoke_test/options.hpp"
#include "smoke_test/results/figures.hpp"
#include "smoke_test/results/limits.hpp"
#include "tests/smoke_test/small_capture.hpp"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// A line of an inner key, or of an outer one.
std::string inner(const std::string& line) {
  return "\n    " + line;
}
std::string outer(const std::string& line) {
  return "\n  " + line;
}

RunRecord captured() {
  RunRecord record;
  record.settings = small_settings();
  record.set_up_is_done = true;
  record.analysis = analyse({.statistics = small_capture(), .reader_dropped = 42}, 0, 1, 1000);
  record.exit_status = 0;
  return record;
}

TEST(RunDocument, OfARunThatHasJustBegunKnowsNothing) {
  const std::string text = run_document({});
  EXPECT_THAT(text,
              StartsWith("{\n  \"format_version\": 1,\n  \"program\": \"zelk_smoke_test\",\n"));
  for (const char* key :
       {"run_id", "note", "identity", "reference_clock", "applied", "byte_probe", "units"}) {
    EXPECT_THAT(text, HasSubstr(outer("\"" + std::string(key) + "\": null,\n")));
  }
  EXPECT_THAT(text, HasSubstr(outer("\"arguments\": [],\n")));
  EXPECT_THAT(text, HasSubstr(outer("\"limits\": [],\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"tags_total\": null,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"rate_hz\": [null,null,null,null],\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"bins\": null\n")));
  EXPECT_THAT(text, EndsWith("\n  \"error\": null,\n  \"exit_status\": null\n}\n"));
}

TEST(RunDocument, IsItsTwoParts) {
  const RunRecord record = captured();
  EXPECT_EQ(run_document(record), document_head(record) + document_tail(record));
}

TEST(RunDocument, HasEveryFigureOnce) {
  const std::string text = run_document(captured());
  for (const Figure& figure : figures()) {
    for (std::size_t channel = 0; channel < 4; ++channel) {
      const std::string key = inner("\"" + figure_name(figure, channel) + "\": ");
      const std::size_t first = text.find(key, text.find("\"figures\""));
      ASSERT_NE(first, std::string::npos) << key;
      EXPECT_EQ(text.find(key, first + 1), std::string::npos) << key;
    }
  }
}

TEST(RunDocument, HasASettingForEachOption) {
  const std::string text = run_document({});
  const std::string settings =
      text.substr(text.find("\"settings\""), text.find("\"note\"") - text.find("\"settings\""));
  for (const Option& option : options()) {
    const std::string key(option.keys[0]);
    if (key == "dead_time_ns") {
      continue;  // dead_time_ps in another unit
    }
    if (key == "note") {
      EXPECT_THAT(text, HasSubstr(outer("\"note\": ")));
    } else {
      EXPECT_THAT(settings, HasSubstr(inner("\"" + key + "\": ")));
    }
  }
}

TEST(RunDocument, SaysWhatTheReportSays) {
  const std::string text = run_document(captured());
  EXPECT_THAT(text, HasSubstr(inner("\"tdl_masks\": [0,7,31,255],\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"reader_dropped\": 42,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"divider\": 4294967295,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"bins_s\": 0.001,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"bin_overflow_tags\": 2,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"ch2\": 2,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"bins\": [[2,2,0,0],[2,1,0,0],[0,0,0,0],[0,0,0,2]]\n")));
}

TEST(RunDocument, KeepsEveryDigitOfWholeNumbers) {
  RunRecord record = captured();
  record.config.queue_limit = std::numeric_limits<std::uint64_t>::max();
  record.config.coincidence_window_ps = std::numeric_limits<std::int64_t>::min();
  record.analysis->reader_dropped = std::numeric_limits<std::uint64_t>::max();
  record.analysis->channels[0].steps.min_step_ps = std::numeric_limits<std::int64_t>::max();
  const std::string text = run_document(record);
  EXPECT_THAT(text, HasSubstr(inner("\"queue_limit\": 18446744073709551615,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"coincidence_window_ps\": -9223372036854775808,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"reader_dropped\": 18446744073709551615,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"min_dt_ps\": [9223372036854775807,")));
}

TEST(RunDocument, HasThePrintedDigitsOfOtherNumbers) {
  RunRecord record = captured();
  record.analysis->pair.offset.valid = true;
  record.analysis->pair.rms_ps = 6.3784999;
  record.analysis->pair.fwhm_estimate_ps = 15.0;
  const std::string text = run_document(record);
  EXPECT_THAT(text, HasSubstr(inner("\"xcorr_rms_ps\": 6.378,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"xcorr_fwhm_est_ps\": 15.0,\n")));
}

TEST(RunDocument, TurnsWhatIsNoNumberIntoNull) {
  RunRecord record = captured();
  record.config.capture_s = std::numeric_limits<double>::infinity();
  record.config.cal_freq_hz = std::numeric_limits<double>::quiet_NaN();
  record.analysis->bins = TimeBins(std::numeric_limits<double>::infinity());
  const std::string text = run_document(record);
  EXPECT_THAT(text, HasSubstr(inner("\"capture_s\": null,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"cal_freq_hz\": null,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"threshold_v\": null,\n")));
  EXPECT_THAT(text, HasSubstr(inner("\"bins_s\": null,\n")));
}

TEST(RunDocument, ReplacesBytesThatAreNoUtf8) {
  RunRecord record = captured();
  record.arguments = {"note=\xff\xfe", "quote=\"\\", "port=a\nb"};
  record.config.note = "caf\xe9";
  record.settings.identity.serial = "\x80";
  const std::string text = run_document(record);
  EXPECT_THAT(text, HasSubstr("\"arguments\": [\"note=\xEF\xBF\xBD\xEF\xBF\xBD\","
                              "\"quote=\\\"\\\\\",\"port=a\\nb\"],\n"));
  EXPECT_THAT(text, HasSubstr("\"note\": \"caf\xEF\xBF\xBD\",\n"));
  EXPECT_THAT(text, HasSubstr("\"serial\": \"\xEF\xBF\xBD\",\n"));
}

TEST(RunDocument, NamesItsStartInUtc) {
  RunRecord record;
  using namespace std::chrono;
  record.start = system_clock::time_point{} + sys_days{2026y / March / 9d}.time_since_epoch() + 1h +
                 2min + 3s + 45ms + 999us;
  EXPECT_THAT(run_document(record), HasSubstr("\"start\": \"2026-03-09T01:02:03.045Z\",\n"));
}

TEST(RunDocument, GivesTheErrorLineAsItIsPrinted) {
  RunRecord record;
  record.exit_status = 2;
  record.error = "identify: no answer\nnor a \"hint\"";
  EXPECT_THAT(run_document(record),
              EndsWith("\n  \"error\": \"identify: no answer\\\\nnor a \\\"hint\\\"\",\n"
                       "  \"exit_status\": 2\n}\n"));
}

TEST(RunDocument, NamesTheUnitsOfARunThatListsThem) {
  RunRecord record;
  record.config.list = true;
  EXPECT_THAT(run_document(record), HasSubstr(outer("\"units\": null,\n")));
  record.exit_status = 0;
  EXPECT_THAT(run_document(record), HasSubstr(outer("\"units\": [],\n")));
  zelk::timing::Identity identity;
  identity.serial = "A-7";
  identity.device_text = "TDC";
  record.units.push_back({.port = "usb://1", .identity = identity});
  EXPECT_THAT(run_document(record),
              HasSubstr(outer("\"units\": [{\"port\":\"usb://1\",\"serial\":\"A-7\","
                              "\"device\":\"TDC\",\"text_a\":\"\",\"text_b\":\"\"}],\n")));
}

TEST(RunDocument, SaysOfALimitWhatCameOfIt) {
  RunRecord record = captured();
  record.limits = {{read_condition("coincidences>=4"), LimitOutcome{.met = false, .seen = "2"}},
                   {read_condition("rate_hz[2] < 1e6"), LimitOutcome{.met = true, .seen = "5.000"}},
                   {read_condition("ch3>0")}};
  EXPECT_THAT(run_document(record),
              HasSubstr("\"limits\": [{\"text\":\"coincidences>=4\",\"figure\":\"coincidences\","
                        "\"channel\":null,\"met\":false,\"seen\":\"2\"},"
                        "{\"text\":\"rate_hz[2] < 1e6\",\"figure\":\"rate_hz\",\"channel\":2,"
                        "\"met\":true,\"seen\":\"5.000\"},"
                        "{\"text\":\"ch3>0\",\"figure\":\"ch3\",\"channel\":3,"
                        "\"met\":null,\"seen\":null}],\n"));
}

TEST(RunDocument, HoldsWhatAByteProbeFound) {
  RunRecord record;
  ByteProbe& probe = record.byte_probe.emplace();
  probe.first_bytes = {0x00, 0xAB};
  probe.payload_bytes = 2;
  probe.nonzero_bytes = 1;
  probe.first_nonzero_offset = 1;
  EXPECT_THAT(run_document(record), HasSubstr(inner("\"first_bytes\": \"00 ab\",\n")));
  EXPECT_THAT(run_document(record), HasSubstr(inner("\"first_nonzero_offset\": 1,\n")));
  probe.first_nonzero_offset = -1;
  EXPECT_THAT(run_document(record), HasSubstr(inner("\"first_nonzero_offset\": null,\n")));
}

TEST(RunDocument, NamesTheLibraryThatIsLoaded) {
  EXPECT_THAT(run_document({}),
              testing::ContainsRegex("\"device_library\": \"/[^\"]*/libzelk_timing[.]so[.]0\","));
}

}  // namespace
