#include "simulator/reference_clock.hpp"

#include <gtest/gtest.h>

#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator {
namespace {

TEST(ReferenceClock, StartsOnTheInternalClock) {
  const qx_reference_clock status = ReferenceClock().status();
  EXPECT_EQ(status.requested, 1);
  EXPECT_EQ(status.active, 1);
  EXPECT_EQ(status.signal, 0);
  EXPECT_EQ(status.fallback, 0U);
  EXPECT_EQ(status.missing_warning, 0U);
  EXPECT_EQ(status.raw, 0U);
}

TEST(ReferenceClock, AutoTakesTheInternalClockWithoutAWarning) {
  ReferenceClock clock;
  clock.request(0, 1);
  EXPECT_EQ(clock.status().requested, 0);
  EXPECT_EQ(clock.status().active, 1);
  EXPECT_EQ(clock.status().signal, 1);
  EXPECT_EQ(clock.status().fallback, 0U);
  EXPECT_EQ(clock.status().missing_warning, 0U);
}

TEST(ReferenceClock, ExternalFallsBackAndWarns) {
  ReferenceClock clock;
  clock.request(2, 0);
  EXPECT_EQ(clock.status().requested, 2);
  EXPECT_EQ(clock.status().active, 1);
  EXPECT_EQ(clock.status().external_present, 0U);
  EXPECT_EQ(clock.status().external_locked, 0U);
  EXPECT_EQ(clock.status().fallback, 1U);
  EXPECT_EQ(clock.status().missing_warning, 1U);
  EXPECT_EQ(clock.status().raw, 0xCU);
}

TEST(ReferenceClock, LockedExternalSignalIsRunOnUnlessInternalIsAskedFor) {
  ReferenceClock clock(ExternalReference::locked);
  EXPECT_EQ(clock.status().active, 1);
  EXPECT_EQ(clock.status().raw, 0x3U);
  for (const std::uint32_t source : {0U, 2U}) {
    clock.request(source, 0);
    EXPECT_EQ(clock.status().active, 2) << source;
    EXPECT_EQ(clock.status().external_present, 1U) << source;
    EXPECT_EQ(clock.status().external_locked, 1U) << source;
    EXPECT_EQ(clock.status().fallback, 0U) << source;
    EXPECT_EQ(clock.status().missing_warning, 0U) << source;
    EXPECT_EQ(clock.status().raw, 0x3U) << source;
  }
}

TEST(ReferenceClock, UnlockedExternalSignalIsFallenBackFromButNotMissing) {
  ReferenceClock clock(ExternalReference::unlocked);
  clock.request(0, 0);
  EXPECT_EQ(clock.status().active, 1);
  EXPECT_EQ(clock.status().raw, 0x1U);
  clock.request(2, 0);
  EXPECT_EQ(clock.status().active, 1);
  EXPECT_EQ(clock.status().external_present, 1U);
  EXPECT_EQ(clock.status().external_locked, 0U);
  EXPECT_EQ(clock.status().fallback, 1U);
  EXPECT_EQ(clock.status().missing_warning, 0U);
  EXPECT_EQ(clock.status().raw, 0x5U);
}

TEST(ReferenceClock, LossOfTheSignalRunOnIsAFallbackWithAWarning) {
  ReferenceClock clock(ExternalReference::locked);
  for (const std::uint32_t source : {0U, 2U}) {
    clock.request(source, 1);
    const qx_reference_clock status = after_loss_of_external(clock.status());
    EXPECT_EQ(status.requested, static_cast<std::int32_t>(source));
    EXPECT_EQ(status.active, 1);
    EXPECT_EQ(status.signal, 1);
    EXPECT_EQ(status.external_present, 0U);
    EXPECT_EQ(status.external_locked, 0U);
    EXPECT_EQ(status.fallback, 1U);
    EXPECT_EQ(status.missing_warning, 1U);
    EXPECT_EQ(status.raw, 0xCU);
  }
}

TEST(ReferenceClock, LossOfASignalThatIsNotRunOnChangesNothingElse) {
  ReferenceClock clock(ExternalReference::locked);
  clock.request(1, 0);
  EXPECT_EQ(after_loss_of_external(clock.status()).raw, 0x0U);
  EXPECT_EQ(after_loss_of_external(clock.status()).active, 1);
  ReferenceClock unlocked(ExternalReference::unlocked);
  unlocked.request(0, 0);
  EXPECT_EQ(after_loss_of_external(unlocked.status()).raw, 0x0U);
}

TEST(ReferenceClock, UnknownValuesAreRefusedAndChangeNothing) {
  ReferenceClock clock;
  EXPECT_NE(failure_text(Status::out_of_range, [&] { clock.request(3, 0); }).find("source 3"),
            std::string::npos);
  EXPECT_NE(failure_text(Status::out_of_range, [&] { clock.request(2, 2); }).find("signal 2"),
            std::string::npos);
  EXPECT_EQ(clock.status().requested, 1);
}

}  // namespace
}  // namespace zelk::simulator
