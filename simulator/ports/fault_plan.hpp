// The faults that a port string asks for. A plan is a plain value: what goes
// wrong, and when. Times are in seconds from the start of the stream; a fault
// without a length never ends. Probabilities lie in [0, 1].
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/device_call.hpp"

namespace zelk::simulator {

class PortQuery;

struct FailingCall {
  CallKind call = CallKind::open;
  std::int32_t status = 0;             // never 0
  std::string last_error{};            // may be empty
  std::optional<std::int64_t> only{};  // the one call that fails, counted from 1
  std::optional<double> from_s{};

  bool operator==(const FailingCall&) const = default;
};

struct FaultWindow {
  std::optional<double> at_s{};  // none: never
  std::optional<double> for_s{};

  bool operator==(const FaultWindow&) const = default;
};

// Damage that may happen anywhere in the stream.
struct DamageRates {
  double flip_bits = 0;     // of each bit
  double lose_bytes = 0;    // of each byte
  double insert_bytes = 0;  // before each byte
  double remove_bits = 0;   // of each bit
  double insert_bits = 0;   // before each bit

  bool operator==(const DamageRates&) const = default;
};

struct FaultPlan {
  std::vector<FailingCall> failing_calls{};  // the first that applies to a call holds
  FaultWindow silent{};
  FaultWindow empty{};
  std::optional<double> hang_at_s{};
  std::optional<double> vanish_at_s{};
  DamageRates damage{};
  std::optional<double> remove_bit_at_s{};
  std::optional<double> insert_bit_at_s{};
  std::optional<double> zeros_at_s{};
  std::optional<double> ones_at_s{};
  std::optional<std::int32_t> reference_unavailable{};  // the status of its calls
  std::optional<double> reference_lost_at_s{};

  // Whether the stream's bytes are touched.
  [[nodiscard]] bool damages_stream() const;

  bool operator==(const FaultPlan&) const = default;
};

// Takes the keys of the faults. Throws Failure for a bad value.
FaultPlan take_fault_plan(PortQuery& query);

}  // namespace zelk::simulator
