#include "simulator/reference_clock.hpp"

#include <string>

#include "simulator/failure.hpp"

namespace zelk::simulator {

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

// With no external signal the unit always runs on its internal clock: by
// choice, or as a fallback that it warns about when external was demanded.
qx_reference_clock ReferenceClock::status() const {
  const bool missing = source_ == ReferenceSource::external;
  qx_reference_clock status{};
  status.requested = static_cast<std::int32_t>(source_);
  status.active = static_cast<std::int32_t>(ReferenceSource::internal);
  status.signal = static_cast<std::int32_t>(signal_);
  status.fallback = missing ? 1 : 0;
  status.missing_warning = missing ? 1 : 0;
  status.raw = missing ? raw_fallback | raw_missing_warning : 0;
  return status;
}

}  // namespace zelk::simulator
