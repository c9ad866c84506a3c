#include "simulator/ports/device_port.hpp"

#include <gtest/gtest.h>

#include <string>

#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator {
namespace {

void expect_refused(const std::string& port, Status status) {
  SCOPED_TRACE(port);
  failure_text(status, [&] { parse_device_port(port); });
}

// The text of the status that refuses `port`.
std::string refusal(const std::string& port) {
  try {
    parse_device_port(port);
  } catch (const Failure& failure) {
    return status_text(static_cast<std::int32_t>(failure.status()));
  }
  return "not refused";
}

TEST(DevicePort, BareSchemeAndDiscoveredPortNameTheDefaultUnit) {
  EXPECT_EQ(parse_device_port("ftdi://").scenario, ScenarioKind::default_unit);
  EXPECT_EQ(parse_device_port("ftdi://ZK4-0001").scenario, ScenarioKind::default_unit);
}

TEST(DevicePort, AnythingElseOutsideTheScenariosIsNoUnit) {
  expect_refused("", Status::no_such_unit);
  expect_refused("ftdi://ZK4-0002", Status::no_such_unit);
  expect_refused("ftdi:/", Status::no_such_unit);
  expect_refused("FTDI://", Status::no_such_unit);
  expect_refused("/dev/ttyUSB0", Status::no_such_unit);
  expect_refused(" ftdi://", Status::no_such_unit);
}

TEST(DevicePort, TagsTakesAFileAndAPace) {
  const DevicePort real = parse_device_port("sim://tags?file=a/b.csv");
  EXPECT_EQ(real.scenario, ScenarioKind::tags);
  EXPECT_EQ(real.tag_file, "a/b.csv");
  EXPECT_EQ(real.pace, Pace::real_time);
  EXPECT_EQ(parse_device_port("sim://tags?pace=max&file=x").pace, Pace::as_read);
  EXPECT_EQ(parse_device_port("sim://tags?file=x&pace=real").pace, Pace::real_time);
}

TEST(DevicePort, PercentSignsStandForAnyByteButNul) {
  EXPECT_EQ(parse_device_port("sim://tags?file=a%26b%3Dc%25%2f%2F").tag_file, "a&b=c%//");
  EXPECT_EQ(parse_device_port("sim://tags?file=a=b?c").tag_file, "a=b?c");
  expect_refused("sim://tags?file=a%", Status::malformed_port);
  expect_refused("sim://tags?file=a%2", Status::malformed_port);
  expect_refused("sim://tags?file=a%2G", Status::malformed_port);
  expect_refused("sim://tags?file=a%-1", Status::malformed_port);
  expect_refused("sim://tags?file=a%2&pace=max", Status::malformed_port);
  expect_refused("sim://tags?file=a%00b", Status::malformed_port);
}

TEST(DevicePort, EveryPortTakesTheBitsMissingAtTheStart) {
  EXPECT_EQ(parse_device_port("sim://tags?file=x").start_bits, 0U);
  EXPECT_EQ(parse_device_port("sim://tags?start_bits=7&file=x").start_bits, 7U);
  EXPECT_EQ(parse_device_port("sim://tags?file=x&start_bits=1000000").start_bits, 1'000'000U);
  EXPECT_EQ(parse_device_port("ftdi://?start_bits=0").start_bits, 0U);
  const DevicePort unit = parse_device_port("ftdi://ZK4-0001?start_bits=12");
  EXPECT_EQ(unit.start_bits, 12U);
  EXPECT_EQ(unit.scenario, ScenarioKind::default_unit);
  for (const char* const bits :
       {"1000001", "-1", "+1", "", " 1", "1 ", "0x1", "4294967297", "99999999999999999999"}) {
    EXPECT_EQ(refusal(std::string("sim://tags?file=x&start_bits=") + bits),
              "port key start_bits takes a whole number from 0 to 1000000 bits");
  }
}

TEST(DevicePort, ScenariosTakeTheirSignals) {
  const DevicePort tags = parse_device_port("sim://tags?file=x&loop=1&loop_gap_ps=7");
  EXPECT_TRUE(tags.loop);
  EXPECT_EQ(tags.loop_gap_ps, 7);
  EXPECT_FALSE(parse_device_port("sim://tags?file=x").loop);

  const DevicePort pulses =
      parse_device_port("sim://pulses?frequency_hz=1e6&delay_ps=1,2,3,4.6&jitter_ps=2.5");
  EXPECT_EQ(pulses.scenario, ScenarioKind::pulses);
  EXPECT_EQ(pulses.pulse_frequency_hz, 1e6);
  EXPECT_EQ(pulses.pulse_delay_ps, (ChannelNumbers{1, 2, 3, 4.6}));
  EXPECT_EQ(pulses.jitter_rms_ps, 2.5);

  const DevicePort random = parse_device_port("sim://random?rate_hz=0,1,2,3");
  EXPECT_EQ(random.scenario, ScenarioKind::random);
  EXPECT_EQ(random.random_rate_hz, (ChannelNumbers{0, 1, 2, 3}));

  const DevicePort pairs = parse_device_port(
      "sim://pairs?channel_a=3&channel_b=2&pair_rate_hz=5&pair_delay_ps=-70.6&jitter_ps=9");
  EXPECT_EQ(pairs.scenario, ScenarioKind::pairs);
  EXPECT_EQ(pairs.pairs.first_channel, 3);
  EXPECT_EQ(pairs.pairs.second_channel, 2);
  EXPECT_EQ(pairs.pairs.rate_hz, 5);
  EXPECT_EQ(pairs.pairs.delay_ps, -71);
  EXPECT_EQ(pairs.pairs.jitter_rms_ps, 9);

  const DevicePort burst = parse_device_port("sim://burst?burst_us=3&pause_us=4");
  EXPECT_EQ(burst.scenario, ScenarioKind::burst);
  EXPECT_EQ(burst.burst_ps, 3'000'000);
  EXPECT_EQ(burst.pause_ps, 4'000'000);
  EXPECT_EQ(parse_device_port("sim://silent").scenario, ScenarioKind::silent);
}

TEST(DevicePort, EveryUnitTakesWhatIsAroundItsSignal) {
  for (const char* const port : {"ftdi://?", "sim://tags?file=x&", "sim://silent?"}) {
    SCOPED_TRACE(port);
    const DevicePort unit = parse_device_port(
        std::string(port) +
        "pace=max&seed=9&background_hz=1,2,3,4&amplitude_v=0,1,2,3&efficiency=0.5"
        "&detector_dead_time_ps=20000&afterpulse_percent=5&afterpulse_tau_ps=1e4&drift_ppm=-2.5"
        "&start_epoch=0.5&bin_nonuniformity_percent=40&fifo_bytes=1024&link_bytes_per_s=5000"
        "&host_buffer_bytes=8192&short_reads=1&start_bits=3&prepared_s=0.25");
    EXPECT_EQ(unit.pace, Pace::as_read);
    EXPECT_EQ(unit.seed, 9U);
    EXPECT_EQ(unit.background_hz, (ChannelNumbers{1, 2, 3, 4}));
    EXPECT_EQ(unit.detector, (DetectorSettings{.amplitude_v = {0, 1, 2, 3},
                                               .efficiency = {0.5, 0.5, 0.5, 0.5},
                                               .dead_time_ps = 20'000,
                                               .afterpulse_probability = 0.05,
                                               .afterpulse_tau_ps = 1e4}));
    EXPECT_EQ(unit.drift_ppm, -2.5);
    EXPECT_EQ(unit.start_epoch_ms, 0.5);
    EXPECT_EQ(unit.bin_nonuniformity, 0.4);
    EXPECT_EQ(unit.link, (LinkSettings{.fifo_bytes = 1024,
                                       .rate_bytes_per_s = 5000,
                                       .host_buffer_bytes = 8192,
                                       .short_reads = true}));
    EXPECT_EQ(unit.start_bits, 3U);
    EXPECT_EQ(unit.prepared_ps, 250'000'000'000);
  }
}

TEST(DevicePort, ExternalReferenceIsAbsentUnlockedOrLocked) {
  EXPECT_EQ(parse_device_port("ftdi://?external_reference=none").external_reference,
            ExternalReference::none);
  EXPECT_EQ(parse_device_port("ftdi://?external_reference=unlocked").external_reference,
            ExternalReference::unlocked);
  EXPECT_EQ(parse_device_port("ftdi://?external_reference=locked").external_reference,
            ExternalReference::locked);
  EXPECT_EQ(refusal("ftdi://?external_reference=Locked"),
            "port key external_reference takes none, unlocked or locked");
}

// The defaults cost nothing: no detectors stand between the signal and the
// unit, and the link is the one that the documentation states.
TEST(DevicePort, DefaultsAreThoseOfTheParts) {
  const DevicePort unit = parse_device_port("ftdi://");
  EXPECT_EQ(unit.detector, DetectorSettings{});
  EXPECT_EQ(unit.link, LinkSettings{});
  EXPECT_EQ(unit.prepared_ps, 0);
  EXPECT_EQ(unit.background_hz, ChannelNumbers{});
  EXPECT_EQ(unit.bin_nonuniformity, 0);
  EXPECT_EQ(unit.start_epoch_ms, 0);
  EXPECT_EQ(unit.drift_ppm, 0);
}

TEST(DevicePort, EveryMistakeHasItsOwnStatus) {
  expect_refused("sim://", Status::unknown_scenario);
  expect_refused("sim://tag?file=x", Status::unknown_scenario);
  expect_refused("sim://tags/?file=x", Status::unknown_scenario);
  expect_refused("sim://tags", Status::missing_port_key);
  expect_refused("sim://tags?", Status::missing_port_key);
  expect_refused("sim://tags?pace=max", Status::missing_port_key);
  expect_refused("sim://tags?file=x&speed=2", Status::unknown_port_key);
  EXPECT_EQ(refusal("ftdi://?loop=1"), "port key loop does not go with this port");
  expect_refused("ftdi://ZK4-0002?start_bits=7", Status::no_such_unit);
  expect_refused("ftdi://start_bits=7", Status::no_such_unit);
  EXPECT_EQ(refusal("sim://tags?file=x&pace=fast"), "port key pace takes real or max");
  EXPECT_EQ(refusal("sim://tags?file=x&pace="), "port key pace takes real or max");
  expect_refused("sim://tags?file=x&file=y", Status::repeated_port_key);
  expect_refused("sim://tags?file", Status::malformed_port);
  expect_refused("sim://tags?=x", Status::malformed_port);
  expect_refused("sim://tags?file=x&&pace=max", Status::malformed_port);
}

}  // namespace
}  // namespace zelk::simulator
