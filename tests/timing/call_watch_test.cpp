#include "timing/call_watch.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/scripted_device/scripted_device.hpp"
#include "timing/device.hpp"
#include "timing/error.hpp"

namespace {

using scripted_device::Script;
using testing::ElementsAre;
using zelk::timing::CallWatch;
using zelk::timing::Device;

// Notes what it is told: "(" for a call of the set-up, "[" for another, ")" for
// the end of either.
class Notes final : public CallWatch {
 public:
  void begin(Kind kind) override {
    if (refuses) {
      throw std::runtime_error("refused");
    }
    text += kind == Kind::set_up ? '(' : '[';
  }
  void end() noexcept override { text += ')'; }

  std::string text;
  bool refuses = false;
};

class WatchedDevice : public testing::Test {
 protected:
  static Device opened(Notes& notes, const Script& script = {}) {
    scripted_device::load(script);
    Device device = Device::open("ftdi://", Device::standard_rate, &notes);
    EXPECT_EQ(notes.text, "()");
    notes.text.clear();
    return device;
  }
};

TEST_F(WatchedDevice, TellsOfEachCallOfTheSetUp) {
  Notes notes;
  Device device = opened(notes);
  device.identify();
  device.load_calibration();
  device.reference_clock_status();
  device.set_reference_clock({}, {});
  device.set_tdl_active_masks({});
  device.tdl_active_masks();
  device.set_threshold_codes({});
  device.set_dead_time(1);
  device.set_packed_delta_config({.bits = 16, .quantum_ps = 8});
  device.set_stream_interface({}, {});
  device.set_stream_channels(15);
  device.set_calibration_freq(1e4);
  device.enable_calibration_source();
  device.disable_calibration_source();
  device.start_stream({});
  std::string expected;
  for (int i = 0; i < 15; ++i) {
    expected += "()";
  }
  EXPECT_EQ(notes.text, expected);
}

TEST_F(WatchedDevice, TellsOfReadingStoppingAndClosing) {
  Notes notes;
  {
    Device device = opened(notes);
    std::array<std::uint8_t, 16> buffer{};
    device.read_stream_bytes(buffer);
    device.stop_stream_any(true);
    device.stop_stream_quietly(true);
    EXPECT_EQ(notes.text, "[)[)[)");
  }
  EXPECT_EQ(notes.text, "[)[)[)[)");
}

TEST_F(WatchedDevice, TellsOfTheEndOfACallThatFails) {
  Notes notes;
  {
    Device device =
        opened(notes, {.statuses = {{"qx_identify", {-5}}, {"qx_stop_stream_mode", {-6}}}});
    EXPECT_THROW(device.identify(), zelk::timing::Error);
    EXPECT_THROW(device.stop_stream_any(true), zelk::timing::Error);
  }
  EXPECT_EQ(notes.text, "()[)[)");
}

TEST_F(WatchedDevice, TellsOfDiscovery) {
  scripted_device::load({});
  Notes notes;
  Device::discover(&notes);
  EXPECT_EQ(notes.text, "()");
}

TEST_F(WatchedDevice, MakesNoCallThatTheWatchRefuses) {
  Notes notes;
  Device device = opened(notes);
  notes.refuses = true;
  EXPECT_THROW(device.identify(), std::runtime_error);
  notes.refuses = false;
  EXPECT_THAT(scripted_device::calls(), ElementsAre("qx_open_serial port=ftdi:// -> 0"));
  EXPECT_EQ(notes.text, "");
}

TEST_F(WatchedDevice, TakesItsWatchAlongWhenItMoves) {
  Notes notes;
  {
    Device device = opened(notes);
    Device moved(std::move(device));
    moved.identify();
    EXPECT_EQ(notes.text, "()");
  }
  EXPECT_EQ(notes.text, "()[)");
}

}  // namespace
