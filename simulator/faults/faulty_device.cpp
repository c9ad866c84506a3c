#include "simulator/faults/faulty_device.hpp"

#include <algorithm>
#include <thread>
#include <utility>

#include "simulator/call_records.hpp"
#include "simulator/failure.hpp"
#include "simulator/reference_clock.hpp"

namespace zelk::simulator {
namespace {

using std::chrono::milliseconds;

// A read that finds nothing and succeeds takes this long: a host that asks
// again at once would otherwise do nothing else.
constexpr milliseconds empty_read{1};

// Damaged bytes are made for at most this much of the healthy stream at once:
// where every bit is drawn for, more would hold a read well beyond its time-out.
constexpr std::size_t max_piece_bytes = std::size_t{1} << 15;

bool is_reference_call(CallKind call) {
  return call == CallKind::get_reference_clock_status || call == CallKind::set_reference_clock;
}

FaultFailure failure_of(const FailingCall& failing) {
  return {static_cast<Status>(failing.status), failing.last_error};
}

// What is left of a read's time-out.
int ms_until(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::max<milliseconds::rep>(left.count(), 0));
}

[[noreturn]] void hang() {
  for (;;) {
    std::this_thread::sleep_for(std::chrono::hours(1));
  }
}

}  // namespace

void expect_opening(const FaultPlan& plan) {
  for (const FailingCall& failing : plan.failing_calls) {
    if (failing.call == CallKind::open) {
      throw failure_of(failing);
    }
  }
}

std::unique_ptr<DeviceBackend> with_faults(std::unique_ptr<DeviceBackend> device,
                                           const FaultPlan& plan, std::uint32_t seed) {
  expect_opening(plan);
  if (plan == FaultPlan{}) {
    return device;
  }
  return std::make_unique<FaultyDevice>(std::move(device), plan, seed);
}

FaultyDevice::FaultyDevice(std::unique_ptr<DeviceBackend> device, FaultPlan plan,
                           std::uint32_t seed)
    : device_(std::move(device)), plan_(std::move(plan)), seed_(seed) {}

// Every call comes through here first.
void FaultyDevice::enter(CallKind call) {
  const std::int64_t number = ++calls_made_[static_cast<std::size_t>(call)];
  if (is_due(plan_.vanish_at_s)) {
    throw Failure(Status::unit_vanished, "nothing answers at its port any more");
  }
  for (const FailingCall& failing : plan_.failing_calls) {
    if (failing.call == call && (!failing.only || failing.only == number) &&
        (!failing.from_s || is_due(failing.from_s))) {
      throw failure_of(failing);
    }
  }
  if (is_reference_call(call) && plan_.reference_unavailable) {
    throw Failure(static_cast<Status>(*plan_.reference_unavailable),
                  "the reference clock of this unit cannot be controlled");
  }
}

bool FaultyDevice::is_due(const std::optional<double>& at_s) const {
  return at_s && started_ &&
         std::chrono::duration<double>(Clock::now() - *started_).count() >= *at_s;
}

bool FaultyDevice::is_in(const FaultWindow& window) const {
  return is_due(window.at_s) && !(window.for_s && is_due(*window.at_s + *window.for_s));
}

// To be asked inside the window only.
FaultyDevice::Clock::time_point FaultyDevice::end_of(const FaultWindow& window) const {
  if (!window.for_s) {
    return Clock::time_point::max();
  }
  const std::chrono::duration<double> from_start(*window.at_s + *window.for_s);
  return *started_ + std::chrono::ceil<Clock::duration>(from_start);
}

qx_status FaultyDevice::call(DeviceCall& call) {
  enter(call.kind);
  answered_itself_ = false;
  const qx_status status = device_->call(call);
  if (status != 0) {
    return status;
  }
  if (call.kind == CallKind::start_stream_mode) {
    begin_stream();
  } else if (call.kind == CallKind::stop_stream_mode) {
    streaming_ = false;
  } else if (is_reference_call(call.kind) && is_due(plan_.reference_lost_at_s)) {
    clock_to_words(after_loss_of_external(clock_from_words(call.results)), call.results);
  }
  return status;
}

void FaultyDevice::begin_stream() {
  started_ = Clock::now();
  streaming_ = true;
  damage_.reset();
  if (plan_.damages_stream()) {
    damage_.emplace(plan_.damage, seed_);
  }
  remove_bit_at_s_ = plan_.remove_bit_at_s;
  insert_bit_at_s_ = plan_.insert_bit_at_s;
  damaged_.replace();
}

qx_status FaultyDevice::read(std::span<std::uint8_t> buffer, std::size_t& received,
                             int timeout_ms) {
  received = 0;
  enter(CallKind::read_stream_bytes);
  answered_itself_ = false;
  if (!streaming_ || buffer.empty()) {
    return device_->read(buffer, received, timeout_ms);
  }
  const Clock::time_point deadline = Clock::now() + milliseconds(std::max(timeout_ms, 0));
  if (is_due(plan_.hang_at_s)) {
    hang();
  }
  if (is_in(plan_.silent)) {
    sit_out_silence(deadline);
    timeout_ms = ms_until(deadline);
  }
  if (is_in(plan_.empty)) {
    std::this_thread::sleep_for(empty_read);
    answered_itself_ = true;
    return 0;
  }
  return damage_ ? read_damaged(buffer, received, timeout_ms, deadline)
                 : device_->read(buffer, received, timeout_ms);
}

// To be called inside the silence only. Throws Failure when that outlasts the
// time-out.
void FaultyDevice::sit_out_silence(Clock::time_point deadline) const {
  const Clock::time_point end = end_of(plan_.silent);
  std::this_thread::sleep_until(std::min(deadline, end));
  if (deadline <= end) {
    throw nothing_arrived();
  }
}

// The stream may lose every byte of a piece, and the next one, and so on. What
// the healthy device answers when it brings nothing is the answer here, too.
qx_status FaultyDevice::read_damaged(std::span<std::uint8_t> buffer, std::size_t& received,
                                     int timeout_ms, Clock::time_point deadline) {
  while (damaged_.empty()) {
    healthy_.resize(std::min(buffer.size(), max_piece_bytes));
    std::size_t count = 0;
    const qx_status status = device_->read(healthy_, count, timeout_ms);
    begin_due_damage();
    damage_->apply(std::span(healthy_).first(std::min(count, healthy_.size())), damaged_.tail());
    if (status != 0 || count == 0) {
      received = damaged_.hand_over(buffer);
      return status;
    }
    if (damaged_.empty() && Clock::now() >= deadline) {
      throw nothing_arrived();
    }
    timeout_ms = ms_until(deadline);
  }
  answered_itself_ = true;
  received = damaged_.hand_over(buffer);
  return 0;
}

const char* FaultyDevice::last_error() const noexcept {
  return answered_itself_ ? "" : device_->last_error();
}

// Of two stuck lines the one that was stuck later is what the host sees.
void FaultyDevice::begin_due_damage() {
  if (is_due(remove_bit_at_s_)) {
    remove_bit_at_s_.reset();
    damage_->remove_one_bit();
  }
  if (is_due(insert_bit_at_s_)) {
    insert_bit_at_s_.reset();
    damage_->insert_one_bit();
  }
  const bool zeros = is_due(plan_.zeros_at_s);
  const bool ones = is_due(plan_.ones_at_s);
  if (ones && !(zeros && *plan_.zeros_at_s > *plan_.ones_at_s)) {
    damage_->stick_at(0xFF);
  } else if (zeros) {
    damage_->stick_at(0x00);
  }
}

}  // namespace zelk::simulator
