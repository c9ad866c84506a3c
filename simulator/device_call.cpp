#include "simulator/device_call.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>

namespace zelk::simulator {
namespace {

std::string argument_text(CallKind kind, std::uint64_t word) {
  if (kind != CallKind::set_calibration_freq) {
    return std::to_string(static_cast<std::int64_t>(word));
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.17g", std::bit_cast<double>(word));
  return text.data();
}

}  // namespace

std::optional<CallKind> call_named(std::string_view name) {
  const auto found = std::ranges::find(call_shapes, name, &CallShape::name);
  if (found == call_shapes.end()) {
    return std::nullopt;
  }
  return static_cast<CallKind>(found - call_shapes.begin());
}

std::string call_text(const DeviceCall& call) {
  const CallShape& shape = shape_of(call.kind);
  std::string text = std::string(shape.name) + "(";
  for (std::size_t i = 0; i < shape.arguments; ++i) {
    text += (i == 0 ? "" : ", ") + argument_text(call.kind, call.arguments[i]);
  }
  return text + ")";
}

}  // namespace zelk::simulator
