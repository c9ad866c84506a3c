// What the refusal of a port says: the text that a host gets to see.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "simulator/ports/device_port.hpp"
#include "simulator/ports/port_values.hpp"
#include "simulator/ports/recording_ports.hpp"
#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

void parse(const std::string& port) {
  if (!parse_tap_port(port) && !parse_replay_port(port)) {
    parse_device_port(port);
  }
}

std::string refusal(Status status, const std::string& port) {
  return failure_text(status, [&] { parse(port); });
}

// Those of every port that names a fault, in the order of the page of the keys.
const std::string faults =
    "fail, silent_at_s, silent_for_s, empty_at_s, empty_for_s, hang_at_s, vanish_at_s, flip_bits, "
    "lose_bytes, insert_bytes, remove_bits, insert_bits, remove_bit_at_s, insert_bit_at_s, "
    "zeros_at_s, ones_at_s, reference_unavailable";
const std::string every_unit =
    "pace, seed, background_hz, amplitude_v, efficiency, detector_dead_time_ps, "
    "afterpulse_percent, afterpulse_tau_ps, drift_ppm, start_epoch, bin_nonuniformity_percent, "
    "fifo_bytes, link_bytes_per_s, host_buffer_bytes, short_reads, start_bits, prepared_s, " +
    faults + ", external_reference and reference_lost_at_s";

TEST(Refusals, NameAnUnknownKeyAndThoseThatThePortTakes) {
  EXPECT_EQ(refusal(Status::unknown_port_key, "sim://pairs?no_such_key=1"),
            "unknown key `no_such_key`: sim://pairs takes jitter_ps, pair_rate_hz, pair_delay_ps, "
            "channel_a, channel_b, " +
                every_unit);
  EXPECT_EQ(refusal(Status::unknown_port_key, "ftdi://ZK4-0001?no_such_key="),
            "unknown key `no_such_key`: ftdi:// takes " + every_unit);
  EXPECT_EQ(refusal(Status::unknown_port_key, "replay://a.rec?seed=1&no_such_key=1"),
            "unknown key `no_such_key`: replay://FILE takes pace, seed, cut_short, " + faults +
                " and reference_lost_at_s");
  EXPECT_EQ(refusal(Status::unknown_port_key, "tap://a.rec?library=x&port=y&seed=1&no_such_key=1"),
            "unknown key `no_such_key`: tap://FILE takes seed, library, port, " + faults +
                " and reference_lost_at_s");
}

TEST(Refusals, NameTheKeyThatWasMeant) {
  EXPECT_THAT(refusal(Status::unknown_port_key, "sim://pairs?pair_rate=1"),
              StartsWith("unknown key `pair_rate` (did you mean `pair_rate_hz`?): sim://pairs "));
  EXPECT_THAT(refusal(Status::unknown_port_key, "sim://pairs?SEED=1"),
              StartsWith("unknown key `SEED` (did you mean `seed`?): sim://pairs takes "));
  // Of those that the port takes: rate_hz is another port's.
  EXPECT_THAT(refusal(Status::unknown_port_key, "sim://silent?rate=1"),
              StartsWith("unknown key `rate`: sim://silent takes "));
  // A key that is nearly right is not taken for the rest of the path.
  EXPECT_THAT(refusal(Status::unknown_port_key, "sim://tags?file=x&loops=1"),
              StartsWith("unknown key `loops` (did you mean `loop`?): sim://tags takes file, "));
}

TEST(Refusals, SayWhereAKeyBelongs) {
  const auto misplaced = [](const std::string& port) {
    try {
      parse(port);
    } catch (const Failure& failure) {
      return std::string(failure.what());
    }
    return std::string("not refused");
  };
  EXPECT_EQ(misplaced("sim://silent?rate_hz=5"),
            "port key rate_hz does not go with this port; it goes with sim://random");
  EXPECT_EQ(misplaced("sim://random?jitter_ps=5"),
            "port key jitter_ps does not go with this port; it goes with sim://pulses and "
            "sim://pairs");
  EXPECT_EQ(misplaced("tap://a.rec?library=x&port=y&pace=max"),
            "port key pace does not go with this port; it goes with every ftdi:// and sim:// port "
            "and replay://FILE");
}

TEST(Refusals, NameTheMissingKeyAndWhoNeedsIt) {
  EXPECT_EQ(refusal(Status::missing_port_key, "sim://tags?pace=max"),
            "missing key `file`: sim://tags needs file=PATH");
  EXPECT_EQ(refusal(Status::missing_port_key, "tap://a.rec?port=x"),
            "missing key `library`: tap://FILE needs library=PATH");
  EXPECT_EQ(refusal(Status::missing_port_key, "tap://a.rec?library=x"),
            "missing key `port`: tap://FILE needs port=PORT");
  EXPECT_EQ(refusal(Status::missing_port_key, "ftdi://?silent_for_s=1"),
            "missing key `silent_at_s`: silent_for_s needs silent_at_s=SECONDS");
}

const std::string all_ports =
    "; there are ftdi://, ftdi://ZK4-0001, sim://tags, sim://pulses, sim://random, sim://pairs, "
    "sim://burst, sim://silent, tap://FILE and replay://FILE";

TEST(Refusals, NameThePortAndThoseThatExist) {
  EXPECT_EQ(refusal(Status::unknown_scenario, "sim://noise?seed=1"),
            "unknown scenario `sim://noise`" + all_ports);
  EXPECT_EQ(refusal(Status::unknown_scenario, "sim://"), "unknown scenario `sim://`" + all_ports);
  EXPECT_EQ(refusal(Status::no_such_unit, "ftdi://elsewhere"),
            "no such unit: `ftdi://elsewhere`" + all_ports);
  EXPECT_EQ(refusal(Status::no_such_unit, "/dev/ttyUSB0"),
            "no such unit: `/dev/ttyUSB0`" + all_ports);
  EXPECT_EQ(refusal(Status::no_such_unit, ""), "no such unit: ``" + all_ports);
}

TEST(Refusals, NameThePortThatWasMeant) {
  const auto meant = [](const std::string& port, Status status) {
    const std::string text = refusal(status, port);
    const std::size_t begin = text.find("(did you mean `") + 15;
    return begin < 15 ? "none" : text.substr(begin, text.find("`?)") - begin);
  };
  EXPECT_EQ(meant("sim://pars", Status::unknown_scenario), "sim://pairs");
  EXPECT_EQ(meant("sim://Pulses?seed=1", Status::unknown_scenario), "sim://pulses");
  EXPECT_EQ(meant("sim://tags/?file=x", Status::unknown_scenario), "sim://tags");
  EXPECT_EQ(meant("sim:/pairs", Status::no_such_unit), "sim://pairs");
  EXPECT_EQ(meant("random", Status::no_such_unit), "sim://random");
  EXPECT_EQ(meant("FTDI://", Status::no_such_unit), "ftdi://");
  EXPECT_EQ(meant("ftdi://ZK4-0002", Status::no_such_unit), "ftdi://ZK4-0001");
  // The scheme that all have in common brings no two names together.
  EXPECT_EQ(meant("sim://abc", Status::unknown_scenario), "none");
  EXPECT_EQ(meant("sim", Status::no_such_unit), "none");
}

TEST(Refusals, SayThatKeysFollowAQuestionMark) {
  EXPECT_EQ(refusal(Status::unknown_scenario, "sim://pairs&pace=max"),
            "unknown scenario `sim://pairs&pace=max` (did you mean `sim://pairs`?)" + all_ports +
                "; keys follow a `?`");
  EXPECT_THAT(refusal(Status::no_such_unit, "ftdi://seed=1"), EndsWith("; keys follow a `?`"));
}

TEST(Refusals, SayHowAPathWithAnAmpersandIsWritten) {
  EXPECT_EQ(refusal(Status::malformed_port, "sim://tags?file=/lab/R&D/tags.csv"),
            "malformed port: `D/tags.csv` is not key=value; if it belongs to what stands before "
            "it, write `file=/lab/R%26D/tags.csv`");
  EXPECT_THAT(refusal(Status::unknown_port_key, "sim://tags?loop=1&file=a&b=1.csv"),
              StartsWith("unknown key `b` (if it belongs to the path before it, write "
                         "`file=a%26b=1.csv`): sim://tags takes file, loop, "));
  EXPECT_THAT(refusal(Status::unknown_port_key, "tap://a.rec?library=/a&b=.so&port=x"),
              StartsWith("unknown key `b` (if it belongs to the path before it, write "
                         "`library=/a%26b=.so`): tap://FILE takes "));
  EXPECT_EQ(parse_device_port("sim://tags?file=/lab/R%26D/tags.csv").tag_file, "/lab/R&D/tags.csv");
}

TEST(Refusals, SayHowAPathWithAQuestionMarkIsWritten) {
  EXPECT_EQ(refusal(Status::malformed_port, "replay:///lab/what?/a.rec"),
            "malformed port: `/a.rec` is not key=value; if it belongs to what stands before it, "
            "write `/lab/what%3F/a.rec`");
  EXPECT_THAT(refusal(Status::unknown_port_key, "replay://a?b=1.rec"),
              StartsWith("unknown key `b` (if it belongs to the path before it, write "
                         "`a%3Fb=1.rec`): replay://FILE takes "));
  EXPECT_EQ(parse_replay_port("replay:///lab/what%3F/a.rec")->recording, "/lab/what?/a.rec");
}

TEST(Refusals, BlameThePathForNoOtherKey) {
  EXPECT_THAT(refusal(Status::unknown_port_key, "sim://tags?file=x&seed=1&no_such_key=1"),
              Not(HasSubstr("belongs")));
  EXPECT_EQ(refusal(Status::malformed_port, "sim://pairs?seed"),
            "malformed port: `seed` is not key=value");
}

TEST(Refusals, SayWhatIsMalformed) {
  EXPECT_EQ(refusal(Status::malformed_port, "sim://tags?file=100%"),
            "malformed port: a `%` in `100%` wants two hexadecimal digits, other than 00; the sign "
            "itself is written as %25");
  EXPECT_EQ(refusal(Status::repeated_port_key, "sim://pairs?seed=1&seed=2"),
            "key `seed` is given twice");
  EXPECT_EQ(refusal(Status::no_recording_named, "replay://?pace=max"),
            "the port string names no recording file: replay://FILE");
  EXPECT_EQ(refusal(Status::no_recording_named, "tap://"),
            "the port string names no recording file: tap://FILE?library=PATH&port=PORT");
}

TEST(Refusals, ALineFeedIsMalformedWhereverItStands) {
  EXPECT_EQ(refusal(Status::malformed_port, "sim://pairs\n"),
            "malformed port: `sim://pairs\\n` holds a line feed; a value holds it as %0A");
  for (const char* const port :
       {"\n", "ftdi://\n", "sim://tags?file=a\nb", "sim://silent?fail=identify:-1:a\nb",
        "replay://a\nb", "replay://a?pace=max\n", "tap://a\nb?library=x&port=y",
        "tap://a?library=x&port=y\nz", "nowhere\n"}) {
    EXPECT_THAT(refusal(Status::malformed_port, port), HasSubstr(" holds a line feed; ")) << port;
  }
  EXPECT_EQ(parse_device_port("sim://tags?file=a%0Ab").tag_file, "a\nb");
}

// Whatever a port holds, and however long it is.
TEST(Refusals, ShowALittleOfALongPort) {
  const std::string very_long(100'000, 'x');
  EXPECT_LT(refusal(Status::no_such_unit, very_long).size(), 500U);
  EXPECT_LT(refusal(Status::unknown_port_key,
                    "sim://tags?file=" + very_long + "&" + very_long + "=" + very_long)
                .size(),
            1500U);
  EXPECT_LT(
      refusal(Status::malformed_port, "sim://tags?file=" + very_long + "&" + very_long).size(),
      600U);
}

}  // namespace
}  // namespace zelk::simulator
