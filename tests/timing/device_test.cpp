#include "timing/device.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "tests/scripted_device/scripted_device.hpp"
#include "tests/support/error_of.hpp"
#include "timing/error.hpp"

namespace zelk::timing {
namespace {

using scripted_device::make_identity;
using scripted_device::Script;
using testing::ElementsAre;
using testing::IsEmpty;
using zelk::test_support::error_of;

TEST(IdentityFromC, TextEndsAtTheFirstNul) {
  const Identity identity = Identity::from_c(make_identity("a", "bc", "SN 1", "unit"));
  EXPECT_EQ(identity, (Identity{"a", "bc", "SN 1", "unit"}));

  qx_identity record = make_identity("", "", "", "");
  record.serial[0] = 'x';
  record.serial[2] = 'y';  // behind the NUL
  EXPECT_EQ(Identity::from_c(record).serial, "x");
}

TEST(IdentityFromC, FullFieldIsTakenWhole) {
  const std::string sixteen_a(16, 'A');
  const std::string sixteen_b(16, 'B');
  const std::string sixteen_s(16, 'S');
  const std::string forty_eight(48, 'D');
  const Identity identity =
      Identity::from_c(make_identity(sixteen_a, sixteen_b, sixteen_s, forty_eight));
  EXPECT_EQ(identity, (Identity{sixteen_a, sixteen_b, sixteen_s, forty_eight}));
}

TEST(IdentityFromC, BytesAreCopiedAsTheyStand) {
  const Identity identity = Identity::from_c(make_identity(" aB ", "\t\xFF\x01", "", " "));
  EXPECT_EQ(identity, (Identity{" aB ", "\t\xFF\x01", "", " "}));
}

TEST(Discover, RecordsKeepTheLibrarysOrderAndTheListIsReleased) {
  scripted_device::load(Script{.discovered = {{"usb://2", make_identity("", "", "S2", "two")},
                                              {"usb://1", make_identity("", "", "S1", "one")}}});
  const std::vector<DiscoveredDevice> devices = Device::discover();
  ASSERT_EQ(devices.size(), 2u);
  EXPECT_EQ(devices[0].port, "usb://2");
  EXPECT_EQ(devices[0].identity, (Identity{"", "", "S2", "two"}));
  EXPECT_EQ(devices[1].port, "usb://1");
  EXPECT_EQ(devices[1].identity, (Identity{"", "", "S1", "one"}));
  EXPECT_THAT(
      scripted_device::calls(),
      ElementsAre("qx_discover -> 0", "qx_discover_count -> 2",
                  "qx_discover_port index=0 -> usb://2", "qx_discover_identity index=0 -> identity",
                  "qx_discover_port index=1 -> usb://1", "qx_discover_identity index=1 -> identity",
                  "qx_discover_free"));
}

TEST(Discover, NullEntriesBecomeEmptyTexts) {
  scripted_device::load(Script{.discovered = {{std::nullopt, std::nullopt}}});
  const std::vector<DiscoveredDevice> devices = Device::discover();
  ASSERT_EQ(devices.size(), 1u);
  EXPECT_EQ(devices[0].port, "");
  EXPECT_EQ(devices[0].identity, Identity{});
}

TEST(Discover, EmptyListIsReleasedToo) {
  scripted_device::load({});
  EXPECT_THAT(Device::discover(), IsEmpty());
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_discover -> 0", "qx_discover_count -> 0", "qx_discover_free"));
}

TEST(Discover, FailureIsNamedAfterItAndHasNoDetail) {
  scripted_device::load(Script{.statuses = {{"qx_discover", {-8}}},
                               .status_texts = {{-8, "bus is down"}},
                               .last_error = "never shown"});
  const Error error = error_of([] { Device::discover(); });
  EXPECT_STREQ(error.what(), "discover: bus is down");
  EXPECT_EQ(error.status, -8);
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_discover -> -8", "qx_status_string status=-8"));
}

TEST(Open, StandardRateUsesTheFixedRateEntryPoint) {
  scripted_device::load({});
  { const Device device = Device::open("ftdi://7", 3'000'000); }
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_open_serial port=ftdi://7 -> 0", "qx_close"));
}

TEST(Open, AnyOtherRateIsPassedOn) {
  scripted_device::load({});
  { const Device device = Device::open("ftdi://7", 115'200); }
  { const Device device = Device::open("ftdi://7", 2'999'999); }
  { const Device device = Device::open("ftdi://7", 0); }
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_open port=ftdi://7 rate=115200 -> 0", "qx_close",
                          "qx_open port=ftdi://7 rate=2999999 -> 0", "qx_close",
                          "qx_open port=ftdi://7 rate=0 -> 0", "qx_close"));
}

TEST(Open, PortIsTerminatedWhereTheViewEnds) {
  scripted_device::load({});
  const std::string_view port = std::string_view("ftdi://12345").substr(0, 8);
  { const Device device = Device::open(port, 3'000'000); }
  EXPECT_EQ(scripted_device::calls().front(), "qx_open_serial port=ftdi://1 -> 0");
}

TEST(Open, FreshDeviceOwnsItsHandleAndIsInNoMode) {
  scripted_device::load({});
  const Device device = Device::open("ftdi://", 3'000'000);
  EXPECT_NE(device.handle, nullptr);
  EXPECT_TRUE(device.owns);
  EXPECT_EQ(device.stream_mode, 0);
}

TEST(Open, FineTablesFollowTheDefaultRule) {
  scripted_device::load({});
  const Device device = Device::open("ftdi://", 3'000'000);
  for (const std::vector<std::int64_t>& table : device.fine_lut) {
    ASSERT_EQ(table.size(), 8192u);
    for (std::int64_t code = 0; code < 8192; ++code) {
      // 18.5 ps a code, halves up: 37 half picoseconds, plus one half, halved.
      const std::int64_t rounded = code % 2 == 0 ? code / 2 * 37 : code / 2 * 37 + 19;
      ASSERT_EQ(table[static_cast<std::size_t>(code)], rounded < 3332 ? rounded : 3332) << code;
    }
    EXPECT_THAT(std::vector(table.begin(), table.begin() + 6), ElementsAre(0, 19, 37, 56, 74, 93));
    EXPECT_EQ(table[180], 3330);
    EXPECT_EQ(table[181], 3332);
    EXPECT_EQ(table[8191], 3332);
  }
}

TEST(Open, FailureHasNoDetailAndClosesNothing) {
  scripted_device::load(Script{.statuses = {{"qx_open_serial", {-2}}, {"qx_open", {-6}}},
                               .status_texts = {{-2, "no such port"}, {-6, "bad rate"}},
                               .last_error = "never shown"});
  const Error standard = error_of([] { Device::open("ftdi://", 3'000'000); });
  EXPECT_STREQ(standard.what(), "open: no such port");
  EXPECT_EQ(standard.status, -2);
  const Error other = error_of([] { Device::open("ftdi://", 9600); });
  EXPECT_STREQ(other.what(), "open: bad rate");
  EXPECT_EQ(other.status, -6);
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_open_serial port=ftdi:// -> -2", "qx_status_string status=-2",
                          "qx_open port=ftdi:// rate=9600 -> -6", "qx_status_string status=-6"));
}

TEST(Destructor, ClosesOnceAndDoesNotStopTheStream) {
  scripted_device::load({});
  {
    Device device = Device::open("ftdi://", 3'000'000);
    device.stream_mode = 1;
  }
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_open_serial port=ftdi:// -> 0", "qx_close"));
}

TEST(Destructor, LeavesAForeignHandleOpen) {
  scripted_device::load({});
  {
    Device device = Device::open("ftdi://", 3'000'000);
    device.owns = false;
  }
  EXPECT_THAT(scripted_device::calls(), ElementsAre("qx_open_serial port=ftdi:// -> 0"));
}

TEST(Move, MovedFromDeviceClosesNothing) {
  scripted_device::load({});
  {
    Device first = Device::open("ftdi://", 3'000'000);
    qx_device* handle = first.handle;
    first.stream_mode = 1;
    const Device second = std::move(first);
    EXPECT_EQ(second.handle, handle);
    EXPECT_TRUE(second.owns);
    EXPECT_EQ(second.stream_mode, 1);
    EXPECT_EQ(second.fine_lut[3].size(), 8192u);
    EXPECT_EQ(first.handle, nullptr);  // NOLINT(bugprone-use-after-move): what it is about
    EXPECT_FALSE(first.owns);
  }
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_open_serial port=ftdi:// -> 0", "qx_close"));
}

TEST(Move, AssignmentClosesTheDeviceThatItReplaces) {
  scripted_device::load({});
  {
    Device first = Device::open("one", 3'000'000);
    Device second = Device::open("two", 3'000'000);
    qx_device* handle = second.handle;
    first = std::move(second);
    EXPECT_EQ(first.handle, handle);
    EXPECT_EQ(scripted_device::calls().back(), "qx_close");
  }
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_open_serial port=one -> 0", "qx_open_serial port=two -> 0",
                          "qx_close", "qx_close"));
}

TEST(StopStreamAny, FlagIsPassedThrough) {
  scripted_device::load({});
  {
    Device device = Device::open("ftdi://", 3'000'000);
    device.stop_stream_any(true);
    device.stop_stream_any(false);
  }
  EXPECT_THAT(scripted_device::calls(),
              ElementsAre("qx_open_serial port=ftdi:// -> 0", "qx_stop_stream_mode flag=true -> 0",
                          "qx_stop_stream_mode flag=false -> 0", "qx_close"));
}

TEST(StopStreamAny, FailureCarriesTheLastError) {
  scripted_device::load(Script{.statuses = {{"qx_stop_stream_mode", {-11}}},
                               .status_texts = {{-11, "busy"}},
                               .last_error = "FIFO not empty"});
  Device device = Device::open("ftdi://", 3'000'000);
  const Error error = error_of([&] { device.stop_stream_any(true); });
  EXPECT_STREQ(error.what(), "stop_stream_any: busy (FIFO not empty)");
  EXPECT_EQ(error.status, -11);
}

TEST(DefaultCalibrationDir, LiesBelowHome) {
  setenv("HOME", "/home/lab", 1);
  EXPECT_EQ(default_calibration_dir(), "/home/lab/.zelk.timing/calibrations");
}

TEST(DefaultCalibrationDir, UnsetOrEmptyHomeMeansTheWorkingDirectory) {
  setenv("HOME", "", 1);
  EXPECT_EQ(default_calibration_dir(), "./.zelk.timing/calibrations");
  unsetenv("HOME");
  EXPECT_EQ(default_calibration_dir(), "./.zelk.timing/calibrations");
}

}  // namespace
}  // namespace zelk::timing
