#include "smoke_test/results/json_output.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "smoke_test/interrupt.hpp"
#include "smoke_test/results/run_document.hpp"
#include "smoke_test/sudden_end.hpp"
#include "smoke_test/watchdog.hpp"
#include "tests/support/file_content.hpp"
#include "tests/support/temporary_directory.hpp"

namespace {

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;

class JsonOutputTest : public testing::Test {
 protected:
  [[nodiscard]] std::string path() const { return directory_.path() / "run.json"; }

  [[nodiscard]] RunRecord record_with(std::vector<std::string> more) const {
    RunRecord record;
    record.arguments = std::move(more);
    record.arguments.push_back("json=" + path());
    return record;
  }

  [[nodiscard]] std::string content() const { return zelk::test_support::file_content(path()); }

  [[nodiscard]] std::ptrdiff_t files() const {
    return std::distance(std::filesystem::directory_iterator(directory_.path()), {});
  }

 private:
  zelk::test_support::TemporaryDirectory directory_;
};

TEST_F(JsonOutputTest, WithoutAFileDoesNothing) {
  RunRecord record;
  record.arguments = {"note=text", "jsonx=file", "json"};
  JsonOutput output(record);
  output.prepare();
  record.exit_status = 0;
  output.conclude();
  EXPECT_EQ(record.run_id, "");
  EXPECT_EQ(record.config.note, "");
  EXPECT_FALSE(sudden_end_takes_time());
}

TEST_F(JsonOutputTest, TakesTheLastNameWhereverItStandsAndHoweverItIsWritten) {
  RunRecord record;
  record.arguments = {"json=/nowhere/at/all", "--JSON=" + path(), "channel_a=none", "--Note=lot=7"};
  JsonOutput output(record);
  EXPECT_EQ(record.config.json_file, path());
  EXPECT_EQ(record.config.note, "lot=7");
  record.exit_status = 2;
  output.conclude();
  EXPECT_EQ(content(), run_document(record));
}

TEST_F(JsonOutputTest, RefusesAnEmptyName) {
  RunRecord record;
  record.arguments = {"json="};
  EXPECT_THROW(JsonOutput{record}, std::runtime_error);
}

TEST_F(JsonOutputTest, LeavesAFileOfLimitsAlone) {
  std::ofstream(path()) << "coincidences>=1\n";
  RunRecord record = record_with({"--LIMITS=" + path()});
  EXPECT_THROW(JsonOutput{record}, std::runtime_error);
  EXPECT_EQ(content(), "coincidences>=1\n");
}

TEST_F(JsonOutputTest, GivesEachRunItsOwnRandomName) {
  std::string before;
  for (int i = 0; i < 3; ++i) {
    RunRecord record = record_with({});
    const JsonOutput output(record);
    EXPECT_THAT(record.run_id, testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-"
                                                     "[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
    EXPECT_NE(record.run_id, before);
    before = record.run_id;
  }
}

TEST_F(JsonOutputTest, WritesTheFirstConclusionAlone) {
  RunRecord record = record_with({});
  {
    JsonOutput output(record);
    record.exit_status = 0;
    output.conclude();
    record.exit_status = 2;
    record.error = "later";
    output.conclude();
  }
  EXPECT_THAT(content(), EndsWith("\"error\": null,\n  \"exit_status\": 0\n}\n"));
  EXPECT_FALSE(sudden_end_takes_time());
}

TEST_F(JsonOutputTest, SaysOnceThatItCannotBeWritten) {
  RunRecord record;
  record.arguments = {"json=/dev/full"};
  record.exit_status = 0;
  JsonOutput output(record);
  EXPECT_THROW(output.conclude(), std::runtime_error);
  EXPECT_NO_THROW(output.conclude());
}

class JsonOutputDeathTest : public JsonOutputTest {
 protected:
  // Lives until the process ends.
  [[noreturn]] void hang_in_a_call(int settled_status = -1) {
    RunRecord record = record_with({"note=before"});
    JsonOutput output(record);
    record.config.note = "prepared";
    output.prepare();
    record.config.note = "not prepared";
    Watchdog watchdog;
    if (settled_status >= 0) {
      record.exit_status = settled_status;
      record.error = "first";
      output.conclude();
      watchdog.settle(settled_status);
    }
    watchdog.begin_call(20ms);
    for (;;) {
      std::this_thread::sleep_for(1s);
    }
  }

  [[noreturn]] void take_signal(int signal, bool concluded) {
    std::signal(signal, SIG_DFL);
    RunRecord record = record_with({"note=kept"});
    JsonOutput output(record);
    InterruptWatch watch;
    watch.end_at_once_from_now_on();
    if (concluded) {
      record.exit_status = 0;
      output.conclude();
    }
    std::raise(signal);
    _exit(0);
  }
};

TEST_F(JsonOutputDeathTest, ALibraryThatHangsLeavesWhatWasPrepared) {
  EXPECT_EXIT(hang_in_a_call(), testing::ExitedWithCode(2), "^the device library does not answer");
  EXPECT_THAT(content(), HasSubstr("\n  \"note\": \"prepared\",\n"));
  EXPECT_THAT(content(), EndsWith("\n  \"error\": \"the device library does not answer\",\n"
                                  "  \"exit_status\": 2\n}\n"));
  EXPECT_EQ(files(), 1);
}

TEST_F(JsonOutputDeathTest, ALibraryThatHangsLaterLeavesTheConclusion) {
  EXPECT_EXIT(hang_in_a_call(3), testing::ExitedWithCode(3), "^$");
  EXPECT_THAT(content(), EndsWith("\n  \"error\": \"first\",\n  \"exit_status\": 3\n}\n"));
  EXPECT_EQ(files(), 1);
}

TEST_F(JsonOutputDeathTest, ASignalThatEndsTheProgramIsNamed) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    for (const bool concluded : {false, true}) {
      EXPECT_EXIT(take_signal(signal, concluded), testing::ExitedWithCode(128 + signal), "^$");
      EXPECT_THAT(content(), HasSubstr("\n  \"note\": \"kept\",\n"));
      EXPECT_THAT(content(),
                  EndsWith("\n  \"error\": \"ended by signal " + std::to_string(signal) +
                           "\",\n  \"exit_status\": " + std::to_string(128 + signal) + "\n}\n"));
      EXPECT_EQ(files(), 1);
    }
  }
}

}  // namespace
