#include "simulator/device_port.hpp"

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
