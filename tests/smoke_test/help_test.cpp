// The lines of the help whose words come from the tables of the parser.
#include "smoke_test/help.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/cout_capture.hpp"

namespace {

using testing::HasSubstr;
using testing::Not;

std::string help() {
  const zelk::test_support::CoutCapture output;
  print_help();
  return output.text();
}

TEST(Help, ListsTheWordsOfEachOption) {
  for (const char* line :
       {"\n  transport              usb                 link to the device: usb\n",
        "\n  format                 packed_delta        stream format: raw64, delta32 or "
        "packed_delta\n",
        "\n  mode                   internal            what drives the inputs: internal "
        "(calibration source) or external (real signals)\n",
        "\n  ref                    internal            reference clock: internal, external, auto, "
        "or none to leave it as it is (also reference, reference_clock)\n",
        "\n  ref_signal             10mhz               kind of external reference: 10mhz or 1pps "
        "(also reference_signal)\n"}) {
    EXPECT_THAT(help(), HasSubstr(line));
  }
}

TEST(Help, LeavesNoMarkUnfilled) {
  EXPECT_THAT(help(), Not(HasSubstr("%")));
}

}  // namespace
