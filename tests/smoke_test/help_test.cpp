// The help as a whole, which comes from the tables of the parser.
#include "smoke_test/help.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <string_view>

#include "smoke_test/options.hpp"
#include "tests/support/cout_capture.hpp"

namespace {

using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

std::string help() {
  const zelk::test_support::CoutCapture output;
  print_help();
  return output.text();
}

constexpr std::string_view whole_help = R"(usage: zelk_smoke_test [key=value ...]
       zelk_smoke_test --help | --version

Opens a four-channel time-to-digital converter, captures time tags, prints a
report of key=value lines and says with its exit status whether the channel
pair saw tags and coincidences. A key may begin with "--"; upper and lower case
are the same; unknown keys are ignored.

  key                   default       meaning

device
  port                  ftdi://       device to open; empty: the first one found
                                      (also control_port)
  serial                              serial number of the attached unit to
                                      open, in place of a port
  list                  0             print the attached units, one per line,
                                      and open none: 1 or 0
  transport             usb           link to the device: usb
  load_calibration      1             whether the device loads its calibration:
                                      1 or 0
  tdl_mask              0x07          active delay lines of every channel, bit n
                                      for line n, 0 to 0x1F
  ref                   internal      reference clock: internal, external, auto,
                                      or none to leave it as it is (also
                                      reference, reference_clock)
  ref_signal            10mhz         kind of external reference: 10mhz or 1pps
                                      (also reference_signal)

stream
  format                packed_delta  stream format: raw64, delta32 or
                                      packed_delta
  capture_s             0.5 s         length of the capture
  channel_mask          0x0C          channels in the stream, bit n for channel
                                      n, 0 to 0x0F
  packed_bits           16 bits       delta width of packed_delta records, 1 to
                                      31; the device may choose another
  packed_quantum_ps     8 ps          tick of packed_delta deltas; the device
                                      may choose another
  queue_limit           131072 tags   most decoded tags kept waiting, at least
                                      1024
  stop_tags             0 tags        end the capture after so many counted
                                      tags; 0: only by time

signals
  mode                  internal      what drives the inputs: internal
                                      (calibration source) or external (real
                                      signals)
  cal_freq_hz           10000 Hz      frequency of the calibration source,
                                      internal mode only
  threshold_v           nan V         input threshold, 0 to 4; nan: left as it
                                      is
  dead_time_ps          -1 ps         input dead time; negative: left as it is
  dead_time_ns          -1 ns         input dead time in nanoseconds; negative:
                                      left as it is

analysis
  channel_a             0             first channel of the pair to compare, 0 to
                                      3
  channel_b             1             second channel of the pair, 0 to 3, not
                                      channel_a
  coincidence_window_ps 1000 ps       largest time difference of a coincidence,
                                      and range of the histogram
  bin_s                 0.1 s         width of one report bin, at least 0.001
  require                             conditions on the report, such as
                                      coincidences>=4000,reader_dropped=0
  limits                              file with such conditions, one per line

output
  byte_probe            0             print byte-level diagnostics of the stream
                                      instead of the report: 1 or 0 (also bytes)
  save_tags                           new file for every captured tag: .npy for
                                      NumPy, .csv as text
  json                                file for the whole run as one JSON
                                      document
  note                                text to keep in the JSON document
  strict                0             end the run at an argument that would not
                                      be taken as it is written: 1 or 0

exit status
  0    both channels of the pair saw tags, and coincidences were found
  1    byte probe only: no byte arrived
  2    the run failed; one line on standard error says why
  3    the report was printed, but the pair saw no tags or no coincidences
  4    as 0, but a limit (require, limits) is not met; a line names each
  128+n  ended early by signal n: in the capture, after the report of what was
         captured; before or after it, at once

examples
  zelk_smoke_test channel_a=2 channel_b=3
  zelk_smoke_test mode=external channel_mask=0x03 capture_s=5 format=raw64

without a converter
  A simulated unit takes the place of the device library. Its signals, faults
  and recordings are asked for in the port; docs/simulated-unit.md lists them.
  zelk_smoke_test port='sim://pairs' mode=external channel_mask=0x03
)";

TEST(Help, ListsEveryKeyInItsGroup) {
  EXPECT_EQ(help(), whole_help);
}

TEST(Help, FitsInto80Columns) {
  std::istringstream lines(help());
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(line.size(), 80U) << line;
    EXPECT_THAT(line, Not(EndsWith(" ")));
  }
}

TEST(Help, ShowsEveryOptionInOneOfItsGroups) {
  std::set<OptionGroup> shown;
  for (const OptionGroupName& group : option_groups) {
    EXPECT_TRUE(shown.insert(group.group).second) << group.name;
  }
  for (const Option& option : options()) {
    EXPECT_THAT(shown, Contains(option.group)) << option.keys[0];
  }
}

TEST(Help, LeavesNoMarkUnfilled) {
  EXPECT_THAT(help(), Not(HasSubstr("%")));
}

}  // namespace
