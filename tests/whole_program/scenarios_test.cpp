// Runs on simulated units of every kind, as the page of the simulated unit
// shows them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/smoke_test_run.hpp"

namespace zelk::test_support {
namespace {

using testing::HasSubstr;
using testing::Not;

// Long enough for the stream to arrive, also on a busy machine.
ProgramResult run_on(const std::string& port, const std::string& format = "raw64") {
  return run(simulated_smoke_test(
      {"port=" + port, "format=" + format, "mode=external", "channel_mask=0x03", "capture_s=1.5"}));
}

class HealthyUnit : public testing::TestWithParam<const char*> {};

TEST_P(HealthyUnit, PassesInEveryFormat) {
  for (const char* const port :
       {"sim://pairs", "sim://pairs?short_reads=1&start_epoch=100", "ftdi://"}) {
    const ProgramResult result = run_on(port, GetParam());
    EXPECT_EQ(result.exit_status, 0) << port;
    EXPECT_EQ(result.error, "");
    EXPECT_THAT(result.output, HasSubstr("\nmonotonic_violations=0,0,0,0\n"));
    EXPECT_THAT(result.output, Not(HasSubstr("\nch1=0\n")));
  }
}

INSTANTIATE_TEST_SUITE_P(ByFormat, HealthyUnit, testing::Values("raw64", "delta32", "packed_delta"),
                         [](const auto& format) { return std::string(format.param); });

// The first 0.2 s of the stream, whatever the machine does meanwhile.
TEST(Scenarios, ANoisyUnitShowsItsBins) {
  const ProgramResult result = run_on(
      "sim://pairs?prepared_s=0.2&pace=max&background_hz=20000&jitter_ps=150&afterpulse_percent=5"
      "&detector_dead_time_ps=20000&bin_nonuniformity_percent=60");
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.output, testing::ContainsRegex("\nch0_mod3333_unique=1[78][0-9]\n"));
  EXPECT_THAT(result.output, HasSubstr("\ndt_lt_10ns=0,0,0,0\n"));
}

TEST(Scenarios, ADeadChannelFailsTheTest) {
  const ProgramResult result = run_on("sim://pairs?amplitude_v=2.5,0,2.5,2.5");
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_EQ(result.error, "");
  EXPECT_THAT(result.output, HasSubstr("\nch1=0\n"));
  EXPECT_THAT(result.output, Not(HasSubstr("\nch0=0\n")));
  EXPECT_THAT(result.output, HasSubstr("\ncoincidences=0\n"));
}

TEST(Scenarios, ASilentUnitFailsTheTest) {
  const ProgramResult result = run_on("sim://silent");
  EXPECT_EQ(result.exit_status, 3);
  EXPECT_THAT(result.output, HasSubstr("\ntags_total=0\n"));
}

TEST(Scenarios, AKeyThatIsNotTakenIsNamedOnStandardError) {
  const ProgramResult range = run_on("sim://pairs?drift_ppm=1001");
  EXPECT_EQ(range.exit_status, 2);
  EXPECT_EQ(range.output, "");
  EXPECT_THAT(range.error, HasSubstr("port key drift_ppm takes a number from -1000 to 1000 ppm"));
  const ProgramResult place = run_on("sim://silent?rate_hz=5");
  EXPECT_EQ(place.exit_status, 2);
  EXPECT_THAT(place.error, HasSubstr("port key rate_hz does not go with this port"));
  const ProgramResult unknown = run_on("sim://silent?rate=5");
  EXPECT_EQ(unknown.exit_status, 2);
  EXPECT_THAT(unknown.error, HasSubstr("unknown key `rate`: sim://silent takes "));
}

}  // namespace
}  // namespace zelk::test_support
