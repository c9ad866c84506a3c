#include "simulator/ports/fault_plan.hpp"

#include <algorithm>

#include "simulator/failure.hpp"
#include "simulator/ports/number_text.hpp"
#include "simulator/ports/port_query.hpp"
#include "simulator/ports/port_values.hpp"

namespace zelk::simulator {
namespace {

// The whole of `text` as a number in the range given.
template <typename Number>
std::optional<Number> number_in(std::string_view text, Number lowest, Number highest) {
  const std::optional<Number> number = number_from<Number>(text);
  // In this form a comparison with "not a number" refuses it.
  return number && *number >= lowest && *number <= highest ? number : std::nullopt;
}

// Takes off what stands before the first `sign`, or everything.
std::string take_until(std::string_view& text, char sign) {
  const std::size_t end = std::min(text.find(sign), text.size());
  std::string part = percent_decoded(text.substr(0, end));
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

// "CALL", "CALL#N" or "CALL@SECONDS".
bool parse_place(std::string_view text, FailingCall& failing) {
  constexpr std::int64_t max_calls = 1'000'000'000;
  const std::size_t name_end = std::min(text.find_first_of("#@"), text.size());
  const std::optional<CallKind> call = call_named(text.substr(0, name_end));
  if (!call) {
    return false;
  }
  failing.call = *call;
  if (name_end == text.size()) {
    return true;
  }
  // A device is opened once, and before any stream.
  if (call == CallKind::open) {
    return false;
  }
  const std::string_view when = text.substr(name_end + 1);
  if (text[name_end] == '#') {
    failing.only = number_in<std::int64_t>(when, 1, max_calls);
    return failing.only.has_value();
  }
  failing.from_s = number_in<double>(when, 0, max_fault_s);
  return failing.from_s.has_value();
}

// Fails for anything but CALL[#N|@SECONDS]:STATUS[:TEXT].
FailingCall parse_failing_call(std::string_view item, std::size_t row) {
  FailingCall failing;
  std::string_view rest = item;
  const std::string place = take_until(rest, ':');
  const auto status = number_from<std::int32_t>(take_until(rest, ':'));
  if (!parse_place(place, failing) || status.value_or(0) == 0) {
    throw bad_value(row, item);
  }
  failing.status = *status;
  failing.last_error = percent_decoded(rest);
  return failing;
}

std::vector<FailingCall> take_failing_calls(PortQuery& query) {
  constexpr std::size_t row = key_row("fail");
  std::vector<FailingCall> calls;
  const std::optional<std::string> list = query.take_encoded(port_keys[row].name);
  if (!list) {
    return calls;
  }
  std::string_view rest = *list;
  for (;;) {
    const std::size_t comma = rest.find(',');
    calls.push_back(parse_failing_call(rest.substr(0, comma), row));
    if (comma == rest.npos) {
      return calls;
    }
    rest.remove_prefix(comma + 1);
  }
}

FaultWindow take_window(PortQuery& query, std::size_t at_row, std::size_t for_row) {
  const FaultWindow window{.at_s = take_optional_number(query, at_row),
                           .for_s = take_optional_number(query, for_row)};
  if (window.for_s && !window.at_s) {
    throw missing_key(at_row, port_keys[for_row].name, "SECONDS");
  }
  return window;
}

std::optional<std::int32_t> take_reference_unavailable(PortQuery& query) {
  return take_choice<std::int32_t>(query, key_row("reference_unavailable"),
                                   {{"-3", -3}, {"-4", -4}, {"-7", -7}});
}

}  // namespace

bool FaultPlan::damages_stream() const {
  return damage != DamageRates{} || remove_bit_at_s || insert_bit_at_s || zeros_at_s || ones_at_s;
}

FaultPlan take_fault_plan(PortQuery& query) {
  FaultPlan plan;
  plan.failing_calls = take_failing_calls(query);
  plan.silent = take_window(query, key_row("silent_at_s"), key_row("silent_for_s"));
  plan.empty = take_window(query, key_row("empty_at_s"), key_row("empty_for_s"));
  plan.hang_at_s = take_optional_number(query, key_row("hang_at_s"));
  plan.vanish_at_s = take_optional_number(query, key_row("vanish_at_s"));
  plan.damage = {.flip_bits = take_number(query, key_row("flip_bits")),
                 .lose_bytes = take_number(query, key_row("lose_bytes")),
                 .insert_bytes = take_number(query, key_row("insert_bytes")),
                 .remove_bits = take_number(query, key_row("remove_bits")),
                 .insert_bits = take_number(query, key_row("insert_bits"))};
  plan.remove_bit_at_s = take_optional_number(query, key_row("remove_bit_at_s"));
  plan.insert_bit_at_s = take_optional_number(query, key_row("insert_bit_at_s"));
  plan.zeros_at_s = take_optional_number(query, key_row("zeros_at_s"));
  plan.ones_at_s = take_optional_number(query, key_row("ones_at_s"));
  plan.reference_unavailable = take_reference_unavailable(query);
  plan.reference_lost_at_s = take_optional_number(query, key_row("reference_lost_at_s"));
  return plan;
}

}  // namespace zelk::simulator
