// What stands behind a port string, and faults in front of taps and replays.
#include "simulator/open_backend.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "simulator/faults/faulty_device.hpp"
#include "simulator/recordings/recording_file.hpp"
#include "simulator/recordings/replay_device.hpp"
#include "simulator/recordings/tap_device.hpp"
#include "simulator/status_texts.hpp"
#include "simulator/unit/unit.hpp"
#include "tests/scripted_device/scripted_device.hpp"
#include "tests/simulator/expect_failure.hpp"
#include "tests/simulator/recording_bytes.hpp"
#include "tests/support/temporary_directory.hpp"

namespace zelk::simulator {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StrEq;

// The device behind a port, as a host calls it.
class Host {
 public:
  explicit Host(const std::string& port) : device_(open_backend(port, std::nullopt)) {}

  qx_status call(CallKind kind, std::uint64_t first = 0) {
    DeviceCall call{.kind = kind, .arguments = {first}};
    return device_->call(call);
  }

  FileBytes read(int timeout_ms = 20) {
    FileBytes bytes(64, 0xEE);
    std::size_t received = 77;
    status = device_->read(bytes, received, timeout_ms);
    bytes.resize(received);
    return bytes;
  }

  template <typename Device>
  [[nodiscard]] bool is() const {
    return dynamic_cast<const Device*>(device_.get()) != nullptr;
  }

  [[nodiscard]] const DeviceBackend& device() const { return *device_; }

  qx_status status = 0;  // of the last read

 private:
  std::unique_ptr<DeviceBackend> device_;
};

class OpenBackend : public testing::Test {
 protected:
  ~OpenBackend() override { StatusTexts::instance().answered_here(-9); }

  // The sample recording: mask 5, start in mode 1, a chunk DE AD BE and a failed
  // read, -9 "broken".
  std::string replay(const std::string& keys) {
    write_file(directory_.path() / "a.rec", recording_bytes(sample_records()));
    return "replay://" + (directory_.path() / "a.rec").string() + "?pace=max&" + keys;
  }

  std::string tap(const std::string& keys) {
    return "tap://" + tapped_.string() + "?library=" ZELK_SCRIPTED_LIBRARY "&port=usb0" + keys;
  }

  static void start_replay(Host& host) {
    EXPECT_EQ(host.call(CallKind::set_stream_channel_mask, 5), 0);
    EXPECT_EQ(host.call(CallKind::start_stream_mode, 1), 0);
  }

  test_support::TemporaryDirectory directory_;
  std::filesystem::path tapped_ = directory_.path() / "tapped.rec";
};

TEST_F(OpenBackend, NothingStandsInFrontOfADeviceThatNothingIsAskedOf) {
  scripted_device::load({});
  EXPECT_TRUE(Host("ftdi://").is<Unit>());
  EXPECT_TRUE(Host("ftdi://?external_reference=locked&seed=9").is<Unit>());
  EXPECT_TRUE(Host(tap("")).is<TapDevice>());
  EXPECT_TRUE(Host(replay("")).is<ReplayDevice>());
  EXPECT_TRUE(Host(replay("seed=9&flip_bits=0")).is<ReplayDevice>());
  std::filesystem::remove(tapped_);
  EXPECT_TRUE(Host("ftdi://?flip_bits=0.1").is<FaultyDevice>());
  EXPECT_TRUE(Host(tap("&flip_bits=0.1")).is<FaultyDevice>());
  EXPECT_TRUE(Host(replay("flip_bits=0.1")).is<FaultyDevice>());
}

TEST_F(OpenBackend, OnlyAUnitHasAReferenceInput) {
  for (const std::string& port :
       {tap("&external_reference=none"), replay("external_reference=none")}) {
    std::string text;
    try {
      Host host(port);
    } catch (const Failure& failure) {
      text = status_text(static_cast<std::int32_t>(failure.status()));
    }
    EXPECT_EQ(text, "port key external_reference does not go with this port");
  }
}

TEST_F(OpenBackend, CallsOfAReplayFailWhenAskedTo) {
  Host host(replay("fail=set_dac_codes:-7:DAC 2,read_stream_bytes#2:-77"));
  EXPECT_EQ(failure_text(Status::not_available, [&] { host.call(CallKind::set_dac_codes); }),
            "DAC 2");
  start_replay(host);
  EXPECT_EQ(host.read(), (FileBytes{0xDE, 0xAD, 0xBE}));
  failure_text(static_cast<Status>(-77), [&] { host.read(); });
  EXPECT_EQ(host.read(), FileBytes{});
  EXPECT_EQ(host.status, -9);
  EXPECT_THAT(StatusTexts::instance().text(-9), StrEq("broken"));
}

TEST_F(OpenBackend, BytesOfAReplayAreDamaged) {
  const auto first_bytes = [this](const std::string& keys) {
    Host host(replay(keys));
    start_replay(host);
    for (int reads = 0; reads < 10; ++reads) {
      const FileBytes bytes = host.read();
      if (!bytes.empty() || host.status == -9) {
        return bytes;
      }
    }
    ADD_FAILURE() << "no end";
    return FileBytes{};
  };
  EXPECT_EQ(first_bytes("zeros_at_s=1000"), (FileBytes{0xDE, 0xAD, 0xBE}));
  EXPECT_EQ(first_bytes("flip_bits=1"), (FileBytes{0x21, 0x52, 0x41}));
  EXPECT_EQ(first_bytes("remove_bit_at_s=0"), (FileBytes{0xBD, 0x5B}));
  EXPECT_EQ(first_bytes("ones_at_s=0"), (FileBytes{0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(first_bytes("lose_bytes=1"), FileBytes{});
  const FileBytes noise = first_bytes("insert_bytes=1&seed=5");
  ASSERT_EQ(noise.size(), 6U);
  EXPECT_EQ(noise[1], 0xDE);
  EXPECT_EQ(noise[5], 0xBE);
  EXPECT_EQ(first_bytes("insert_bytes=1&seed=5"), noise);
  EXPECT_NE(first_bytes("insert_bytes=1&seed=6"), noise);
}

TEST_F(OpenBackend, AReplayedDeviceVanishesOnceItStreams) {
  Host host(replay("vanish_at_s=0"));
  start_replay(host);
  failure_text(Status::unit_vanished, [&] { host.read(); });
  failure_text(Status::unit_vanished, [&] { host.call(CallKind::stop_stream_mode); });
}

TEST_F(OpenBackend, AReplayFallsSilent) {
  Host host(replay("silent_at_s=0"));
  start_replay(host);
  const auto before = std::chrono::steady_clock::now();
  failure_text(Status::timed_out, [&] { host.read(30); });
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(30));
}

// The recording of a shaken tap is that of the device as it is.
TEST_F(OpenBackend, FaultsOfATapAreTheHostsAlone) {
  scripted_device::load({.statuses = {{"qx_set_dac_codes", {-9}}},
                         .status_texts = {{-9, "broken"}},
                         .last_error = "DAC 2",
                         .reads = {{.bytes = {1, 2, 3}}}});
  {
    Host host(tap("&flip_bits=1&fail=load_calibration:-7,identify#2:-7"));
    EXPECT_EQ(host.call(CallKind::identify), 0);
    failure_text(Status::not_available, [&] { host.call(CallKind::load_calibration); });
    failure_text(Status::not_available, [&] { host.call(CallKind::identify); });
    EXPECT_EQ(host.call(CallKind::set_dac_codes), -9);
    EXPECT_THAT(host.device().last_error(), StrEq("DAC 2"));
    EXPECT_THAT(StatusTexts::instance().text(-9), StrEq("broken"));
    EXPECT_EQ(host.call(CallKind::start_stream_mode), 0);
    EXPECT_EQ(host.read(), (FileBytes{0xFE, 0xFD, 0xFC}));
  }
  EXPECT_THAT(scripted_device::calls(), Not(Contains(HasSubstr("qx_load_calibration"))));
  const RecordingFile recording(tapped_.string(), false);
  ASSERT_EQ(recording.calls().size(), 3U);
  EXPECT_EQ(recording.calls()[0].call.kind, CallKind::identify);
  EXPECT_EQ(recording.calls()[1].answer.status, -9);
  RecordPlace place = recording.calls()[2].after;
  EXPECT_EQ(std::get<RecordedChunk>(recording.next(place).value()).bytes, (FileBytes{1, 2, 3}));
}

TEST_F(OpenBackend, AnOpeningThatFailsOpensNothing) {
  scripted_device::load({});
  EXPECT_EQ(failure_text(Status::not_available, [&] { Host host(tap("&fail=open:-7:in use")); }),
            "in use");
  EXPECT_FALSE(std::filesystem::exists(tapped_));
  EXPECT_TRUE(scripted_device::calls().empty());
  failure_text(Status::not_available, [&] { Host host(replay("fail=open:-7")); });
}

// A host hears it as a device's own failure, with the fixed text of its status.
TEST_F(OpenBackend, AnOpeningThatFailsAsAskedIsAFault) {
  EXPECT_THROW(Host("ftdi://?fail=open:-23:never shown"), FaultFailure);
  EXPECT_THROW(Host(replay("fail=open:-23")), FaultFailure);
}

TEST_F(OpenBackend, NamesALineRateThatIsNone) {
  EXPECT_EQ(failure_text(Status::invalid_argument, [] { open_backend("ftdi://", -5); }),
            "the line rate must be above 0, not -5");
}

TEST_F(OpenBackend, FaultKeysAreCheckedWhereverTheyStand) {
  for (const std::string& port : {tap("&silent_for_s=1"), replay("silent_for_s=1")}) {
    failure_text(Status::missing_port_key, [&] { Host host(port); });
  }
  EXPECT_FALSE(std::filesystem::exists(tapped_));
}

}  // namespace
}  // namespace zelk::simulator
