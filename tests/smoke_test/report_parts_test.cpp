// The lines of the report that have a function of their own.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "smoke_test/report.hpp"
#include "tests/support/cout_capture.hpp"

namespace {

using zelk::test_support::CoutCapture;
using zelk::timing::ReferenceClockSource;
using zelk::timing::ReferenceClockStatus;
using zelk::timing::ReferenceSignal;

std::string status_line(const ReferenceClockStatus& status, const char* prefix) {
  const CoutCapture output;
  print_ref_status(status, prefix);
  return output.text();
}

TEST(ReferenceStatusLine, OfTheInternalClock) {
  ReferenceClockStatus status;
  status.requested = ReferenceClockSource::internal;
  status.active = ReferenceClockSource::internal;
  EXPECT_EQ(status_line(status, "ref"),
            "ref_requested=internal ref_active=internal ref_signal=10mhz "
            "ref_external_present=0 ref_external_locked=0 ref_fallback=0 "
            "ref_missing_warning=0 ref_raw=0x0\n");
}

TEST(ReferenceStatusLine, PutsEachFlagUnderItsOwnKey) {
  ReferenceClockStatus status;
  status.requested = ReferenceClockSource::external;
  status.active = ReferenceClockSource::automatic;
  status.signal = ReferenceSignal::one_pps;
  status.external_present = true;
  EXPECT_EQ(status_line(status, "a"),
            "a_requested=external a_active=auto a_signal=1pps a_external_present=1 "
            "a_external_locked=0 a_fallback=0 a_missing_warning=0 a_raw=0x0\n");
  status.external_present = false;
  status.external_locked = true;
  EXPECT_EQ(status_line(status, "a"),
            "a_requested=external a_active=auto a_signal=1pps a_external_present=0 "
            "a_external_locked=1 a_fallback=0 a_missing_warning=0 a_raw=0x0\n");
  status.external_locked = false;
  status.fallback = true;
  EXPECT_EQ(status_line(status, "a"),
            "a_requested=external a_active=auto a_signal=1pps a_external_present=0 "
            "a_external_locked=0 a_fallback=1 a_missing_warning=0 a_raw=0x0\n");
  status.fallback = false;
  status.missing_warning = true;
  EXPECT_EQ(status_line(status, "a"),
            "a_requested=external a_active=auto a_signal=1pps a_external_present=0 "
            "a_external_locked=0 a_fallback=0 a_missing_warning=1 a_raw=0x0\n");
}

TEST(ReferenceStatusLine, DoesNotPrintTheReservedFlag) {
  ReferenceClockStatus status;
  const std::string without = status_line(status, "ref");
  status.reserved_flag = true;
  EXPECT_EQ(status_line(status, "ref"), without);
}

TEST(ReferenceStatusLine, CallsValuesWithoutANameUnknown) {
  ReferenceClockStatus status;
  status.requested = static_cast<ReferenceClockSource>(7);
  status.active = static_cast<ReferenceClockSource>(0xFFFFFFFF);
  status.signal = static_cast<ReferenceSignal>(2);
  EXPECT_EQ(status_line(status, "ref"),
            "ref_requested=unknown ref_active=unknown ref_signal=unknown "
            "ref_external_present=0 ref_external_locked=0 ref_fallback=0 "
            "ref_missing_warning=0 ref_raw=0x0\n");
}

TEST(ReferenceStatusLine, RawWordIsLowerCaseHexadecimal) {
  ReferenceClockStatus status;
  status.raw = 0x1F;
  EXPECT_TRUE(status_line(status, "ref").ends_with(" ref_raw=0x1f\n"));
  status.raw = 0xFEDCBA98;
  EXPECT_TRUE(status_line(status, "ref").ends_with(" ref_raw=0xfedcba98\n"));
}

TEST(ReferenceStatusLine, TakesAnyPrefix) {
  EXPECT_EQ(status_line({}, "").substr(0, 24), "_requested=auto _active=");
}

TEST(ReferenceStatusLine, LeavesTheStreamDecimal) {
  const CoutCapture output;
  ReferenceClockStatus status;
  status.raw = 0x1F;
  print_ref_status(status, "ref");
  const std::size_t size = output.text().size();
  std::cout << 255;
  EXPECT_EQ(output.text().substr(size), "255");
}

TEST(ReferenceStatusLine, NullPrefixSilencesStandardOutput) {
  const CoutCapture output;
  print_ref_status({}, nullptr);
  EXPECT_TRUE(std::cout.bad());
  std::cout << "more";
  print_ref_status({}, "ref");
  EXPECT_EQ(output.text(), "");
}

TEST(ReferenceUnavailableLine, IsThisText) {
  const CoutCapture output;
  print_ref_unavailable();
  EXPECT_EQ(output.text(), "reference_clock_control=unavailable; fixed_internal_clock_assumed=1\n");
}

TEST(BytesToHex, TwoDigitsAByteAndSingleSpacesBetween) {
  EXPECT_EQ(bytes_to_hex({0x00, 0xAB, 0x05}), "00 ab 05");
}

TEST(BytesToHex, OneByteHasNoSpace) {
  EXPECT_EQ(bytes_to_hex({0x0F}), "0f");
}

TEST(BytesToHex, NoBytesAreAnEmptyText) {
  EXPECT_EQ(bytes_to_hex({}), "");
}

TEST(BytesToHex, EveryByteValueHasItsDigits) {
  constexpr const char* digits = "0123456789abcdef";
  for (unsigned value = 0; value < 256; ++value) {
    const std::string expected{digits[value / 16], digits[value % 16]};
    EXPECT_EQ(bytes_to_hex({static_cast<std::uint8_t>(value)}), expected);
  }
}

std::string residue_lines(const std::array<std::vector<std::int64_t>, 4>& per_channel) {
  const CoutCapture output;
  print_mod_stats(per_channel);
  return output.text();
}

TEST(ResidueLines, AreThreeForEachChannel) {
  // Channel 2: nine residues once each, of which the smallest eight are listed.
  EXPECT_EQ(
      residue_lines({{{0, 3333, -3333, 5, 1666, 4999}, {}, {9, 8, 7, 6, 5, 4, 3, 2, 1}, {-1}}}),
      "ch0_mod3333_unique=3\n"
      "ch0_mod3333_exact_zero=3\n"
      "ch0_mod3333_top=0:3,1666:2,5:1\n"
      "ch1_mod3333_unique=0\n"
      "ch1_mod3333_exact_zero=0\n"
      "ch1_mod3333_top=\n"
      "ch2_mod3333_unique=9\n"
      "ch2_mod3333_exact_zero=0\n"
      "ch2_mod3333_top=1:1,2:1,3:1,4:1,5:1,6:1,7:1,8:1\n"
      "ch3_mod3333_unique=1\n"
      "ch3_mod3333_exact_zero=0\n"
      "ch3_mod3333_top=3332:1\n");
}

}  // namespace
