#include "simulator/faults/faulty_device.hpp"

#include <algorithm>
#include <thread>
#include <utility>

#include "simulator/failure.hpp"

namespace zelk::simulator {
namespace {

using std::chrono::milliseconds;

// A read that finds nothing and succeeds takes this long: a host that asks
// again at once would otherwise do nothing else.
constexpr milliseconds empty_read{1};

// Damaged bytes are made for at most this much of the healthy stream at once:
// where every bit is drawn for, more would hold a read well beyond its time-out.
constexpr std::size_t max_piece_bytes = std::size_t{1} << 15;

Failure failure_of(const FailingCall& failing) {
  return {static_cast<Status>(failing.status), failing.last_error};
}

Failure nothing_arrived() {
  return {Status::timed_out, "read_stream_bytes: no data within the time-out"};
}

[[noreturn]] void hang() {
  for (;;) {
    std::this_thread::sleep_for(std::chrono::hours(1));
  }
}

}  // namespace

std::unique_ptr<DeviceModel> with_faults(std::unique_ptr<DeviceModel> device, const FaultPlan& plan,
                                         std::uint32_t seed) {
  for (const FailingCall& failing : plan.failing_calls) {
    if (failing.call == CallKind::open) {
      throw failure_of(failing);
    }
  }
  // What is connected to the reference input is the healthy device's business.
  const FaultPlan no_faults{.external_reference = plan.external_reference};
  if (plan == no_faults) {
    return device;
  }
  return std::make_unique<FaultyDevice>(std::move(device), plan, seed);
}

FaultyDevice::FaultyDevice(std::unique_ptr<DeviceModel> device, FaultPlan plan, std::uint32_t seed)
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
}

void FaultyDevice::enter_reference_call(CallKind call) {
  enter(call);
  if (plan_.reference_unavailable) {
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

qx_reference_clock FaultyDevice::with_losses(const qx_reference_clock& status) const {
  return is_due(plan_.reference_lost_at_s) ? after_loss_of_external(status) : status;
}

qx_identity FaultyDevice::identity() {
  enter(CallKind::identify);
  return device_->identity();
}

void FaultyDevice::load_calibration(int flag) {
  enter(CallKind::load_calibration);
  device_->load_calibration(flag);
}

qx_reference_clock FaultyDevice::reference_clock() {
  enter_reference_call(CallKind::get_reference_clock_status);
  return with_losses(device_->reference_clock());
}

qx_reference_clock FaultyDevice::set_reference_clock(std::uint32_t source, std::uint32_t signal) {
  enter_reference_call(CallKind::set_reference_clock);
  return with_losses(device_->set_reference_clock(source, signal));
}

void FaultyDevice::set_delay_line_masks(
    std::span<const std::uint8_t, timing::channel_count> masks) {
  enter(CallKind::set_tdl_active_masks);
  device_->set_delay_line_masks(masks);
}

DeviceModel::DelayLineMasks FaultyDevice::delay_line_masks() {
  enter(CallKind::get_tdl_active_masks);
  return device_->delay_line_masks();
}

void FaultyDevice::set_threshold_codes(
    std::span<const std::uint16_t, timing::channel_count> codes) {
  enter(CallKind::set_dac_codes);
  device_->set_threshold_codes(codes);
}

std::int64_t FaultyDevice::set_dead_time(std::int64_t requested_ps) {
  enter(CallKind::set_input_dead_time);
  return device_->set_dead_time(requested_ps);
}

PackedDeltaSettings FaultyDevice::set_packed_delta(std::uint8_t bits, std::uint16_t quantum_ps) {
  enter(CallKind::set_packed_delta_config);
  return device_->set_packed_delta(bits, quantum_ps);
}

void FaultyDevice::set_stream_interface(std::uint32_t transport, std::uint32_t format) {
  enter(CallKind::set_stream_interface);
  device_->set_stream_interface(transport, format);
}

void FaultyDevice::set_channel_mask(std::uint8_t mask) {
  enter(CallKind::set_stream_channel_mask);
  device_->set_channel_mask(mask);
}

std::uint32_t FaultyDevice::set_calibration_frequency(double frequency_hz) {
  enter(CallKind::set_calibration_freq);
  return device_->set_calibration_frequency(frequency_hz);
}

void FaultyDevice::enable_calibration_source(bool enabled) {
  enter(enabled ? CallKind::enable_calibration_source : CallKind::disable_calibration_source);
  device_->enable_calibration_source(enabled);
}

void FaultyDevice::start_stream(std::uint32_t mode, std::uint32_t flags) {
  enter(CallKind::start_stream_mode);
  device_->start_stream(mode, flags);
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

void FaultyDevice::stop_stream(bool flag) {
  enter(CallKind::stop_stream_mode);
  device_->stop_stream(flag);
  streaming_ = false;
}

std::size_t FaultyDevice::read_stream(std::span<std::uint8_t> buffer, milliseconds timeout) {
  enter(CallKind::read_stream_bytes);
  if (!streaming_ || buffer.empty()) {
    return device_->read_stream(buffer, timeout);
  }
  const Clock::time_point deadline = Clock::now() + timeout;
  if (is_due(plan_.hang_at_s)) {
    hang();
  }
  wait_while_silent(deadline);
  if (is_in(plan_.empty)) {
    std::this_thread::sleep_for(empty_read);
    return 0;
  }
  return read_damaged(buffer, deadline);
}

// Throws Failure when the silence outlasts the time-out.
void FaultyDevice::wait_while_silent(Clock::time_point deadline) const {
  if (!is_in(plan_.silent)) {
    return;
  }
  const Clock::time_point end = end_of(plan_.silent);
  std::this_thread::sleep_until(std::min(deadline, end));
  if (deadline <= end) {
    throw nothing_arrived();
  }
}

// The stream may lose every byte of a piece, and the next one, and so on.
std::size_t FaultyDevice::read_damaged(std::span<std::uint8_t> buffer, Clock::time_point deadline) {
  const auto time_left = [deadline] {
    return std::max(std::chrono::ceil<milliseconds>(deadline - Clock::now()), milliseconds{0});
  };
  if (!damage_) {
    return device_->read_stream(buffer, time_left());
  }
  while (damaged_.empty()) {
    healthy_.resize(std::min(buffer.size(), max_piece_bytes));
    const std::size_t count = device_->read_stream(healthy_, time_left());
    begin_due_damage();
    damage_->apply(std::span(healthy_).first(count), damaged_.tail());
    if (damaged_.empty() && Clock::now() >= deadline) {
      throw nothing_arrived();
    }
  }
  return damaged_.hand_over(buffer);
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
