#include "simulator/reference_clock.hpp"

#include <string>

#include "simulator/failure.hpp"

namespace zelk::simulator {
namespace {

std::uint32_t raw_word(const qx_reference_clock& status) {
  return (status.external_present != 0 ? raw_external_present : 0) |
         (status.external_locked != 0 ? raw_external_locked : 0) |
         (status.fallback != 0 ? raw_fallback : 0) |
         (status.missing_warning != 0 ? raw_missing_warning : 0);
}

}  // namespace

void ReferenceClock::request(std::uint32_t source, std::uint32_t signal) {
  if (source > static_cast<std::uint32_t>(ReferenceSource::external)) {
    throw Failure(Status::out_of_range, "reference clock source " + std::to_string(source) +
                                            ": 0 auto, 1 internal or 2 external");
  }
  if (signal > static_cast<std::uint32_t>(ReferenceSignal::pulse_per_second)) {
    throw Failure(Status::out_of_range, "reference clock signal " + std::to_string(signal) +
                                            ": 0 is 10 MHz and 1 one pulse per second");
  }
  source_ = static_cast<ReferenceSource>(source);
  signal_ = static_cast<ReferenceSignal>(signal);
}

// Without a signal to lock to the unit runs on its internal clock: by choice,
// or as a fallback when external was demanded. It warns when there is no signal
// at all.
qx_reference_clock ReferenceClock::status() const {
  const bool locked = external_ == ExternalReference::locked;
  const bool demanded = source_ == ReferenceSource::external;
  const bool runs_on_external = locked && source_ != ReferenceSource::internal;
  qx_reference_clock status{};
  status.requested = static_cast<std::int32_t>(source_);
  status.active = static_cast<std::int32_t>(runs_on_external ? ReferenceSource::external
                                                             : ReferenceSource::internal);
  status.signal = static_cast<std::int32_t>(signal_);
  status.external_present = external_ != ExternalReference::none ? 1 : 0;
  status.external_locked = locked ? 1 : 0;
  status.fallback = demanded && !locked ? 1 : 0;
  status.missing_warning = demanded && external_ == ExternalReference::none ? 1 : 0;
  status.raw = raw_word(status);
  return status;
}

qx_reference_clock after_loss_of_external(qx_reference_clock status) {
  constexpr auto external = static_cast<std::int32_t>(ReferenceSource::external);
  if (status.active == external || status.requested == external) {
    status.fallback = 1;
    status.missing_warning = 1;
  }
  status.active = static_cast<std::int32_t>(ReferenceSource::internal);
  status.external_present = 0;
  status.external_locked = 0;
  status.raw = raw_word(status);
  return status;
}

}  // namespace zelk::simulator
