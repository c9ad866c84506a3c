// Faults in front of a device that says no by its own statuses and last errors,
// as a tapped or a recorded one does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/call_records.hpp"
#include "simulator/faults/faulty_device.hpp"
#include "simulator/ports/port_query.hpp"
#include "tests/simulator/expect_failure.hpp"

namespace zelk::simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::IsNull;
using testing::StrEq;

struct Answer {
  qx_status status = 0;
  const char* last_error = "";
  Bytes bytes{};
};

// Gives the answers that are set, one after the other, then succeeds.
class ForeignDevice final : public DeviceBackend {
 public:
  qx_status call(DeviceCall& call) override {
    call.results.fill(7);
    return next().status;
  }
  qx_status read(std::span<std::uint8_t> buffer, std::size_t& received, int timeout_ms) override {
    timeouts_ms.push_back(timeout_ms);
    const Answer answer = next();
    std::copy(answer.bytes.begin(), answer.bytes.end(), buffer.begin());
    received = answer.bytes.size();
    return answer.status;
  }
  [[nodiscard]] const char* last_error() const noexcept override { return last_error_; }

  std::deque<Answer> answers;
  std::vector<int> timeouts_ms;

 private:
  Answer next() {
    Answer answer;
    if (!answers.empty()) {
      answer = std::move(answers.front());
      answers.pop_front();
    }
    last_error_ = answer.last_error;
    return answer;
  }

  const char* last_error_ = "";
};

struct Bench {
  explicit Bench(const std::string& query) {
    PortQuery keys(query);
    auto made = std::make_unique<ForeignDevice>();
    foreign = made.get();
    device = with_faults(std::move(made), take_fault_plan(keys), 1);
  }

  qx_status call(CallKind kind) {
    call_ = {.kind = kind};
    return device->call(call_);
  }

  qx_status read(std::size_t capacity, int timeout_ms = 20) {
    bytes.assign(capacity, 0xEE);
    std::size_t received = 77;
    const qx_status status = device->read(bytes, received, timeout_ms);
    bytes.resize(received);
    return status;
  }

  void start() { EXPECT_EQ(call(CallKind::start_stream_mode), 0); }

  ForeignDevice* foreign;
  std::unique_ptr<DeviceBackend> device;
  DeviceCall call_;
  Bytes bytes;
};

TEST(FaultsInFrontOfAnyDevice, LeaveItsAnswersAlone) {
  Bench bench("vanish_at_s=1000");
  bench.foreign->answers = {{-55, "slot 3"}, {-4, nullptr}, {0, ""}};
  EXPECT_EQ(bench.call(CallKind::load_calibration), -55);
  EXPECT_THAT(bench.device->last_error(), StrEq("slot 3"));
  EXPECT_EQ(bench.call_.results[0], 7U);
  EXPECT_EQ(bench.call(CallKind::set_reference_clock), -4);
  EXPECT_THAT(bench.device->last_error(), IsNull());
  EXPECT_EQ(bench.call(CallKind::identify), 0);
  EXPECT_THAT(bench.device->last_error(), StrEq(""));
}

TEST(FaultsInFrontOfAnyDevice, LeaveItsReadsAloneUnlessTheyAreDamaged) {
  for (const char* const query : {"vanish_at_s=1000", "zeros_at_s=1000"}) {
    SCOPED_TRACE(query);
    Bench read_from(query);
    read_from.start();
    read_from.foreign->answers = {{0, "", {1, 2}}, {0, ""}, {-3, "nothing came"}, {-9, "", {3}}};
    EXPECT_EQ(read_from.read(4), 0);
    EXPECT_EQ(read_from.bytes, (Bytes{1, 2}));
    EXPECT_EQ(read_from.read(4), 0);
    EXPECT_EQ(read_from.bytes, Bytes{});
    EXPECT_EQ(read_from.read(4), -3);
    EXPECT_EQ(read_from.bytes, Bytes{});
    EXPECT_THAT(read_from.device->last_error(), StrEq("nothing came"));
    EXPECT_EQ(read_from.read(4), -9);
    EXPECT_EQ(read_from.bytes, Bytes{3});
  }
}

TEST(FaultsInFrontOfAnyDevice, HandTheHostsTimeOutOn) {
  for (const char* const query : {"vanish_at_s=1000", "zeros_at_s=1000"}) {
    Bench bench(query);
    EXPECT_EQ(bench.read(4, -5), 0);  // before any stream
    bench.start();
    for (const int timeout_ms : {-2147483647 - 1, -1, 0, 20, 2147483647}) {
      EXPECT_EQ(bench.read(4, timeout_ms), 0);
    }
    EXPECT_THAT(bench.foreign->timeouts_ms,
                ElementsAre(-5, -2147483647 - 1, -1, 0, 20, 2147483647));
  }
}

TEST(FaultsInFrontOfAnyDevice, AFailedStartBeginsNoStreamAndAFailedStopEndsNone) {
  Bench bench("empty_at_s=0&fail=identify@0:-8");
  bench.foreign->answers = {{-55, "no start"}};
  EXPECT_EQ(bench.call(CallKind::start_stream_mode), -55);
  EXPECT_EQ(bench.call(CallKind::identify), 0);
  bench.start();
  failure_text(static_cast<Status>(-8), [&] { bench.call(CallKind::identify); });
  bench.foreign->answers = {{-55, "no stop"}, {0, "", {1}}};
  EXPECT_EQ(bench.call(CallKind::stop_stream_mode), -55);
  EXPECT_EQ(bench.read(4), 0);
  EXPECT_EQ(bench.bytes, Bytes{});  // still the empty reads of a stream
  EXPECT_EQ(bench.foreign->answers.size(), 1U);
}

TEST(FaultsInFrontOfAnyDevice, AnswersOfTheirOwnHaveNoLastErrorOfTheDevice) {
  Bench bench("empty_at_s=0");
  bench.start();
  bench.foreign->answers = {{-55, "slot 3"}};
  EXPECT_EQ(bench.call(CallKind::load_calibration), -55);
  EXPECT_EQ(bench.read(4), 0);
  EXPECT_THAT(bench.device->last_error(), StrEq(""));
}

TEST(FaultsInFrontOfAnyDevice, DamagedBytesThatWaitComeWithoutTheDevice) {
  Bench bench("insert_bytes=1");
  bench.start();
  bench.foreign->answers = {{0, "odd", {1, 2}}, {-9, "broken", {3}}};
  EXPECT_EQ(bench.read(3), 0);  // four bytes, of which three fit
  EXPECT_EQ(bench.bytes.size(), 3U);
  EXPECT_THAT(bench.device->last_error(), StrEq(""));
  EXPECT_EQ(bench.read(3), 0);
  EXPECT_EQ(bench.bytes, Bytes{2});
  EXPECT_EQ(bench.read(1), -9);
  EXPECT_THAT(bench.device->last_error(), StrEq("broken"));
  EXPECT_EQ(bench.bytes.size(), 1U);
  EXPECT_EQ(bench.read(1), 0);
  EXPECT_EQ(bench.bytes, Bytes{3});
}

// Whatever has gone wrong with the stream.
TEST(FaultsInFrontOfAnyDevice, ReadsWithoutRoomAreTheDevicesAtOnce) {
  for (const char* const query : {"flip_bits=0.5", "lose_bytes=1", "silent_at_s=0", "empty_at_s=0",
                                  "hang_at_s=0", "zeros_at_s=0"}) {
    SCOPED_TRACE(query);
    Bench bench(query);
    bench.start();
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(bench.read(0, 600'000), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(60));
    EXPECT_EQ(bench.foreign->timeouts_ms, std::vector<int>{600'000});
  }
}

TEST(FaultsInFrontOfAnyDevice, LoseTheReferenceInWhatItSays) {
  Bench bench("reference_lost_at_s=0");
  EXPECT_EQ(bench.call(CallKind::get_reference_clock_status), 0);
  EXPECT_EQ(bench.call_.results[3], 7U);
  bench.start();
  EXPECT_EQ(bench.call(CallKind::get_reference_clock_status), 0);
  EXPECT_EQ(clock_from_words(bench.call_.results).external_present, 0U);
  bench.foreign->answers = {{-4, "fixed clock"}};
  EXPECT_EQ(bench.call(CallKind::get_reference_clock_status), -4);
  EXPECT_EQ(bench.call_.results[3], 7U);
}

}  // namespace
}  // namespace zelk::simulator
