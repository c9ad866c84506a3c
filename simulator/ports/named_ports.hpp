// The ports that exist, by name, and what messages say of them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "simulator/ports/port_keys.hpp"

namespace zelk::simulator {

// The port at which discovery lists the default unit.
inline constexpr std::string_view default_unit_port = "ftdi://ZK4-0001";

struct NamedPort {
  std::uint32_t kind;     // one bit of namespace ports
  std::string_view name;  // all that stands before the "?"
};

// The first row of a kind has its usual name.
inline constexpr auto named_ports = std::to_array<NamedPort>({
    {ports::unit, "ftdi://"},
    {ports::unit, default_unit_port},
    {ports::tags, "sim://tags"},
    {ports::pulses, "sim://pulses"},
    {ports::random, "sim://random"},
    {ports::pairs, "sim://pairs"},
    {ports::burst, "sim://burst"},
    {ports::silent, "sim://silent"},
    {ports::tap, "tap://FILE"},
    {ports::replay, "replay://FILE"},
});

// "sim://pairs takes jitter_ps, pair_rate_hz, ...", with every key.
std::string keys_text(std::uint32_t kind);

// The ports of these kinds: "sim://pulses and sim://pairs".
std::string ports_text(std::uint32_t kinds);

// "there are ftdi://, ...", with every port.
std::string all_ports_text();

// " (did you mean `pair_rate_hz`?)"; empty when no key of the kind of port is near.
std::string key_suggestion(std::string_view wrong, std::uint32_t kind);

// The same for what stands before the "?" of a port.
std::string port_suggestion(std::string_view wrong);

}  // namespace zelk::simulator
