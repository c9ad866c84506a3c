// The one line of a run whose port the simulated unit refuses.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "tests/support/npy_bytes.hpp"
#include "tests/support/smoke_test_run.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::test_support {
namespace {

// The run at `port` fails with this line and no report.
void expect_refused(const std::string& port, const std::string& line) {
  SCOPED_TRACE(port);
  const ProgramResult result = run(simulated_smoke_test({"port=" + port, "capture_s=0.05"}));
  EXPECT_EQ(result.error, "open: " + line + '\n');
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exit_status, 2);
}

class TagFileRefusal : public testing::Test {
 protected:
  std::string file(const std::string& name, const std::string& text) {
    const std::string path = (directory_.path() / name).string();
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  TemporaryDirectory directory_;
};

const std::string keys_of_every_unit =
    "pace, seed, background_hz, amplitude_v, efficiency, detector_dead_time_ps, "
    "afterpulse_percent, afterpulse_tau_ps, drift_ppm, start_epoch, bin_nonuniformity_percent, "
    "fifo_bytes, link_bytes_per_s, host_buffer_bytes, short_reads, start_bits, prepared_s, fail, "
    "silent_at_s, silent_for_s, empty_at_s, empty_for_s, hang_at_s, vanish_at_s, flip_bits, "
    "lose_bytes, insert_bytes, remove_bits, insert_bits, remove_bit_at_s, insert_bit_at_s, "
    "zeros_at_s, ones_at_s, reference_unavailable, external_reference and reference_lost_at_s";

TEST(Refusal, NamesAnUnknownKeyAndThoseThatThePortTakes) {
  const std::string taken =
      "sim://pairs takes jitter_ps, pair_rate_hz, pair_delay_ps, channel_a, channel_b, " +
      keys_of_every_unit;
  expect_refused("sim://pairs?no_such_key=1", "unknown key `no_such_key`: " + taken);
  expect_refused("sim://pairs?pair_rate=5000",
                 "unknown key `pair_rate` (did you mean `pair_rate_hz`?): " + taken);
}

TEST(Refusal, NamesTheMissingKey) {
  expect_refused("sim://tags", "missing key `file`: sim://tags needs file=PATH");
}

TEST(Refusal, NamesThePortAndThoseThatExist) {
  const std::string ports =
      "; there are ftdi://, ftdi://ZK4-0001, sim://tags, sim://pulses, sim://random, sim://pairs, "
      "sim://burst, sim://silent, tap://FILE and replay://FILE";
  expect_refused("sim://pars",
                 "unknown scenario `sim://pars` (did you mean `sim://pairs`?)" + ports);
  expect_refused("/dev/ttyUSB0", "no such unit: `/dev/ttyUSB0`" + ports);
}

TEST(Refusal, NamesTheValueAndItsRange) {
  expect_refused("sim://pairs?drift_ppm=1001",
                 "port key drift_ppm takes a number from -1000 to 1000 ppm, not \"1001\"");
}

TEST(Refusal, OfAPortWithALineFeedIsOneLine) {
  expect_refused("sim://pairs\nport=ftdi://",
                 "malformed port: `sim://pairs\\nport=ftdi://` holds a line feed; a value holds it "
                 "as %0A");
}

TEST_F(TagFileRefusal, NamesTheFileThatIsMissing) {
  const std::string path = (directory_.path() / "missing.csv").string();
  expect_refused("sim://tags?file=" + path,
                 "cannot open the tag file `" + path + "`: No such file or directory");
}

TEST_F(TagFileRefusal, NamesTheLineThatIsWrong) {
  const std::string head = "channel,timestamp_ps\n0,1000\n";
  const std::string malformed = file("malformed.csv", head + "1;2000\n");
  expect_refused("sim://tags?file=" + malformed,
                 "line 3 of the tag file `" + malformed +
                     "` does not begin with a channel number and a comma");
  const std::string falling = file("falling.csv", head + "1,2000\n1,1999\n");
  expect_refused("sim://tags?file=" + falling,
                 "line 4 of the tag file `" + falling + "` is earlier than the tag before it");
  const std::string channel = file("channel.csv", head + "4,2000\n");
  expect_refused("sim://tags?file=" + channel,
                 "line 3 of the tag file `" + channel + "` has a channel beyond 3");
}

TEST_F(TagFileRefusal, NamesTheRowThatIsWrong) {
  const std::string negative =
      file("negative.npy", npy_beginning_for(3) + npy_row(0, 5) + npy_row(1, 5) + npy_row(0, -1));
  expect_refused("sim://tags?file=" + negative,
                 "row 2 of the tag file `" + negative +
                     "` has a time outside 0 to 2^61 - 1 ps (rows count from 0)");
  const std::string falling =
      file("falling.npy", npy_beginning_for(2) + npy_row(3, 2000) + npy_row(0, 1999));
  expect_refused("sim://tags?file=" + falling,
                 "row 1 of the tag file `" + falling +
                     "` is earlier than the tag before it (rows count from 0)");
  const std::string channel = file("channel.npy", npy_beginning_for(1) + npy_row(4, 2000));
  expect_refused("sim://tags?file=" + channel, "row 0 of the tag file `" + channel +
                                                   "` has a channel beyond 3 (rows count from 0)");
}

TEST_F(TagFileRefusal, NamesWhatIsWrongWithAnArray) {
  const std::string cut = file("cut.npy", npy_beginning_for(0) + npy_row(0, 5));
  expect_refused("sim://tags?file=" + cut,
                 "the tag file `" + cut +
                     "` holds 1 row, but its header counts 0: the run that saved it did not end; "
                     "docs/saved-tags.md tells how to recover it");
  const std::string times =
      file("times.npy", npy_beginning(npy_dictionary("(1,)", "'<i8'")) + "12345678");
  expect_refused("sim://tags?file=" + times,
                 "the header of the tag file `" + times +
                     "` has rows of the type `'<i8'`, not `[('channel', '|u1'), ('', '|V7'), "
                     "('timestamp_ps', '<i8')]`");
}

TEST_F(TagFileRefusal, SaysHowAPathWithAnAmpersandIsWritten) {
  const std::string path = file("R&D.csv", "channel,timestamp_ps\n0,1000\n");
  const std::string written = (directory_.path() / "R%26D.csv").string();
  expect_refused("sim://tags?file=" + path,
                 "malformed port: `D.csv` is not key=value; if it belongs to what stands before "
                 "it, write `file=" +
                     written + '`');
  const ProgramResult result =
      run(simulated_smoke_test({"port=sim://tags?file=" + written, "capture_s=0.05"}));
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.exit_status, 3);
}

TEST_F(TagFileRefusal, ShowsControlCharactersOfAPathWrittenOut) {
  expect_refused("sim://tags?file=none%0A%1B[2J.csv",
                 "cannot open the tag file `none\\n\\x1b[2J.csv`: No such file or directory");
}

}  // namespace
}  // namespace zelk::test_support
